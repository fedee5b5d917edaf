#include "clientinterruption.h"

#include <csignal>
#include <sys/wait.h>

ClientInterruption::Operation::Operation(ClientInterruption &owner)
    : m_owner(owner)
{
    const QMutexLocker lock(&m_owner.m_mutex);
    ++m_owner.m_operations;
}

ClientInterruption::Operation::~Operation()
{
    const QMutexLocker lock(&m_owner.m_mutex);
    if (--m_owner.m_operations == 0)
        m_owner.m_kept = false;
}

ClientInterruption::Client::Client(ClientInterruption &owner, qint64 processId)
    : m_owner(owner)
{
    const QMutexLocker lock(&m_owner.m_mutex);
    m_owner.m_clientProcessId = processId;
    m_owner.m_clientStart = std::chrono::steady_clock::now();
}

ClientInterruption::Client::~Client()
{
    const QMutexLocker lock(&m_owner.m_mutex);
    m_owner.m_clientProcessId = 0;
}

// Whether the published client has not ended yet. An ended client stays unreaped while it is
// published, so asking does not disturb the runner that will reap it.
bool ClientInterruption::clientRunning() const
{
    // Zero and negative ids would name process groups.
    if (m_clientProcessId <= 0)
        return false;
    siginfo_t info{};
    const int rc =
        ::waitid(P_PID, static_cast<id_t>(m_clientProcessId), &info, WEXITED | WNOHANG | WNOWAIT);
    return rc == 0 && info.si_pid == 0;
}

void ClientInterruption::interrupt()
{
    const QMutexLocker lock(&m_mutex);
    if (clientRunning())
        ::kill(static_cast<pid_t>(m_clientProcessId), SIGINT);
    else if (m_operations > 0)
        m_kept = true;
}

void ClientInterruption::deliverKept()
{
    const QMutexLocker lock(&m_mutex);
    if (!m_kept || std::chrono::steady_clock::now() - m_clientStart < keptDelay || !clientRunning())
        return;
    ::kill(static_cast<pid_t>(m_clientProcessId), SIGINT);
    m_kept = false;
}
