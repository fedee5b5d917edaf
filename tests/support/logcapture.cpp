#include "logcapture.h"

#include <QMutex>

namespace {

QMutex mutex;
QStringList captured;
QtMessageHandler previous = nullptr;

void capture(QtMsgType, const QMessageLogContext &, const QString &message)
{
    const QMutexLocker lock(&mutex);
    captured.append(message);
}

} // namespace

LogCapture::LogCapture()
{
    const QMutexLocker lock(&mutex);
    captured.clear();
    previous = qInstallMessageHandler(capture);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(previous);
}

QStringList LogCapture::lines() const
{
    const QMutexLocker lock(&mutex);
    return captured;
}
