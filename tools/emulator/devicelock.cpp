#include "devicelock.h"

#include <QDir>
#include <QFile>
#include <QThread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

DeviceLock::~DeviceLock()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

DeviceLock::Result DeviceLock::acquire(const QString &directory, std::chrono::milliseconds wait,
                                       const std::atomic<bool> &interrupted)
{
    const QByteArray path =
        QFile::encodeName(QDir(directory).filePath(QLatin1StringView(fileName)));
    m_fd = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (m_fd < 0)
        return Failed;
    // Polled rather than blocking, so that the wait is bounded and SIGINT ends it.
    const auto deadline = std::chrono::steady_clock::now() + wait;
    for (;;) {
        if (::flock(m_fd, LOCK_EX | LOCK_NB) == 0)
            return Acquired;
        if (errno != EWOULDBLOCK && errno != EINTR)
            return Failed;
        if (interrupted)
            return Interrupted;
        if (std::chrono::steady_clock::now() >= deadline)
            return Busy;
        QThread::msleep(10);
    }
}
