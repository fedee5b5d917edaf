#include "recordersetup.h"

#include "installedfiles.h"
#include "runningclients.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray encoded(const QString &path)
{
    return QFile::encodeName(path);
}

// The file's identity: its device and inode.
std::optional<std::pair<dev_t, ino_t>> identity(const QString &path)
{
    struct stat state = {};
    if (::lstat(encoded(path).constData(), &state) != 0)
        return std::nullopt;
    return std::pair{state.st_dev, state.st_ino};
}

void syncDirectory(const QString &directory)
{
    const int fd = ::open(encoded(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

// Copies a program in under a temporary name, on disk whole, so that the one rename that puts it
// in place is all a client run can ever see of it.
// The owner the files put in the client's place take: the client's, so that whoever runs the
// client runs them. Only root can give a file to another user.
struct Owner
{
    uid_t uid;
    gid_t gid;
};
std::optional<Owner> owner;

QString userName(uid_t uid)
{
    const passwd *entry = ::getpwuid(uid);
    return entry ? QString::fromLocal8Bit(entry->pw_name) : QString::number(uid);
}

bool copyIn(const QString &from, const QString &temporary, QFile::Permissions permissions,
            QString &error)
{
    QFile::remove(temporary);
    QFile in(from);
    QFile out(temporary);
    const bool copied =
        in.open(QIODevice::ReadOnly) && out.open(QIODevice::WriteOnly | QIODevice::NewOnly) &&
        out.write(in.readAll()) == in.size() && out.flush() && ::fsync(out.handle()) == 0 &&
        (!owner || ::fchown(out.handle(), owner->uid, owner->gid) == 0) &&
        out.setPermissions(permissions);
    out.close();
    if (!copied) {
        error = u"cannot copy %1 to %2: %3"_s.arg(
            from, temporary, out.error() != QFile::NoError ? out.errorString() : in.errorString());
        QFile::remove(temporary);
    }
    return copied;
}

bool place(const QString &from, const QString &to, QFile::Permissions permissions, QString &error)
{
    const QString temporary = to + u".new"_s;
    if (!copyIn(from, temporary, permissions, error))
        return false;
    if (::rename(encoded(temporary).constData(), encoded(to).constData()) != 0) {
        error = u"cannot put %1 in place of %2: %3"_s.arg(
            from, to, QString::fromLocal8Bit(std::strerror(errno)));
        QFile::remove(temporary);
        return false;
    }
    return true;
}

// What is put where, for check and for turning off.
void writeNote(const QString &directory, const QString &client, const QString &recorder)
{
    const auto object = [](const std::optional<RecorderSetup::Program> &program) {
        return program ? QJsonObject{{u"size"_s, program->size},
                                     {u"modified"_s, program->modified.toString(Qt::ISODate)},
                                     {u"sha256"_s, QString::fromLatin1(program->sha256)}}
                       : QJsonObject();
    };
    QSaveFile file(QDir(directory).filePath(QLatin1StringView(RecorderSetup::noteFile)));
    if (!file.open(QIODevice::WriteOnly))
        return;
    file.write(
        QJsonDocument(QJsonObject{{u"on"_s, QDateTime::currentDateTime().toString(Qt::ISODate)},
                                  {u"client"_s, object(RecorderSetup::program(client))},
                                  {u"recorder"_s, object(RecorderSetup::program(recorder))}})
            .toJson());
    file.commit();
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
    // The note, or the client kept as zelnorinpas.real and something else in its place; the
    // same file under both names is what an interrupted turnOn() left: still off.
    const QDir dir(directory);
    if (QFileInfo::exists(dir.filePath(QLatin1StringView(noteFile))))
        return true;
    const auto real = identity(dir.filePath(QLatin1StringView(realClient)));
    return real && real != identity(dir.filePath(QLatin1StringView(client)));
}

std::optional<RecorderSetup::Program> RecorderSetup::program(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&file);
    return Program{file.size(), QFileInfo(path).lastModified(), hash.result().toHex()};
}

std::optional<RecorderSetup::Note> RecorderSetup::note(const QString &directory)
{
    QFile file(QDir(directory).filePath(QLatin1StringView(noteFile)));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QJsonObject json = QJsonDocument::fromJson(file.readAll()).object();
    const auto programOf = [](const QJsonObject &object) {
        return Program{object.value("size"_L1).toInteger(),
                       QDateTime::fromString(object.value("modified"_L1).toString(), Qt::ISODate),
                       object.value("sha256"_L1).toString().toLatin1()};
    };
    return Note{QDateTime::fromString(json.value("on"_L1).toString(), Qt::ISODate),
                programOf(json.value("client"_L1).toObject()),
                programOf(json.value("recorder"_L1).toObject())};
}

// At every moment of turning on or off, ./zelnorinpas is the client or the recorder, whole: the
// client is kept under its second name by a hard link while it still has its first, and the
// recorder takes the first by one rename; turning off, the client takes it back by one rename.
// A signal, a crash or a full disk at any moment leaves a working directory.
bool RecorderSetup::turnOn(const QString &directory, QString &message)
{
    const QDir dir(directory);
    const QString clientPath = dir.filePath(QLatin1StringView(client));
    const QString realPath = dir.filePath(QLatin1StringView(realClient));
    const QString scribePath = dir.filePath(QLatin1StringView(scribe));
    if (isOn(directory)) {
        message = u"the recorder is already on in %1 (the client is %2)"_s.arg(directory, realPath);
        return true;
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
    // Whoever may run the client may run the recorder that takes its place: its owner, group and
    // mode.
    const QFile::Permissions permissions = QFileInfo(clientPath).permissions();
    struct stat clientStat = {};
    if (::stat(encoded(clientPath).constData(), &clientStat) != 0) {
        message = u"cannot look at %1: %2"_s.arg(clientPath,
                                                 QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    owner.reset();
    if (::geteuid() == 0) {
        owner = Owner{clientStat.st_uid, clientStat.st_gid};
    } else if (clientStat.st_uid != ::geteuid()) {
        message = u"the client %1 belongs to %2: a recorder put there by %3 would be %3's, and %2 "
                  u"could not be relied on to run it; run posctl recorder on as %2 or as "
                  u"root"_s.arg(clientPath, userName(clientStat.st_uid), userName(::geteuid()));
        return false;
    }
    // What an interrupted earlier turnOn() may have left: the client's second name.
    if (identity(realPath) && identity(realPath) == identity(clientPath))
        QFile::remove(realPath);
    QString error;
    if (!place(scribeProgram, scribePath, permissions, error)) {
        message = error;
        return false;
    }
    if (::link(encoded(clientPath).constData(), encoded(realPath).constData()) != 0) {
        message = u"cannot keep the client as %1: %2"_s.arg(
            realPath, QString::fromLocal8Bit(std::strerror(errno)));
        QFile::remove(scribePath);
        return false;
    }
    if (!place(recorder, clientPath, permissions, error)) {
        QFile::remove(realPath);
        QFile::remove(scribePath);
        message = error;
        return false;
    }
    writeNote(directory, realPath, clientPath);
    syncDirectory(directory);
    message = u"the recorder is on in %1: the client is kept as %2, and every run is recorded in "
              u"%3"_s.arg(directory, realPath, dir.filePath(u"recordings"_s));
    return true;
}

bool RecorderSetup::turnOff(const QString &directory, Force force, QString &message)
{
    const QDir dir(directory);
    const QString clientPath = dir.filePath(QLatin1StringView(client));
    const QString realPath = dir.filePath(QLatin1StringView(realClient));
    if (!isOn(directory)) {
        message = u"the recorder is not on in %1"_s.arg(directory);
        return true;
    }
    if (message = busy(directory); !message.isEmpty())
        return false;
    if (!QFileInfo::exists(realPath)) {
        message = u"the client %1 that the recorder was put in front of is missing; put the "
                  u"payment client back as %2 yourself, then remove %3"_s.arg(
                      realPath, clientPath, dir.filePath(QLatin1StringView(noteFile)));
        return false;
    }
    const std::optional<Note> noted = note(directory);
    if (noted && program(clientPath) != noted->recorder && force == Force::No) {
        message = u"%1 is no longer the recorder: a newer client was put there since the recorder "
                  u"went on, and taking the recorder away would put the older client %2 back over "
                  u"it. Remove %2 and %3 to keep the newer one, or run recorder off --force to "
                  u"put the older one back"_s.arg(clientPath, realPath,
                                                  dir.filePath(QLatin1StringView(noteFile)));
        return false;
    }
    // The recorder goes, and the client, the very same file, takes its name back: one rename,
    // which replaces the recorder at once (QFile::rename would refuse to).
    if (::rename(encoded(realPath).constData(), encoded(clientPath).constData()) != 0) {
        message = u"cannot put the client %1 back as %2"_s.arg(realPath, clientPath);
        return false;
    }
    QFile::remove(dir.filePath(QLatin1StringView(noteFile)));
    syncDirectory(directory);
    QFile::remove(dir.filePath(QLatin1StringView(scribe)));
    // The scribe's service ends when its socket is gone.
    QFile::remove(dir.filePath(u"recordings/scribe.sock"_s));
    dir.rmdir(u"recordings"_s); // only when nothing was recorded
    message = u"the recorder is off in %1"_s.arg(directory) +
              (dir.exists(u"recordings"_s)
                   ? u"; the recordings stay in %1"_s.arg(dir.filePath(u"recordings"_s))
                   : QString());
    return true;
}
