#pragma once

#include <QMutex>

#include <chrono>

// Interrupting an operation's payment client from another thread.
//
// An interrupt reaches the client that is running now. One that comes while an operation is in
// progress but none of its clients runs (in the pause before a client starts, or between the
// status queries of an SBP payment) is kept, and delivered to the next client of that same
// operation once the client has run for keptDelay, so that it has had time to set up its
// handling of SIGINT; a client that ends sooner is not signalled and the interrupt stays kept.
// A kept interrupt ends with its operation. With no operation in progress an interrupt does
// nothing. No signal ever reaches a process that is not a running client of ours.
class ClientInterruption
{
public:
    static constexpr std::chrono::milliseconds keptDelay{500};

    // One host operation, for as long as it exists. Operations may nest (an SBP payment hands a
    // refund request on); the outermost one ends the kept interrupt.
    class Operation
    {
    public:
        explicit Operation(ClientInterruption &owner);
        ~Operation();
        Operation(const Operation &) = delete;
        Operation &operator=(const Operation &) = delete;

    private:
        ClientInterruption &m_owner;
    };

    // One client run: published from its start until just before the runner reaps it, so that
    // its process id cannot have been reused while it is published.
    class Client
    {
    public:
        Client(ClientInterruption &owner, qint64 processId);
        ~Client();
        Client(const Client &) = delete;
        Client &operator=(const Client &) = delete;

    private:
        ClientInterruption &m_owner;
    };

    // SIGINT to the running client, or kept for the operation's next one (see above).
    void interrupt();
    // Called periodically while a client runs: delivers a kept interrupt once it is due.
    void deliverKept();

private:
    bool clientRunning() const;

    QMutex m_mutex;
    qint64 m_clientProcessId = 0;
    std::chrono::steady_clock::time_point m_clientStart;
    int m_operations = 0;
    bool m_kept = false;
};
