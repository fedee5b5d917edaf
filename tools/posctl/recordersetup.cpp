#include "recordersetup.h"

#include "installedfiles.h"
#include "runningclients.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

using namespace Qt::Literals::StringLiterals;

namespace {

// Copies a program into place under a temporary name first, so that a client run never finds
// half of it.
bool place(const QString &from, const QString &to, QFile::Permissions permissions, QString &error)
{
    const QString temporary = to + u".new"_s;
    QFile::remove(temporary);
    if (!QFile::copy(from, temporary) || !QFile::setPermissions(temporary, permissions) ||
        ::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(to).constData()) !=
            0) {
        error = u"cannot put %1 in place of %2"_s.arg(from, to);
        QFile::remove(temporary);
        return false;
    }
    return true;
}

QString busy(const QString &directory)
{
    const QList<RunningClients::Client> clients = RunningClients::in(directory);
    return clients.isEmpty() ? QString()
                             : u"a payment client runs in %1 now (process %2); try again when it "
                               u"has ended"_s.arg(directory)
                                   .arg(clients.first().processId);
}

} // namespace

bool RecorderSetup::isOn(const QString &directory)
{
    return QFileInfo::exists(QDir(directory).filePath(QLatin1StringView(realClient)));
}

bool RecorderSetup::turnOn(const QString &directory, QString &message)
{
    const QDir dir(directory);
    const QString clientPath = dir.filePath(QLatin1StringView(client));
    const QString realPath = dir.filePath(QLatin1StringView(realClient));
    if (isOn(directory)) {
        message = u"the recorder is already on in %1 (the client is %2)"_s.arg(directory, realPath);
        return false;
    }
    if (!QFileInfo(clientPath).isFile()) {
        message = u"there is no payment client %1 to record"_s.arg(clientPath);
        return false;
    }
    if (message = busy(directory); !message.isEmpty())
        return false;
    const QString recorder =
        InstalledFiles::path(u"zelnorinpas-recorder"_s, QStringLiteral(INPAS_INSTALL_RECORDERDIR));
    const QString scribeProgram =
        InstalledFiles::path(QLatin1StringView(scribe), QStringLiteral(INPAS_INSTALL_RECORDERDIR));
    for (const QString &program : {recorder, scribeProgram}) {
        if (!QFileInfo(program).isExecutable()) {
            message = u"the recorder is not installed: there is no %1"_s.arg(program);
            return false;
        }
    }
    // Whoever may run the client may run the recorder that takes its place.
    const QFile::Permissions permissions = QFileInfo(clientPath).permissions();
    QString error;
    if (!QFile::rename(clientPath, realPath)) {
        message = u"cannot keep the client as %1"_s.arg(realPath);
        return false;
    }
    if (!place(scribeProgram, dir.filePath(QLatin1StringView(scribe)), permissions, error) ||
        !place(recorder, clientPath, permissions, error)) {
        QFile::remove(dir.filePath(QLatin1StringView(scribe)));
        QFile::rename(realPath, clientPath);
        message = error;
        return false;
    }
    message = u"the recorder is on in %1: the client is kept as %2, and every run is recorded in "
              u"%3"_s.arg(directory, realPath, dir.filePath(u"recordings"_s));
    return true;
}

bool RecorderSetup::turnOff(const QString &directory, QString &message)
{
    const QDir dir(directory);
    const QString clientPath = dir.filePath(QLatin1StringView(client));
    const QString realPath = dir.filePath(QLatin1StringView(realClient));
    if (!isOn(directory)) {
        message = u"the recorder is not on in %1"_s.arg(directory);
        return false;
    }
    if (message = busy(directory); !message.isEmpty())
        return false;
    // The recorder goes, and the client, the very same file, takes its name back: one rename,
    // which replaces the recorder at once (QFile::rename would refuse to).
    if (::rename(QFile::encodeName(realPath).constData(),
                 QFile::encodeName(clientPath).constData()) != 0) {
        message = u"cannot put the client %1 back as %2"_s.arg(realPath, clientPath);
        return false;
    }
    QFile::remove(dir.filePath(QLatin1StringView(scribe)));
    dir.rmdir(u"recordings"_s); // only when nothing was recorded
    message = u"the recorder is off in %1"_s.arg(directory) +
              (dir.exists(u"recordings"_s)
                   ? u"; the recordings stay in %1"_s.arg(dir.filePath(u"recordings"_s))
                   : QString());
    return true;
}
