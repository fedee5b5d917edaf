#pragma once

#include <abstractpaymentprocessing.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

// Turns Ctrl+C during an operation into interruptPayment() on the running processor, from a
// thread of its own since the operation blocks the main thread. A second Ctrl+C, or one while
// no operation runs, ends posctl. Also calls interruptPayment() after a delay on request.
class Interrupter
{
public:
    Interrupter();
    ~Interrupter();
    Interrupter(const Interrupter &) = delete;
    Interrupter &operator=(const Interrupter &) = delete;

    // Marks an operation of this processor as running until the returned scope ends.
    class Operation
    {
    public:
        Operation(Interrupter &owner, AbstractPaymentProcessing *processor,
                  std::optional<int> interruptAfterMs);
        ~Operation();
        Operation(const Operation &) = delete;
        Operation &operator=(const Operation &) = delete;

    private:
        Interrupter &m_owner;
        std::thread m_timer;
    };

private:
    static void onSignal(int);
    void watch();
    void interrupt();

    std::mutex m_mutex;
    std::condition_variable m_finished;
    AbstractPaymentProcessing *m_processor = nullptr; // the running operation's, not owned
    bool m_running = false;
    std::thread m_watcher;
};
