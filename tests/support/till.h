#pragma once

// A processing directory for end-to-end tests: a copy of the one the build lays out, with the
// emulator as its client. Header-only, for the tests that define POSCTL_PATH and EMULATOR_DIR.

#include "fakeclient.h"
#include "programrun.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

// Made quick: no pause between runs, a card read of readDelayMs.
class Till
{
public:
    explicit Till(int readDelayMs = 20)
    {
        const QDir source(QStringLiteral(EMULATOR_DIR));
        QFile::copy(source.filePath(QStringLiteral("zelnorinpas")),
                    m_dir.filePath(QStringLiteral("zelnorinpas")));
        QFile config(source.filePath(QStringLiteral("zelnorinpas.conf")));
        config.open(QIODevice::ReadOnly);
        QByteArray text = config.readAll();
        text.replace("intervalBetweenOperations=1", "intervalBetweenOperations=0");
        text.replace("readDelayMs=1000",
                     QByteArray("readDelayMs=" + QByteArray::number(readDelayMs)));
        // Long enough to wrap on every slip.
        text.replace("merchantName=", "merchantName=Общество с ограниченной ответственностью ");
        QFile copy(m_dir.filePath(QStringLiteral("zelnorinpas.conf")));
        copy.open(QIODevice::WriteOnly);
        copy.write(text);
    }

    // Ends whatever still runs in the directory.
    ~Till() { FakeClient::endProcessesIn(m_dir.path()); }

    QString directory() const { return m_dir.path(); }
    QString journalPath() const
    {
        return m_dir.filePath(QStringLiteral("zelnorinpas-journal.json"));
    }

    ProgramRun posctl(const QStringList &arguments) const
    {
        return ProgramRun::run(
            QStringLiteral(POSCTL_PATH),
            QStringList{QStringLiteral("--json"), QStringLiteral("--dir"), m_dir.path()} +
                arguments,
            m_dir.path());
    }
    ProgramRun client(const QStringList &arguments) const
    {
        return ProgramRun::run(m_dir.filePath(QStringLiteral("zelnorinpas")), arguments,
                               m_dir.path());
    }

private:
    QTemporaryDir m_dir;
};
