#include "interrupter.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

int signalPipe[2] = {-1, -1};
std::atomic<bool> operationRunning{false};
std::atomic<int> presses{0};

constexpr char interruptByte = 'i';
constexpr char quitByte = 'q';

} // namespace

void Interrupter::onSignal(int)
{
    // Only async-signal-safe calls here.
    if (!operationRunning.load() || presses.fetch_add(1) > 0) {
        [[maybe_unused]] const ssize_t n = ::write(STDERR_FILENO, "\n", 1);
        _exit(130);
    }
    static const char note[] =
        "\nposctl: asking the terminal to interrupt the operation (Ctrl+C again to quit)\n";
    [[maybe_unused]] const ssize_t n = ::write(STDERR_FILENO, note, sizeof note - 1);
    const char byte = interruptByte;
    [[maybe_unused]] const ssize_t m = ::write(signalPipe[1], &byte, 1);
}

Interrupter::Interrupter()
{
    if (::pipe2(signalPipe, O_CLOEXEC) != 0)
        return;
    m_watcher = std::thread([this] { watch(); });
    struct sigaction action = {};
    action.sa_handler = &Interrupter::onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
}

Interrupter::~Interrupter()
{
    ::signal(SIGINT, SIG_DFL);
    if (m_watcher.joinable()) {
        const char byte = quitByte;
        [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &byte, 1);
        m_watcher.join();
    }
    for (int &fd : signalPipe) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
}

void Interrupter::watch()
{
    for (;;) {
        char byte = 0;
        const ssize_t n = ::read(signalPipe[0], &byte, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0 || byte == quitByte)
            return;
        interrupt();
    }
}

void Interrupter::interrupt()
{
    const std::lock_guard lock(m_mutex);
    if (m_running && m_processor)
        m_processor->interruptPayment();
}

Interrupter::Operation::Operation(Interrupter &owner, AbstractPaymentProcessing *processor,
                                  std::optional<int> interruptAfterMs)
    : m_owner(owner)
{
    {
        const std::lock_guard lock(m_owner.m_mutex);
        m_owner.m_processor = processor;
        m_owner.m_running = true;
    }
    presses = 0;
    operationRunning = true;
    if (interruptAfterMs) {
        m_timer = std::thread([this, delay = std::chrono::milliseconds(*interruptAfterMs)] {
            std::unique_lock lock(m_owner.m_mutex);
            if (m_owner.m_finished.wait_for(lock, delay, [this] { return !m_owner.m_running; }))
                return;
            m_owner.m_processor->interruptPayment();
        });
    }
}

Interrupter::Operation::~Operation()
{
    operationRunning = false;
    {
        const std::lock_guard lock(m_owner.m_mutex);
        m_owner.m_running = false;
        m_owner.m_processor = nullptr;
    }
    m_owner.m_finished.notify_all();
    if (m_timer.joinable())
        m_timer.join();
}
