#pragma once

#include <abstractpaymentprocessing.h>

#include <QString>

#include <chrono>
#include <mutex>
#include <optional>
#include <thread>

class ClientWatch;

// posctl's handling of SIGINT, SIGTERM and SIGHUP, so that no payment completes unseen.
//
// While an operation runs, the first signal asks the processor to interrupt it
// (interruptPayment()) and posctl keeps waiting for the answer, which it then prints as usual.
// If the operation has not ended giveUpAfter the signal, or a second signal comes, posctl
// says on stderr that the outcome is unknown, which client is running where and what to do
// next, and exits with outcomeUnknown: it never ends silently while a client runs. A signal
// while no operation runs ends a single command at once (with 128 + the signal) and stops a
// batch before its next line; a batch stops after its current line in any case.
//
// Also calls interruptPayment() a set time after an operation starts, when asked to.
class SignalGuard
{
public:
    static constexpr std::chrono::seconds giveUpAfter{10};
    static constexpr int outcomeUnknown = 4;

    enum Mode { SingleCommand, Batch };

    SignalGuard(const ClientWatch &clients, Mode mode);
    ~SignalGuard();
    SignalGuard(const SignalGuard &) = delete;
    SignalGuard &operator=(const SignalGuard &) = delete;

    // One operation of the processor, from the host call until it returns. The directory is
    // where its client runs, for the report when posctl gives up.
    class Operation
    {
    public:
        Operation(SignalGuard &guard, AbstractPaymentProcessing *processor,
                  const QString &directory, std::optional<int> interruptAfterMs);
        ~Operation();
        Operation(const Operation &) = delete;
        Operation &operator=(const Operation &) = delete;

    private:
        SignalGuard &m_guard;
    };

    // The signal that asked a batch to stop, or 0.
    int stopSignal() const;
    // Becomes readable when a batch is asked to stop, so that a reader waiting for input wakes.
    int stopDescriptor() const;

private:
    using Clock = std::chrono::steady_clock;

    static void onSignal(int signal);
    void watch();
    void received(int signal);
    [[noreturn]] void giveUp(const QString &why);

    const ClientWatch &m_watch;
    const Mode m_mode;
    std::thread m_watcher;
    int m_stopPipe[2] = {-1, -1};

    mutable std::mutex m_mutex;
    AbstractPaymentProcessing *m_processor = nullptr; // the running operation's, not owned
    QString m_directory;
    int m_signalsDuringOperation = 0;
    int m_stopSignal = 0;
    std::optional<Clock::time_point> m_interruptAt;
    std::optional<Clock::time_point> m_giveUpAt;
};
