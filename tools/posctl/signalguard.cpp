#include "signalguard.h"

#include "exitstatus.h"

#include "clientwatch.h"

#include <signalpipe.h>

#include <QFileInfo>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

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

// Whether a child of ours has ended, without reaping it: the runner that started it will.
bool hasEnded(qint64 processId)
{
    siginfo_t info{};
    return ::waitid(P_PID, id_t(processId), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid != 0;
}

} // namespace

SignalGuard::SignalGuard(SignalPipe &pipe, ClientWatch &clients, Mode mode)
    : m_pipe(pipe)
    , m_watch(clients)
    , m_mode(mode)
    , m_giveUpAfter(giveUpAfter())
{
    if (::pipe2(m_stopPipe, O_CLOEXEC) != 0)
        m_stopPipe[0] = m_stopPipe[1] = -1;
    m_watcher = std::thread([this] { watch(); });
}

SignalGuard::~SignalGuard()
{
    m_quit = true;
    m_pipe.wake();
    m_watcher.join();
    for (int fd : m_stopPipe)
        if (fd >= 0)
            ::close(fd);
}

std::chrono::milliseconds SignalGuard::giveUpAfter()
{
    bool ok = false;
    const int ms = qEnvironmentVariableIntValue("POSCTL_GIVE_UP_MS", &ok);
    return ok && ms >= 0 ? std::chrono::milliseconds(ms) : defaultGiveUpAfter;
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
    while (!m_quit) {
        std::chrono::milliseconds timeout{-1};
        {
            const std::lock_guard lock(m_mutex);
            for (const auto &due : {m_interruptAt, m_giveUpAt}) {
                if (!due)
                    continue;
                const auto left =
                    std::max(std::chrono::milliseconds(0),
                             std::chrono::ceil<std::chrono::milliseconds>(*due - Clock::now()));
                timeout = timeout.count() < 0 ? left : std::min(timeout, left);
            }
            // A client may start while a second signal waits for an answer: look often.
            if (m_secondSignalWaits)
                timeout = std::min(timeout.count() < 0 ? timeout.max() : timeout,
                                   std::chrono::milliseconds(50));
        }
        const int signal = m_pipe.next(timeout);
        if (m_quit)
            return;
        if (signal > 0)
            received(signal);

        std::unique_lock lock(m_mutex);
        if (m_interruptAt && Clock::now() >= *m_interruptAt) {
            m_interruptAt.reset();
            if (m_processor)
                interrupt();
        }
        if (m_phase != Phase::Running)
            continue;
        if (m_secondSignalWaits && !answerOnItsWay())
            giveUp(u"a client runs again after the second signal"_s);
        if (m_giveUpAt && Clock::now() >= *m_giveUpAt)
            giveUp(m_secondSignalWaits
                       ? u"no answer within %1 s of the second signal"_s.arg(answerGrace.count())
                       : u"the operation did not end within %1 s of the signal"_s.arg(
                             double(m_giveUpAfter.count()) / 1000.0));
    }
}

// Whether the operation's client has ended, so that its answer is on its way: the client
// published as running has ended unseen (posctl was stopped, say), or one has run and none
// runs now.
bool SignalGuard::answerOnItsWay() const
{
    if (const std::optional<ClientWatch::Client> client = m_watch.running())
        return hasEnded(client->processId);
    return m_watch.runsInOperation() > 0;
}

void SignalGuard::received(int signal)
{
    std::unique_lock lock(m_mutex);
    switch (m_phase) {
    case Phase::Idle:
        if (m_mode == SingleCommand || m_stopSignal != 0) {
            say(u"%1: stopped"_s.arg(signalName(signal)));
            ::_exit(ExitStatus::SignalBase + signal);
        }
        m_stopSignal = signal;
        say(u"%1: the batch stops before its next line (%1 again to quit now)"_s.arg(
            signalName(signal)));
        if (m_stopPipe[1] >= 0) {
            const char byte = 1;
            [[maybe_unused]] const ssize_t n = ::write(m_stopPipe[1], &byte, 1);
        }
        return;
    case Phase::Written:
        ::_exit(m_exitCode);
    case Phase::Running:
    case Phase::Answered:
        break;
    }

    const bool first = m_signalsDuringOperation == 0;
    if (!first && signal == SIGPIPE)
        return;
    ++m_signalsDuringOperation;
    m_stopSignal = signal;
    if (m_phase == Phase::Answered) {
        if (first)
            say(u"%1: the terminal has answered; posctl stops once the answer is written"_s.arg(
                signalName(signal)));
        else
            answerLost(u"%1 again while the answer was being written"_s.arg(signalName(signal)),
                       m_gist);
        return;
    }
    if (first) {
        // The terminal is told first: a message to a closed output must not come before it.
        interrupt();
        m_giveUpAt = Clock::now() + m_giveUpAfter;
        say(u"%1: asking the terminal to interrupt the operation and waiting up to %2 s for "
            u"its answer (%3 again to stop waiting)"_s.arg(signalName(signal))
                .arg(double(m_giveUpAfter.count()) / 1000.0)
                .arg(signalName(signal)));
        return;
    }
    if (!answerOnItsWay())
        giveUp(u"%1 again: not waiting for the operation to end"_s.arg(signalName(signal)));
    m_secondSignalWaits = true;
    const Clock::time_point grace = Clock::now() + answerGrace;
    m_giveUpAt = m_giveUpAt ? std::min(*m_giveUpAt, grace) : grace;
    say(u"%1 again: the payment client has ended; waiting up to %2 s for its answer"_s
            .arg(signalName(signal))
            .arg(answerGrace.count()));
}

void SignalGuard::interrupt()
{
    if (!m_interruptAsked)
        m_interruptAsked = Clock::now();
    m_processor->interruptPayment();
}

void SignalGuard::giveUp(const QString &why)
{
    const std::optional<ClientWatch::Client> client = m_watch.stopStarting();
    // The processor kept the interrupt for this client, which may not have had it yet.
    const bool told = client && m_interruptAsked && client->started >= *m_interruptAsked;
    if (told)
        ::kill(pid_t(client->processId), SIGINT);
    const QString directory =
        QFileInfo(client ? client->directory : m_directory).absoluteFilePath();
    QString report = why + u".\nposctl: the outcome of the operation is unknown: "_s;
    if (client)
        report +=
            u"the payment client (process %1) is still running in %2%3, and the terminal "
            u"may yet complete the payment."_s.arg(client->processId)
                .arg(directory, told ? u" (posctl has just asked it to interrupt)"_s : QString());
    else
        report += u"no payment client runs at this moment (the operation was between two "
                  u"runs of the client in %1)."_s.arg(directory);
    report += u"\nposctl: before you repeat the operation, check the terminal's screen or "
              u"print its last slip with: posctl --dir %1 copy"_s.arg(directory);
    say(report);
    ::_exit(ExitStatus::UnknownOutcome);
}

void SignalGuard::answerLost(const QString &why, const QString &gist)
{
    say(u"%1; the terminal's answer was not written out. It was: %2"_s.arg(why, gist));
    ::_exit(ExitStatus::UnknownOutcome);
}

SignalGuard::Operation::Operation(SignalGuard &guard, AbstractPaymentProcessing *processor,
                                  const QString &directory, std::optional<int> interruptAfterMs)
    : m_guard(guard)
{
    const std::lock_guard lock(m_guard.m_mutex);
    m_guard.m_phase = Phase::Running;
    m_guard.m_processor = processor;
    m_guard.m_directory = directory;
    m_guard.m_signalsDuringOperation = 0;
    m_guard.m_secondSignalWaits = false;
    m_guard.m_interruptAsked.reset();
    if (interruptAfterMs) {
        m_guard.m_interruptAt = Clock::now() + std::chrono::milliseconds(*interruptAfterMs);
        m_guard.m_pipe.wake();
    }
}

void SignalGuard::Operation::answered(const QString &gist, int exitCode)
{
    const std::lock_guard lock(m_guard.m_mutex);
    m_guard.m_phase = Phase::Answered;
    m_guard.m_gist = gist;
    m_guard.m_exitCode = exitCode;
    m_guard.m_processor = nullptr;
    m_guard.m_interruptAt.reset();
    m_guard.m_giveUpAt.reset();
    m_guard.m_secondSignalWaits = false;
}

SignalGuard::Operation::~Operation()
{
    const std::lock_guard lock(m_guard.m_mutex);
    // A single command ends with its answer's status; a batch after a signal stops here.
    m_guard.m_phase = m_guard.m_mode == SingleCommand ? Phase::Written : Phase::Idle;
    m_guard.m_processor = nullptr;
    m_guard.m_interruptAt.reset();
    m_guard.m_giveUpAt.reset();
    m_guard.m_secondSignalWaits = false;
}
