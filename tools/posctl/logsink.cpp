#include "logsink.h"

#include <QDateTime>
#include <QFile>
#include <QLoggingCategory>
#include <QMutex>

#include <cstdio>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

QMutex mutex;
bool toStderr = false;
std::unique_ptr<QFile> file;

QByteArray levelName(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return "DEBUG";
    case QtInfoMsg:
        return "INFO ";
    case QtWarningMsg:
        return "WARN ";
    case QtCriticalMsg:
        return "ERROR";
    case QtFatalMsg:
        return "FATAL";
    }
    return "?    ";
}

void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    const QByteArray line =
        QDateTime::currentDateTime().toString(u"yyyy-MM-dd hh:mm:ss.zzz "_s).toUtf8() +
        levelName(type) + ' ' + (context.category ? context.category : "default") + ": " +
        message.toUtf8() + '\n';
    const QMutexLocker lock(&mutex);
    if (toStderr || type == QtCriticalMsg || type == QtFatalMsg) {
        std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
        std::fflush(stderr);
    }
    if (file) {
        file->write(line);
        file->flush();
    }
}

} // namespace

bool LogSink::install(bool verbose, const QString &logFile, QString &error)
{
    const QMutexLocker lock(&mutex);
    toStderr = verbose;
    if (!logFile.isEmpty()) {
        file = std::make_unique<QFile>(logFile);
        if (!file->open(QIODevice::WriteOnly | QIODevice::Append)) {
            error = u"cannot append to the log file %1: %2"_s.arg(logFile, file->errorString());
            file.reset();
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
