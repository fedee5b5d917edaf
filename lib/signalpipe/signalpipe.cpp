#include "signalpipe.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

std::atomic<int> writeEnd{-1};

void onSignal(int signalNumber)
{
    const int saved = errno; // the interrupted code may be about to read it
    const char byte = char(signalNumber);
    [[maybe_unused]] const ssize_t n = ::write(writeEnd.load(), &byte, 1);
    errno = saved;
}

} // namespace

SignalPipe::SignalPipe(std::initializer_list<int> signalNumbers)
{
    if (::pipe2(m_pipe, O_CLOEXEC) != 0) {
        m_error = errno;
        m_pipe[0] = m_pipe[1] = -1;
        return;
    }
    ::fcntl(m_pipe[1], F_SETFL, O_NONBLOCK);
    writeEnd = m_pipe[1];
    struct sigaction action = {};
    action.sa_handler = &onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signalNumber : signalNumbers) {
        struct sigaction previous = {};
        if (::sigaction(signalNumber, &action, &previous) == 0)
            m_previous.emplace_back(signalNumber, previous);
    }
}

SignalPipe::~SignalPipe()
{
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
    char byte = 0;
    if (::read(m_pipe[0], &byte, 1) != 1)
        return 0;
    return byte == 0 ? wokenUp : int(byte);
}

void SignalPipe::wake()
{
    const char byte = 0;
    [[maybe_unused]] const ssize_t n = ::write(m_pipe[1], &byte, 1);
}
