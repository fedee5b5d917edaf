#include "runningclients.h"

#include <fieldkinds.h>
#include <outputmask.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The processes that hold an flock() on the file, from /proc/locks.
QSet<qint64> lockHolders(const QString &path)
{
    struct stat file = {};
    if (::stat(QFile::encodeName(path).constData(), &file) != 0)
        return {};
    QSet<qint64> holders;
    for (const QByteArray &line : readAll(u"/proc/locks"_s).split('\n')) {
        // "1: FLOCK  ADVISORY  WRITE 1234 08:01:5678 0 EOF"
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() < 6 || fields.at(1) != "FLOCK")
            continue;
        const QList<QByteArray> device = fields.at(5).split(':');
        if (device.size() == 3 && device.at(2).toULongLong() == file.st_ino)
            holders.insert(fields.at(4).toLongLong());
    }
    return holders;
}

// The fields of /proc/PID/stat after the program's name, which may hold blanks and parentheses
// itself: state, parent, process group, ...
QList<QByteArray> statFields(const QString &pid)
{
    const QByteArray stat = readAll(u"/proc/%1/stat"_s.arg(pid));
    return stat.mid(stat.lastIndexOf(')') + 2).split(' ');
}

// Seconds since the process started, from its start time in clock ticks after boot.
qint64 runningFor(const QList<QByteArray> &fields)
{
    const double uptime = readAll(u"/proc/uptime"_s).split(' ').value(0).toDouble();
    if (fields.size() < 20)
        return 0;
    return qint64(uptime - fields.at(19).toDouble() / double(::sysconf(_SC_CLK_TCK)));
}

// The client's command line as it may be shown: the program, then what FieldKinds shows of
// the rest.
QStringList shown(const QStringList &arguments)
{
    QStringList out = arguments.mid(0, 1);
    std::vector<std::string> bytes;
    for (const QString &argument : arguments.mid(1))
        bytes.push_back(argument.toStdString());
    for (const std::string &argument : FieldKinds::shownArguments({bytes.begin(), bytes.end()}))
        out.append(QString::fromStdString(argument));
    return out;
}

} // namespace

QList<RunningClients::Client> RunningClients::in(const QString &directory)
{
    const QString here = QFileInfo(directory).canonicalFilePath();
    if (here.isEmpty())
        return {};
    const QSet<qint64> holders = lockHolders(QDir(here).filePath(u"zelnorinpas.lock"_s));
    QList<Client> clients;
    for (const QString &pid : QDir(u"/proc"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool numeric = false;
        const qint64 id = pid.toLongLong(&numeric);
        if (!numeric || id == qint64(::getpid()))
            continue;
        if (QFileInfo(u"/proc/%1/cwd"_s.arg(pid)).canonicalFilePath() != here)
            continue;
        QStringList arguments;
        for (const QByteArray &argument : readAll(u"/proc/%1/cmdline"_s.arg(pid)).split('\0'))
            arguments.append(QString::fromLocal8Bit(argument));
        if (!arguments.isEmpty() && arguments.last().isEmpty())
            arguments.removeLast();
        // The program itself, or the script that an interpreter runs, lies in the directory.
        const QString program = QFileInfo(u"/proc/%1/exe"_s.arg(pid)).canonicalFilePath();
        qsizetype first = -1;
        if (QFileInfo(program).path() == here)
            first = 0;
        else if (arguments.size() > 1 &&
                 QFileInfo(QDir(here).filePath(arguments.at(1))).canonicalPath() == here &&
                 QFileInfo(QDir(here).filePath(arguments.at(1))).isFile())
            first = 1;
        // The recorder's scribe only writes what a run that has ended left.
        if (first < 0 || QFileInfo(program).fileName() == "zelnorinpas-scribe"_L1)
            continue;
        const QList<QByteArray> fields = statFields(pid);
        clients.append({id, shown(arguments.mid(first)), runningFor(fields), holders.contains(id),
                        fields.value(2).toLongLong(), fields.value(1).toLongLong(), 0});
    }
    // The real client under the recorder is the recorder's run: one entry, the recorder's, whose
    // process group holds both.
    for (qsizetype i = clients.size() - 1; i >= 0; --i) {
        for (Client &parent : clients) {
            if (parent.processId == clients.at(i).parentId) {
                parent.recordedId = clients.at(i).processId;
                parent.holdsLock |= clients.at(i).holdsLock;
                clients.removeAt(i);
                break;
            }
        }
    }
    return clients;
}
