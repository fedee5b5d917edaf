#include "logsink.h"

#include "output.h"

#include <QDateTime>
#include <QFile>
#include <QLoggingCategory>
#include <QMutex>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

QMutex mutex;
bool toStderr = false;
FILE *file = nullptr;

QLatin1StringView levelName(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return "DEBUG"_L1;
    case QtInfoMsg:
        return "INFO "_L1;
    case QtWarningMsg:
        return "WARN "_L1;
    case QtCriticalMsg:
        return "ERROR"_L1;
    case QtFatalMsg:
        return "FATAL"_L1;
    }
    return "?    "_L1;
}

void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    const QString head =
        QDateTime::currentDateTime().toString(u"yyyy-MM-dd hh:mm:ss.zzz "_s) + levelName(type) +
        u' ' + QLatin1StringView(context.category ? context.category : "default") + u": "_s;
    const QMutexLocker lock(&mutex);
    // Written a piece at a time (Output): a line may be as large as the client's whole answer.
    for (FILE *stream :
         {toStderr || type == QtCriticalMsg || type == QtFatalMsg ? stderr : nullptr, file}) {
        if (stream) {
            Output out(stream);
            out << head << message << u'\n';
        }
    }
}

} // namespace

bool LogSink::install(bool verbose, const QString &logFile, QString &error)
{
    const QMutexLocker lock(&mutex);
    toStderr = verbose;
    if (!logFile.isEmpty()) {
        // A new log is the engineer's own (0600); an existing one keeps its mode, never wider.
        const int fd = ::open(QFile::encodeName(logFile).constData(),
                              O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        file = fd < 0 ? nullptr : ::fdopen(fd, "a");
        if (!file) {
            error = u"cannot append to the log file %1: %2"_s.arg(
                logFile, QString::fromLocal8Bit(std::strerror(errno)));
            if (fd >= 0)
                ::close(fd);
            return false;
        }
    }
    // Nobody reads debug and info lines: not formatting them spares the plug-in and the host
    // the work, which on a large answer is most of it. Warnings and worse still reach the log
    // file when there is one.
    if (!verbose && !file)
        QLoggingCategory::setFilterRules(u"*.debug=false\n*.info=false\n*.warning=false"_s);
    qInstallMessageHandler(handle);
    return true;
}
