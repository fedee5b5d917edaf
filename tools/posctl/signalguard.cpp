#include "signalguard.h"

#include "clientwatch.h"

#include <QFileInfo>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

// Signals reach the watcher through a pipe: the handler may only make async-signal-safe calls.
int signalPipe[2] = {-1, -1};
constexpr char quitByte = 0;
constexpr char wakeByte = char(0x7f); // a new deadline to wait for
constexpr int handledSignals[] = {SIGINT, SIGTERM, SIGHUP};

void say(const QString &text)
{
    const QByteArray bytes = (u"posctl: "_s + text + u'\n').toUtf8();
    [[maybe_unused]] const ssize_t n =
        ::write(STDERR_FILENO, bytes.constData(), size_t(bytes.size()));
}

QString signalName(int signal)
{
    return signal == SIGINT ? u"Ctrl+C"_s : u"SIG"_s + QString::fromLatin1(::sigabbrev_np(signal));
}

} // namespace

void SignalGuard::onSignal(int signal)
{
    const char byte = char(signal);
    [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &byte, 1);
}

SignalGuard::SignalGuard(const ClientWatch &clients, Mode mode)
    : m_watch(clients)
    , m_mode(mode)
{
    if (::pipe2(signalPipe, O_CLOEXEC) != 0 || ::pipe2(m_stopPipe, O_CLOEXEC) != 0)
        return;
    m_watcher = std::thread([this] { watch(); });
    struct sigaction action = {};
    action.sa_handler = &SignalGuard::onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : handledSignals)
        ::sigaction(signal, &action, nullptr);
}

SignalGuard::~SignalGuard()
{
    for (int signal : handledSignals)
        ::signal(signal, SIG_DFL);
    if (m_watcher.joinable()) {
        const char byte = quitByte;
        [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &byte, 1);
        m_watcher.join();
    }
    for (int *fd : {&signalPipe[0], &signalPipe[1], &m_stopPipe[0], &m_stopPipe[1]}) {
        if (*fd >= 0)
            ::close(*fd);
        *fd = -1;
    }
}

int SignalGuard::stopSignal() const
{
    const std::lock_guard lock(m_mutex);
    return m_stopSignal;
}

int SignalGuard::stopDescriptor() const
{
    return m_stopPipe[0];
}

void SignalGuard::watch()
{
    for (;;) {
        int timeout = -1;
        {
            const std::lock_guard lock(m_mutex);
            for (const auto &due : {m_interruptAt, m_giveUpAt}) {
                if (!due)
                    continue;
                const auto left =
                    std::chrono::ceil<std::chrono::milliseconds>(*due - Clock::now()).count();
                timeout = std::max(0, timeout < 0 ? int(left) : std::min(timeout, int(left)));
            }
        }
        pollfd fd{signalPipe[0], POLLIN, 0};
        const int ready = ::poll(&fd, 1, timeout);
        if (ready < 0 && errno != EINTR)
            return;
        if (ready > 0) {
            char byte = quitByte;
            if (::read(signalPipe[0], &byte, 1) <= 0 || byte == quitByte)
                return;
            if (byte != wakeByte)
                received(byte);
            continue;
        }
        std::unique_lock lock(m_mutex);
        if (m_interruptAt && Clock::now() >= *m_interruptAt) {
            m_interruptAt.reset();
            if (m_processor)
                m_processor->interruptPayment();
        }
        if (m_giveUpAt && Clock::now() >= *m_giveUpAt && m_processor)
            giveUp(
                u"the operation did not end within %1 s of the signal"_s.arg(giveUpAfter.count()));
    }
}

void SignalGuard::received(int signal)
{
    std::unique_lock lock(m_mutex);
    if (m_processor) {
        if (++m_signalsDuringOperation > 1)
            giveUp(u"%1 again: not waiting for the operation to end"_s.arg(signalName(signal)));
        m_stopSignal = signal;
        m_giveUpAt = Clock::now() + giveUpAfter;
        say(u"%1: asking the terminal to interrupt the operation and waiting up to %2 s for "
            u"its answer (%3 again to stop waiting)"_s.arg(signalName(signal))
                .arg(giveUpAfter.count())
                .arg(signalName(signal)));
        m_processor->interruptPayment();
        return;
    }
    if (m_mode == SingleCommand || m_stopSignal != 0) {
        say(u"%1: stopped"_s.arg(signalName(signal)));
        ::_exit(128 + signal);
    }
    m_stopSignal = signal;
    say(u"%1: the batch stops before its next line (%1 again to quit now)"_s.arg(
        signalName(signal)));
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(m_stopPipe[1], &byte, 1);
}

void SignalGuard::giveUp(const QString &why)
{
    const std::optional<ClientWatch::Client> client = m_watch.running();
    const QString directory =
        QFileInfo(client ? client->directory : m_directory).absoluteFilePath();
    QString report = why + u".\nposctl: the outcome of the operation is unknown: "_s;
    if (client)
        report += u"the payment client (process %1) is still running in %2, and the terminal "
                  u"may yet complete the payment."_s.arg(client->processId)
                      .arg(directory);
    else
        report += u"no payment client runs at this moment (the operation was between two "
                  u"runs of the client in %1)."_s.arg(directory);
    report += u"\nposctl: before you repeat the operation, check the terminal's screen or "
              u"print its last slip with: posctl --dir %1 copy"_s.arg(directory);
    say(report);
    ::_exit(outcomeUnknown);
}

SignalGuard::Operation::Operation(SignalGuard &guard, AbstractPaymentProcessing *processor,
                                  const QString &directory, std::optional<int> interruptAfterMs)
    : m_guard(guard)
{
    const std::lock_guard lock(m_guard.m_mutex);
    m_guard.m_processor = processor;
    m_guard.m_directory = directory;
    m_guard.m_signalsDuringOperation = 0;
    if (interruptAfterMs) {
        m_guard.m_interruptAt = Clock::now() + std::chrono::milliseconds(*interruptAfterMs);
        [[maybe_unused]] const ssize_t n = ::write(signalPipe[1], &wakeByte, 1);
    }
}

SignalGuard::Operation::~Operation()
{
    const std::lock_guard lock(m_guard.m_mutex);
    m_guard.m_processor = nullptr;
    m_guard.m_interruptAt.reset();
    m_guard.m_giveUpAt.reset();
}
