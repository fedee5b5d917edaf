#pragma once

#include <chrono>
#include <csignal>
#include <initializer_list>
#include <utility>
#include <vector>

// Signals turned into bytes on a pipe, so that a thread or a poll() loop can decide what a
// signal means with any call it likes: the handlers only write() the signal's number, which is
// all a handler may safely do. This is the plumbing; what a signal means is the reader's.
//
// One pipe per process at a time. The handlers are in place from the constructor on and the
// ones that were there before are put back by the destructor. A signal that comes while the
// pipe is full (many at once) is dropped, never blocks the handler.
class SignalPipe
{
public:
    static constexpr int wokenUp = -1;

    explicit SignalPipe(std::initializer_list<int> signalNumbers);
    ~SignalPipe();
    SignalPipe(const SignalPipe &) = delete;
    SignalPipe &operator=(const SignalPipe &) = delete;

    // False when the pipe could not be made: then no handler was installed, every signal
    // keeps what it had, and errorNumber() says why.
    bool isValid() const { return m_pipe[0] >= 0; }
    int errorNumber() const { return m_error; }
    // Readable while a signal or a wake() waits to be taken.
    int descriptor() const { return m_pipe[0]; }

    // Waits up to timeout (a negative one: for as long as it takes) and takes the next signal:
    // its number, wokenUp after a wake(), or 0 when the time ran out.
    int next(std::chrono::milliseconds timeout);
    // Makes a next() in another thread return wokenUp.
    void wake();

private:
    int m_pipe[2] = {-1, -1};
    int m_error = 0;
    std::vector<std::pair<int, struct sigaction>> m_previous;
};
