#pragma once

#include <abstractpaymentprocessing.h>

#include <QString>

#include <atomic>
#include <chrono>
#include <csignal>
#include <mutex>
#include <optional>
#include <thread>

class ClientWatch;
class SignalPipe;

// What a signal that would end posctl means (every one of SignalPipe::endingSignals(), read
// from a SignalPipe), so that no payment completes unseen.
//
// An operation is guarded from before its host call until its answer is written out
// (Operation). While the call runs, the first signal asks the processor to interrupt it
// (interruptPayment()), then says so on stderr, and posctl keeps waiting for the answer,
// which it then writes as usual. If the call has not returned giveUpAfter() after the signal,
// or a second signal comes while a client runs, posctl says that the outcome is unknown, which
// client is running where and what to do next, and exits with ExitStatus::UnknownOutcome: it never
// ends silently while a client runs. Giving up, it lets no further client start and waits for one
// that is starting; a client that started after the interrupt was asked for (the processor
// kept it for its next client) is sent it then, so that none is left never told to stop. A second
// signal just after the client ended waits up to answerGrace for its answer instead. A broken pipe
// (SIGPIPE) can ask for the interrupt but is never the second signal: it comes again with every
// write to a closed output.
//
// Once the call has returned, its answer is always written: a signal then ends posctl after
// the answer (a single command with the answer's own status; a batch stops after the line),
// and a second signal while the answer is still being written puts its gist on stderr and
// ends with ExitStatus::UnknownOutcome. With no operation in progress a signal ends a single
// command at once, with 128 + the signal (with the answer's status once the answer is written), and
// stops a batch before its next line.
//
// Also calls interruptPayment() a set time after an operation starts, when asked to.
class SignalGuard
{
public:
    static constexpr std::chrono::seconds defaultGiveUpAfter{10};
    static constexpr std::chrono::seconds answerGrace{2};

    enum Mode { SingleCommand, Batch };

    SignalGuard(SignalPipe &pipe, ClientWatch &clients, Mode mode);
    ~SignalGuard();
    SignalGuard(const SignalGuard &) = delete;
    SignalGuard &operator=(const SignalGuard &) = delete;

    // How long posctl waits for the answer after the first signal: defaultGiveUpAfter, or
    // POSCTL_GIVE_UP_MS milliseconds from the environment (for tests, see docs/testing.md).
    static std::chrono::milliseconds giveUpAfter();

    // One operation of the processor, from before the host call until its answer is written.
    // The directory is where its client runs, for the report when posctl gives up.
    class Operation
    {
    public:
        Operation(SignalGuard &guard, AbstractPaymentProcessing *processor,
                  const QString &directory, std::optional<int> interruptAfterMs);
        ~Operation();
        Operation(const Operation &) = delete;
        Operation &operator=(const Operation &) = delete;

        // The host call has returned: the gist of its answer, for stderr should writing it be
        // stopped, and the status a single command ends with.
        void answered(const QString &gist, int exitCode);

    private:
        SignalGuard &m_guard;
    };

    // The signal that asked a batch to stop, or 0.
    int stopSignal() const;
    // Becomes readable when a batch is asked to stop, so that a reader waiting for input wakes.
    int stopDescriptor() const;

    // For an answer that could not be written to standard output: its gist on stderr, if that
    // can be written, and the end with ExitStatus::UnknownOutcome.
    [[noreturn]] static void answerLost(const QString &why, const QString &gist);

private:
    using Clock = std::chrono::steady_clock;
    enum class Phase { Idle, Running, Answered, Written };

    void watch();
    void received(int signal);
    bool answerOnItsWay() const;
    void interrupt();
    [[noreturn]] void giveUp(const QString &why);

    SignalPipe &m_pipe;
    ClientWatch &m_watch;
    const Mode m_mode;
    const std::chrono::milliseconds m_giveUpAfter;
    std::thread m_watcher;
    std::atomic<bool> m_quit{false};
    int m_stopPipe[2] = {-1, -1};

    mutable std::mutex m_mutex;
    Phase m_phase = Phase::Idle;
    AbstractPaymentProcessing *m_processor = nullptr; // the running operation's, not owned
    QString m_directory;
    QString m_gist;
    int m_exitCode = 0;
    int m_signalsDuringOperation = 0;
    bool m_secondSignalWaits = false;
    int m_stopSignal = 0;
    std::optional<Clock::time_point> m_interruptAt;
    std::optional<Clock::time_point> m_interruptAsked; // when the processor was asked
    std::optional<Clock::time_point> m_giveUpAt;
};
