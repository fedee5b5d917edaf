#pragma once

#include <chrono>
#include <csignal>
#include <utility>
#include <vector>

// Signals turned into bytes on a pipe, so that a thread or a poll() loop can decide what a
// signal means with any call it likes: the handlers only write() the signal's number, which is
// all a handler may safely do. This is the plumbing; what a signal means is the reader's.
//
// One rule for every signal whose default action ends a process (endingSignals()): a signal
// that another process sends is a byte on the pipe, whichever it is. A fault of the process's
// own (a SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS or SIGABRT that the kernel raised or
// the process raised itself, as abort() does) still ends it as by default: nothing could go on
// after it. A SIGXFSZ of its own (a write past the file size limit) and a SIGPIPE of its own (a
// write to a closed pipe) are dropped, so that the write fails instead; another process's
// SIGXFSZ or SIGPIPE is a byte like any other.
//
// One pipe per process at a time. The handlers are in place from the constructor on; with
// Restore::OnDestruction the ones that were there before are put back by the destructor, with
// Restore::Never they stay until the process has exited, so that no signal on the way out finds
// the default action (a signal then is read by nobody, and so dropped). A signal that comes
// while the pipe is full (many at once) is dropped, never blocks the handler.
class SignalPipe
{
public:
    static constexpr int wokenUp = -1;
    enum class Restore { OnDestruction, Never };
    // What a signal from this process itself means, for the signals that can be one.
    enum class OwnSignal { Request, Fatal, Dropped };

    // Every signal whose default action ends a process, but SIGKILL and SIGSTOP, which cannot
    // be handled, and the two real-time signals that the C library keeps for itself.
    static std::vector<int> endingSignals();
    // SIGSEGV and its kin: Fatal; SIGXFSZ and SIGPIPE: Dropped; any other: Request.
    static OwnSignal ownSignal(int signalNumber);

    explicit SignalPipe(const std::vector<int> &signalNumbers,
                        Restore restore = Restore::OnDestruction);
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
    Restore m_restore;
    std::vector<std::pair<int, struct sigaction>> m_previous;
};
