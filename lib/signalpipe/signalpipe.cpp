#include "signalpipe.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

std::atomic<int> writeEnd{-1};

void onSignal(int signalNumber, siginfo_t *info, void *)
{
    const int saved = errno; // the interrupted code may be about to read it
    // Raised by the kernel for what this process did, or by the process itself.
    const bool own = info && (info->si_code > 0 || info->si_pid == ::getpid());
    switch (own ? SignalPipe::ownSignal(signalNumber) : SignalPipe::OwnSignal::Request) {
    case SignalPipe::OwnSignal::Request: {
        const char byte = char(signalNumber);
        [[maybe_unused]] const ssize_t n = ::write(writeEnd.load(), &byte, 1);
        break;
    }
    case SignalPipe::OwnSignal::Fatal: {
        // The default action, at once: raised again, it is taken as the handler returns.
        struct sigaction fallback = {};
        fallback.sa_handler = SIG_DFL;
        ::sigaction(signalNumber, &fallback, nullptr);
        ::raise(signalNumber);
        break;
    }
    case SignalPipe::OwnSignal::Dropped:
        break;
    }
    errno = saved;
}

} // namespace

std::vector<int> SignalPipe::endingSignals()
{
    std::vector<int> signals = {SIGHUP,  SIGINT,  SIGQUIT,   SIGILL,  SIGTRAP, SIGABRT, SIGBUS,
                                SIGFPE,  SIGUSR1, SIGSEGV,   SIGUSR2, SIGPIPE, SIGALRM, SIGTERM,
                                SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF, SIGIO,   SIGPWR,  SIGSYS};
#ifdef SIGSTKFLT
    signals.push_back(SIGSTKFLT);
#endif
    for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal)
        signals.push_back(signal);
    return signals;
}

SignalPipe::OwnSignal SignalPipe::ownSignal(int signalNumber)
{
    switch (signalNumber) {
    case SIGSEGV:
    case SIGBUS:
    case SIGFPE:
    case SIGILL:
    case SIGTRAP:
    case SIGSYS:
    case SIGABRT:
        return OwnSignal::Fatal;
    case SIGXFSZ:
    case SIGPIPE:
        return OwnSignal::Dropped;
    default:
        return OwnSignal::Request;
    }
}

SignalPipe::SignalPipe(const std::vector<int> &signalNumbers, Restore restore)
    : m_restore(restore)
{
    if (::pipe2(m_pipe, O_CLOEXEC) != 0) {
        m_error = errno;
        m_pipe[0] = m_pipe[1] = -1;
        return;
    }
    ::fcntl(m_pipe[1], F_SETFL, O_NONBLOCK);
    writeEnd = m_pipe[1];
    struct sigaction action = {};
    action.sa_sigaction = &onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART | SA_SIGINFO;
    for (int signalNumber : signalNumbers) {
        struct sigaction previous = {};
        if (::sigaction(signalNumber, &action, &previous) == 0)
            m_previous.emplace_back(signalNumber, previous);
    }
}

SignalPipe::~SignalPipe()
{
    // The pipe stays open with the handlers, so that their writes never reach a descriptor
    // that something else has been given since.
    if (m_restore == Restore::Never)
        return;
    for (auto it = m_previous.rbegin(); it != m_previous.rend(); ++it)
        ::sigaction(it->first, &it->second, nullptr);
    writeEnd = -1;
    for (int fd : m_pipe)
        if (fd >= 0)
            ::close(fd);
}

int SignalPipe::next(std::chrono::milliseconds timeout)
{
    if (!isValid())
        return 0;
    pollfd fd{m_pipe[0], POLLIN, 0};
    const int ready = ::poll(&fd, 1, timeout.count() < 0 ? -1 : int(timeout.count()));
    if (ready <= 0)
        return 0;
    unsigned char byte = 0;
    if (::read(m_pipe[0], &byte, 1) != 1)
        return 0;
    return byte == 0 ? wokenUp : int(byte);
}

void SignalPipe::wake()
{
    const char byte = 0;
    [[maybe_unused]] const ssize_t n = ::write(m_pipe[1], &byte, 1);
}
