#include "clientwatch.h"

#include <externalprocessthread.h>

void ClientWatch::beginOperation()
{
    const QMutexLocker lock(&m_mutex);
    m_runs = 0;
    m_clients.clear();
    m_lastEnd.reset();
    m_abnormalEnd.reset();
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

QList<ClientWatch::Client> ClientWatch::operationClients() const
{
    const QMutexLocker lock(&m_mutex);
    return m_clients;
}

std::optional<ProcessEnd> ClientWatch::lastEnd() const
{
    const QMutexLocker lock(&m_mutex);
    return m_lastEnd;
}

std::optional<ProcessEnd> ClientWatch::abnormalEnd() const
{
    const QMutexLocker lock(&m_mutex);
    return m_abnormalEnd;
}

std::optional<ClientWatch::FailedStart> ClientWatch::lastStartFailure() const
{
    const QMutexLocker lock(&m_mutex);
    return m_startFailure;
}

std::optional<ClientWatch::Client> ClientWatch::stopStarting()
{
    QMutexLocker lock(&m_mutex);
    m_stopped = true;
    while (m_starting)
        m_startDone.wait(&m_mutex);
    return m_running;
}

void ClientWatch::aboutToStart(const QString &, const QString &)
{
    QMutexLocker lock(&m_mutex);
    // posctl is giving up: this thread waits here until the process has ended.
    while (m_stopped)
        m_startDone.wait(&m_mutex);
    m_starting = true;
}

void ClientWatch::started(qint64 processId, const QString &, const QString &directory,
                          std::chrono::milliseconds)
{
    const QMutexLocker lock(&m_mutex);
    m_running = Client{processId, directory, Clock::now()};
    m_clients.append(*m_running);
    ++m_runs;
    m_starting = false;
    m_startDone.wakeAll();
}

void ClientWatch::failedToStart(const QString &program, const QString &directory,
                                const StartFailure &failure)
{
    const QMutexLocker lock(&m_mutex);
    m_startFailure = FailedStart{program, directory, failure};
    ++m_runs;
    m_starting = false;
    m_startDone.wakeAll();
}

void ClientWatch::finished(const ProcessEnd &end)
{
    const QMutexLocker lock(&m_mutex);
    if (m_running && m_running->processId == end.processId)
        m_running.reset();
    m_lastEnd = end;
    if (!endedByItself(end) && !m_abnormalEnd)
        m_abnormalEnd = end;
}

bool ClientWatch::endedByItself(const ProcessEnd &end)
{
    return end.error == ExternalProcessThread::NoError && end.signal == 0;
}
