#include "standin/processmonitor.h"

#include <QFile>

#include <atomic>

namespace {

std::atomic<ProcessMonitor *> current{nullptr};

} // namespace

ProcessMonitor::~ProcessMonitor() = default;

void ProcessMonitor::install(ProcessMonitor *monitor)
{
    current = monitor;
}

ProcessMonitor *ProcessMonitor::installed()
{
    return current.load();
}

void ProcessMonitor::aboutToStart(const QString &, const QString &) {}

void ProcessMonitor::started(qint64, const QString &, const QString &, std::chrono::milliseconds) {}

void ProcessMonitor::failedToStart(const QString &, const QString &, const StartFailure &) {}

void ProcessMonitor::finished(const ProcessEnd &) {}

QString StartFailure::interpreterOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray head = file.readLine(256).trimmed();
    if (!head.startsWith("#!"))
        return {};
    return QString::fromLocal8Bit(head.mid(2).trimmed().split(' ').value(0));
}
