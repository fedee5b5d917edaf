// Running the payment client: command lines, failures, progress, pacing and interruption.

#include "processorfixture.h"
#include "runwatch.h"

#include <basicexception.h>
#include <externalprocessthread.h>
#include <hostinstance.h>
#include <processmonitor.h>
#include <session.h>

#include <QFile>
#include <QMutex>
#include <QRegularExpression>
#include <QTest>

#include <csignal>
#include <thread>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

void expectStartLine(const QString &directory, const QString &arguments)
{
    QTest::ignoreMessage(
        QtDebugMsg, qPrintable(u"Рабочий каталог: %1; аргументы: %2"_s.arg(directory, arguments)));
}

} // namespace

class tst_ClientRun : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void runFailures_data();
    void runFailures();
    void progress();
    void pacing_data();
    void pacing();
    void firstRunDoesNotWait();
    void interruption_data();
    void interruption();
};

void tst_ClientRun::runFailures_data()
{
    QTest::addColumn<QByteArray>("behaviour");
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("text");

    QTest::newRow("missing client") << QByteArray() << u"inpasPaymentProcessingStartError"_s
                                    << u"Не удалось запустить файл zelnorinpas"_s;
    // With a helper process of its own, which the time-out ends too.
    QTest::newRow("time-out")
        << QByteArray("sleep 60 & echo $! > \"$R/helper\"; wait")
        << u"inpasPaymentProcessingTimeoutError"_s
        << u"Истекло время ожидания операции. Процесс принудительно завершен"_s;
    QTest::newRow("crash") << QByteArray("kill -ABRT $$") << u"inpasPaymentProcessingError"_s
                           << u"Ошибка процесса оплаты"_s;
    QTest::newRow("non-zero exit")
        << QByteArray("echo '{}'; printf 'Нет связи с пин-падом\\n' >&2; exit 1") << u"undefined"_s
        << u"Нет связи с пин-падом\n"_s;
    QTest::newRow("non-zero exit, silent") << QByteArray("exit 7") << u"undefined"_s << u""_s;
}

// Each failure of the run is thrown by executeCommand and comes back from
// waitAndExecuteOperation as an answer with status -1 and the same message.
void tst_ClientRun::runFailures()
{
    QFETCH(QByteArray, behaviour);
    QFETCH(QString, id);
    QFETCH(QString, text);
    ProcessorFixture f;
    if (behaviour.isEmpty())
        f.client.removeClient();
    else
        f.client.setBehaviour(behaviour);
    expectStartLine(f.client.directory(), u"4"_s);
    // The time-out's run has time enough to start its helper on a busy machine.
    const bool timeout = QByteArray(QTest::currentDataTag()) == "time-out";
    try {
        f.processor->executeCommand(4, {}, timeout ? 3s : 60s);
        QFAIL("no exception");
    } catch (const BasicException &e) {
        QCOMPARE(e.tr().id(), id);
        QCOMPARE(e.tr().ru(), text);
    }

    if (timeout) {
        const pid_t helper = pid_t(f.client.record(u"helper"_s).toInt());
        QVERIFY(helper > 0);
        QTRY_VERIFY_WITH_TIMEOUT(!FakeClient::isRunning(helper), 30000);
        return; // the operations' own time-out is five minutes
    }
    expectStartLine(f.client.directory(), u"15"_s);
    bool retry = true;
    const PaymentProcessingAnswer answer = f.processor->waitAndExecuteOperation(15, {}, &retry);
    QCOMPARE(answer.status, -1);
    QCOMPARE(answer.result, 1);
    QCOMPARE(answer.message.id(), id);
    QCOMPARE(answer.message.ru(), text);
    QVERIFY(!retry);
    QVERIFY(answer.slips.isEmpty());
}

// The indicator counts up from 1 while the client runs and ends at 100. The client runs until
// the test has seen three steps, however slowly a busy machine starts it.
void tst_ClientRun::progress()
{
    ProcessorFixture f;
    f.client.setBehaviour("while [ ! -e go ]; do sleep 0.02; done; echo '{}'");
    const QString go = f.client.directory() + u"/go"_s;
    QMutex mutex;
    QList<int> seen;
    ProgressIndicator *indicator = hostInstance<Session>().progress();
    const auto connection = connect(
        indicator, &ProgressIndicator::valueChanged, indicator,
        [&](int value) {
            const QMutexLocker lock(&mutex);
            seen.append(value);
            if (value == 3)
                QFile(go).open(QIODevice::WriteOnly);
        },
        Qt::DirectConnection);
    ProcessorFixture::expectRun(f.client.directory(), {u"11"_s}, "{}");
    f.processor->executeCommand(11, {}, 60s);
    disconnect(connection);
    QVERIFY2(seen.size() >= 5, qPrintable(QString::number(seen.size())));
    QCOMPARE(seen.first(), 0);
    QCOMPARE(seen.last(), 100);
    for (qsizetype i = 1; i + 1 < seen.size(); ++i)
        QCOMPARE(seen.at(i), int(i));
}

void tst_ClientRun::pacing_data()
{
    QTest::addColumn<QByteArray>("firstRun");
    QTest::newRow("after an answer") << QByteArray(R"(echo '{"Status":1}')");
    QTest::newRow("after a failed run") << QByteArray("exit 1");
}

// The next client starts no sooner than the interval after the previous run was stamped,
// whether that run answered or failed. The stamp comes after the runner saw the run end, so
// the pause is measured from there, by the host's runner, never by a clock inside the client.
// Every operation gives its client five minutes.
void tst_ClientRun::pacing()
{
    QFETCH(QByteArray, firstRun);
    ProcessorFixture f("[Client]\nintervalBetweenOperations=1\n");
    // A run long enough to tell a pause from its end from one from its start.
    f.client.setBehaviour("if [ $n = 1 ]; then sleep 0.5; " + firstRun +
                          "; fi; echo '{\"Status\":1}'");
    const QuietLog quiet;
    const RunWatch watch;
    f.processor->waitAndExecuteOperation(15, {}, nullptr);
    f.processor->waitAndExecuteOperation(15, {}, nullptr);
    const QList<RunWatch::Run> runs = watch.runs();
    QCOMPARE(runs.size(), 2);
    QCOMPARE(runs.at(0).timeout, std::chrono::minutes(5));
    QCOMPARE(runs.at(1).timeout, std::chrono::minutes(5));
    const auto pause = runs.at(1).started - *runs.at(0).finished;
    QVERIFY2(pause >= 1s,
             qPrintable(u"%1 ms after the end"_s.arg(
                 std::chrono::duration_cast<std::chrono::milliseconds>(pause).count())));
}

// The first run of a processor does not wait: with an interval of a minute, a first client that
// waited would start a minute late, which no busy machine explains.
void tst_ClientRun::firstRunDoesNotWait()
{
    ProcessorFixture f("[Client]\nintervalBetweenOperations=60\n");
    const QuietLog quiet;
    const RunWatch watch;
    const auto called = RunWatch::Clock::now();
    f.processor->waitAndExecuteOperation(15, {}, nullptr);
    QCOMPARE(watch.runs().size(), 1);
    QVERIFY(watch.runs().at(0).started - called < 30s);
}

void tst_ClientRun::interruption_data()
{
    QTest::addColumn<QString>("operations");
    QTest::addColumn<int>("quickRuns"); // runs that answer at once; later ones wait for SIGINT
    QTest::addColumn<QByteArray>("quickAnswer");
    // When the cashier interrupts: "ready" once the first client has set up its handling of
    // SIGINT, "ended" once the host's runner has seen the first client end (the operation is then
    // between two clients, or past its only one), "never", or "before" any operation.
    QTest::addColumn<QString>("interrupt");
    QTest::addColumn<int>("runs");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("kept"); // delivered to the next client once it has run a while
    QTest::newRow("while the client runs")
        << u"sale"_s << 0 << QByteArray() << u"ready"_s << 1 << 53 << false;
    QTest::newRow("in the pause before a status query")
        << u"sbp"_s << 1 << QByteArray(R"({"Status":0})") << u"ended"_s << 2 << 53 << true;
    // Kept after the first sale's client ended: gone with the first sale, or kept in the second
    // sale's pause and never due since its client ends at once, and gone with that sale. Either
    // way the third sale's client is not signalled.
    QTest::newRow("not past the end of its operation")
        << u"three sales"_s << 2 << QByteArray(R"({"Status":1})") << u"ended"_s << 3 << 1 << false;
    QTest::newRow("with no operation in progress, nothing is kept")
        << u"sale"_s << 0 << QByteArray() << u"before"_s << 1 << 1 << false;
}

// An interrupt reaches the operation's running client, or its next one after a pause, and
// never a later operation or any other process (QTest fails a test that receives SIGINT).
void tst_ClientRun::interruption()
{
    QFETCH(QString, operations);
    QFETCH(int, quickRuns);
    QFETCH(QByteArray, quickAnswer);
    QFETCH(QString, interrupt);
    ProcessorFixture f("[Client]\nintervalBetweenOperations=1\n");
    f.client.setBehaviour("trap 'date +%s.%N > \"$R/interrupted.$n\"; echo {\\\"Status\\\":53}; "
                          "exit 0' INT\n"
                          "touch \"$R/ready.$n\"\n"
                          "if [ $n -le " +
                          QByteArray::number(quickRuns) + " ]; then echo '" + quickAnswer +
                          "'; exit 0; fi\n"
                          "sleep 1 & wait\n"
                          "echo '{\"Status\":1}'");
    const QuietLog quiet;
    const RunWatch watch;
    PaymentProcessingRequest request;
    request.type = PaymentProcessingRequest::Sale;

    if (interrupt == "before"_L1)
        f.processor->interruptPayment();
    std::thread cashier([&] {
        if (interrupt == "ready"_L1)
            f.client.waitForRecord(u"ready.1"_s);
        else if (interrupt == "ended"_L1)
            watch.waitForEnded(1);
        else
            return;
        f.processor->interruptPayment();
    });
    PaymentProcessingAnswer answer;
    if (operations == "sbp"_L1) {
        answer = f.processor->paymentByQRCodeOnPinPad(request);
    } else {
        const int sales = operations == "sale"_L1 ? 1 : 3;
        for (int i = 0; i < sales; ++i)
            answer = f.processor->payment(request);
    }
    cashier.join();
    QTEST(f.client.runCount(), "runs");
    QTEST(answer.status, "status");
    QFETCH(bool, kept);
    if (kept) {
        // Not before the client has run for the delay, as the host's runner started it.
        const int run = f.client.runCount();
        const double after = f.client.record(u"interrupted.%1"_s.arg(run)).toDouble() -
                             watch.runs().at(run - 1).startedWall;
        QVERIFY2(after >= 0.5 - 0.002, qPrintable(QString::number(after)));
    }
}

QTEST_GUILESS_MAIN(tst_ClientRun)
#include "tst_clientrun.moc"
