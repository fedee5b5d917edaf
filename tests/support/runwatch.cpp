#include "runwatch.h"

#include <externalprocessthread.h>

#include <QDateTime>
#include <QDeadlineTimer>

RunWatch::RunWatch()
{
    ProcessMonitor::install(this);
}

RunWatch::~RunWatch()
{
    ProcessMonitor::install(nullptr);
}

QList<RunWatch::Run> RunWatch::runs() const
{
    const QMutexLocker lock(&m_mutex);
    return m_runs;
}

bool RunWatch::waitForEnded(int count) const
{
    const QDeadlineTimer deadline(std::chrono::minutes(1));
    const QMutexLocker lock(&m_mutex);
    while (m_ended < count)
        if (!m_changed.wait(&m_mutex, deadline))
            return false;
    return true;
}

void RunWatch::started(qint64 processId, const QString &, const QString &,
                       std::chrono::milliseconds timeout)
{
    const QMutexLocker lock(&m_mutex);
    m_runs.append({processId,
                   Clock::now(),
                   double(QDateTime::currentMSecsSinceEpoch()) / 1000.0,
                   timeout,
                   {},
                   {}});
    m_changed.wakeAll();
}

void RunWatch::finished(const ProcessEnd &end)
{
    const QMutexLocker lock(&m_mutex);
    for (Run &run : m_runs) {
        if (run.processId == end.processId && !run.finished) {
            run.finished = Clock::now();
            run.end = end;
            break;
        }
    }
    ++m_ended;
    m_changed.wakeAll();
}
