#include "clientwatch.h"

void ClientWatch::beginOperation()
{
    const QMutexLocker lock(&m_mutex);
    m_runs = 0;
    m_lastEnd.reset();
    m_startFailure.reset();
}

std::optional<ClientWatch::Client> ClientWatch::running() const
{
    const QMutexLocker lock(&m_mutex);
    return m_running;
}

int ClientWatch::runsInOperation() const
{
    const QMutexLocker lock(&m_mutex);
    return m_runs;
}

std::optional<ProcessEnd> ClientWatch::lastEnd() const
{
    const QMutexLocker lock(&m_mutex);
    return m_lastEnd;
}

std::optional<ClientWatch::StartFailure> ClientWatch::lastStartFailure() const
{
    const QMutexLocker lock(&m_mutex);
    return m_startFailure;
}

void ClientWatch::started(qint64 processId, const QString &, const QString &directory,
                          std::chrono::milliseconds)
{
    const QMutexLocker lock(&m_mutex);
    m_running = Client{processId, directory};
    ++m_runs;
}

void ClientWatch::failedToStart(const QString &program, const QString &directory, int osError,
                                const QString &reason)
{
    const QMutexLocker lock(&m_mutex);
    m_startFailure = StartFailure{program, directory, osError, reason};
    ++m_runs;
}

void ClientWatch::finished(const ProcessEnd &end)
{
    const QMutexLocker lock(&m_mutex);
    if (m_running && m_running->processId == end.processId)
        m_running.reset();
    m_lastEnd = end;
}
