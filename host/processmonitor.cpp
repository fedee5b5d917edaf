#include "processmonitor.h"

ProcessMonitor::~ProcessMonitor() = default;

void ProcessMonitor::aboutToStart(const QString &, const QString &) {}

void ProcessMonitor::started(qint64, const QString &, const QString &, std::chrono::milliseconds) {}

void ProcessMonitor::failedToStart(const QString &, const QString &, int, const QString &) {}

void ProcessMonitor::finished(const ProcessEnd &) {}
