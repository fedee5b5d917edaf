// The plumbing of signals: while the pipe exists a signal is a byte on it and nothing else;
// once it is gone, every signal has the handler it had before.

#include <signalpipe.h>

#include <QTest>

#include <atomic>
#include <csignal>

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

QTEST_APPLESS_MAIN(tst_SignalPipe)
#include "tst_signalpipe.moc"
