#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// One finished run of a program: its exit status (-1 when it crashed or hung) and output.
struct ProgramRun
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;

    QJsonObject json() const;
    // The answer's message text and its slips joined, as posctl --json prints them.
    QString message() const;
    QString slips() const;

    static ProgramRun run(const QString &program, const QStringList &arguments,
                          const QString &workingDirectory = {}, const QByteArray &input = {});
};
