// The plumbing of signals: while the pipe exists a signal is a byte on it and nothing else;
// once it is gone, every signal has the handler it had before.

#include <signalpipe.h>

#include <QScopeGuard>
#include <QTest>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

std::atomic<int> handled{0};

void ownHandler(int signal)
{
    handled = signal;
}

} // namespace

class tst_SignalPipe : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalsOnThePipeThenHandlersRestored();
    void burstNeverBlocksTheHandler();
    void ownSignals_data();
    void ownSignals();
    void signalsSentByOthers();
    void handlersStayWhenAskedTo();
};

void tst_SignalPipe::signalsOnThePipeThenHandlersRestored()
{
    struct sigaction own = {};
    own.sa_handler = &ownHandler;
    sigemptyset(&own.sa_mask);
    struct sigaction before = {};
    ::sigaction(SIGUSR1, &own, &before);
    {
        SignalPipe pipe({SIGUSR1, SIGUSR2});
        QVERIFY(pipe.isValid());
        ::raise(SIGUSR1);
        ::raise(SIGUSR2);
        QCOMPARE(pipe.next(1s), SIGUSR1);
        QCOMPARE(pipe.next(1s), SIGUSR2);
        pipe.wake();
        QCOMPARE(pipe.next(1s), SignalPipe::wokenUp);
        QCOMPARE(pipe.next(10ms), 0);
        QCOMPARE(handled.load(), 0);
    }
    ::raise(SIGUSR1);
    QCOMPARE(handled.load(), SIGUSR1);
    struct sigaction usr2 = {};
    ::sigaction(SIGUSR2, nullptr, &usr2);
    QVERIFY(usr2.sa_handler == SIG_DFL);
    ::sigaction(SIGUSR1, &before, nullptr);
}

// More signals than the pipe holds, none of them read: the handler drops what does not fit
// and returns, and what was kept is still there to be read. In a child, so that a handler that
// blocks is a child that does not end.
void tst_SignalPipe::burstNeverBlocksTheHandler()
{
    const pid_t child = ::fork();
    if (child == 0) {
        SignalPipe pipe({SIGUSR1});
        for (int i = 0; i < 200000; ++i)
            ::raise(SIGUSR1);
        ::_exit(pipe.next(0ms) == SIGUSR1 ? 0 : 1);
    }
    QVERIFY(child > 0);
    int status = -1;
    bool reaped = false;
    const auto ended = [&] {
        reaped = reaped || ::waitpid(child, &status, WNOHANG) == child;
        return reaped;
    };
    const auto end = qScopeGuard([&] {
        if (!reaped) {
            ::kill(child, SIGKILL);
            ::waitpid(child, nullptr, 0);
        }
    });
    QTRY_VERIFY_WITH_TIMEOUT(ended(), 30000);
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), 0);
}

namespace {

// The wait status of a child that runs body and then exits with 0.
int inChild(const std::function<void()> &body)
{
    const pid_t child = ::fork();
    if (child == 0) {
        body();
        ::_exit(0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return status;
}

} // namespace

void tst_SignalPipe::ownSignals_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<bool>("ends"); // the process ends by it; else it is dropped
    QTest::newRow("SIGSEGV") << SIGSEGV << true;
    QTest::newRow("SIGABRT") << SIGABRT << true;
    QTest::newRow("SIGFPE") << SIGFPE << true;
    QTest::newRow("SIGXFSZ") << SIGXFSZ << false;
    QTest::newRow("SIGPIPE") << SIGPIPE << false;
}

// A signal of the process's own making: a fault ends it as by default, whoever handles every
// signal; a write past a limit or to a closed pipe is dropped, so that the write fails instead.
void tst_SignalPipe::ownSignals()
{
    QFETCH(int, signal);
    QFETCH(bool, ends);
    const int status = inChild([signal] {
        SignalPipe pipe(SignalPipe::endingSignals(), SignalPipe::Restore::Never);
        ::raise(signal);
        ::_exit(pipe.next(0ms) == 0 ? 0 : 1);
    });
    if (ends) {
        QVERIFY(WIFSIGNALED(status));
        QCOMPARE(WTERMSIG(status), signal);
    } else {
        QVERIFY(WIFEXITED(status));
        QCOMPARE(WEXITSTATUS(status), 0);
    }
}

// Sent by another process, every signal that would end the process is a byte on the pipe, the
// faults' names among them.
void tst_SignalPipe::signalsSentByOthers()
{
    const std::vector<int> all = SignalPipe::endingSignals();
    for (const int expected : {SIGSEGV, SIGPWR, SIGXFSZ, SIGSYS, SIGRTMIN, SIGRTMAX})
        QVERIFY(std::find(all.begin(), all.end(), expected) != all.end());
    SignalPipe pipe({SIGSEGV, SIGPWR, SIGRTMAX});
    for (const int signal : {SIGSEGV, SIGPWR, SIGRTMAX}) {
        const int status = inChild([signal] { ::kill(::getppid(), signal); });
        QCOMPARE(status, 0);
        QCOMPARE(pipe.next(5s), signal);
    }
}

// Asked to keep them, the pipe leaves its handlers in place past its end, so that a signal on a
// process's way out never finds the default action.
void tst_SignalPipe::handlersStayWhenAskedTo()
{
    const int status = inChild([] {
        {
            const SignalPipe pipe({SIGTERM}, SignalPipe::Restore::Never);
        }
        ::kill(::getpid(), SIGTERM);
    });
    QVERIFY(WIFEXITED(status));
}

QTEST_GUILESS_MAIN(tst_SignalPipe)
#include "tst_signalpipe.moc"
