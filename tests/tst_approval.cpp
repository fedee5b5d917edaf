// No approval lost between the terminal's answer and the till: a signal, a kill or a lost power
// at each moment of a sale, with the recorder on and off, and what the caller and check then
// see. Every moment is aimed by what shows it has come, never by a sleep.

#include "fakeclient.h"
#include "programrun.h"
#include "till.h"
#include "words.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace Qt::Literals::StringLiterals;

namespace {

const QByteArray fastConfig = "[Client]\nintervalBetweenOperations=0\n";
const QByteArray approval = R"({"Status":1,"TextResponse":"ОДОБРЕНО","ReferenceNumber":)"
                            R"("000000000042","AuthorizationCode":"777777"})";

// A card read that waits for "go", an approval, and an end that waits for "end"; an interrupt
// during the card read is answered with 53.
QByteArray terminal()
{
    return "trap 'echo {\\\"Status\\\":53}; exit 0' INT\n"
           "touch \"$R/ready.$n\"\n"
           "while [ ! -e \"$R/go\" ]; do sleep 0.02; done\n"
           "trap - INT\n"
           "echo '" +
           approval +
           "'\n"
           "touch \"$R/printed.$n\"\n"
           "while [ ! -e \"$R/end\" ]; do sleep 0.02; done\n";
}

ProgramRun posctl(const QString &directory, const QStringList &arguments)
{
    return ProgramRun::run(QStringLiteral(POSCTL_PATH),
                           QStringList{u"--dir"_s, directory} + arguments);
}

qint64 parentOf(qint64 pid)
{
    QFile stat(u"/proc/%1/stat"_s.arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray text = stat.readAll();
    return text.mid(text.lastIndexOf(')') + 2).split(' ').value(1).toLongLong();
}

} // namespace

class tst_Approval : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void moments_data();
    void moments();
    void giveUpTellsTheClientThatKeptTheInterrupt();
    void batchStopsAfterAnUnknownOutcome();
    void noAnswerWrittenIntoADescriptorOfPosctlsOwn();
    void recordingOutlivesItsScribe_data();
    void recordingOutlivesItsScribe();
    void recorderSwitchedUnderAStreamOfSales();
    void recorderSwitchNeverLeavesNoClient_data();
    void recorderSwitchNeverLeavesNoClient();
};

void tst_Approval::moments_data()
{
    QTest::addColumn<bool>("recorder");
    // "reading": the card is being read; "printed": the client has printed the approval and not
    // ended yet; "held": posctl has the answer and has not written it; "written": posctl has
    // written it and not yet told the recorder; "answered": all done.
    QTest::addColumn<QString>("moment");
    QTest::addColumn<QString>("target"); // posctl, client, recorder, or all of them
    QTest::addColumn<QList<int>>("signalsSent");
    QTest::addColumn<int>("exitCode"); // -1: posctl was killed
    // "delivered": the caller has the approval and check is silent; "interrupted": the caller
    // has the terminal's answer to the interrupt; "named": check names the run; "unknown": exit 4
    // with the answer's gist, and check names the run where it records.
    QTest::addColumn<QString>("outcome");
    const auto row = [](const char *name, bool recorder, const char *moment, const char *target,
                        const QList<int> &signalsSent, int exitCode, const char *outcome) {
        QTest::newRow(name) << recorder << QString::fromLatin1(moment)
                            << QString::fromLatin1(target) << signalsSent << exitCode
                            << QString::fromLatin1(outcome);
    };
    row("answered and acknowledged", true, "answered", "posctl", {}, 0, "delivered");
    row("posctl killed during the card read", true, "reading", "posctl", {SIGKILL}, -1, "named");
    row("posctl killed holding the approval", true, "held", "posctl", {SIGKILL}, -1, "named");
    row("posctl stopped, then killed", true, "held", "posctl", {SIGSTOP, SIGKILL}, -1, "named");
    row("posctl killed before it tells the recorder", true, "written", "posctl", {SIGKILL}, -1,
        "named");
    row("a signal after the answer was written", true, "written", "posctl", {SIGTERM}, 0,
        "delivered");
    row("power lost as the terminal approves", true, "printed", "all", {SIGKILL}, -1, "named");
    row("the client ended by a signal after it approved", true, "printed", "client", {SIGTERM}, 4,
        "unknown");
    row("the same without the recorder", false, "printed", "client", {SIGTERM}, 4, "unknown");
    row("the recorder ended by a signal after the approval", true, "printed", "recorder", {SIGTERM},
        4, "unknown");
    row("the recorder killed during the card read", true, "reading", "recorder", {SIGKILL}, 4,
        "unknown");
    // Signals that end a process by default, whichever: each asks for the interrupt.
    for (const int signal : {SIGPWR, SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF, SIGIO, SIGSYS, SIGSTKFLT,
                             SIGRTMIN + 3, SIGRTMAX, SIGSEGV}) {
        const QByteArray name = "SIG" +
                                QByteArray(::sigabbrev_np(signal) ? ::sigabbrev_np(signal) : "RT") +
                                "/" + QByteArray::number(signal) + " during the card read";
        row(name.constData(), false, "reading", "posctl", {signal}, 1, "interrupted");
    }
}

void tst_Approval::moments()
{
    QFETCH(bool, recorder);
    QFETCH(QString, moment);
    QFETCH(QString, target);
    QFETCH(QList<int>, signalsSent);
    FakeClient fake;
    fake.setConfig(fastConfig);
    fake.setBehaviour(terminal());
    if (recorder)
        QCOMPARE(posctl(fake.directory(), words("recorder on")).exitCode, 0);

    QTemporaryDir holds;
    const QString held = holds.filePath(moment);
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (moment == "held"_L1)
        environment.insert(u"POSCTL_HOLD_ANSWER"_s, held);
    if (moment == "written"_L1)
        environment.insert(u"POSCTL_HOLD_ACKNOWLEDGEMENT"_s, held);
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(POSCTL_PATH),
                  QStringList{u"--json"_s, u"--dir"_s, fake.directory(), u"sale"_s, u"1000"_s});
    if (moment != "reading"_L1)
        fake.mark(u"go"_s);
    if (moment != "reading"_L1 && moment != "printed"_L1)
        fake.mark(u"end"_s);
    if (moment == "reading"_L1)
        QVERIFY(fake.waitForRecord(u"ready.1"_s));
    else if (moment == "printed"_L1)
        QVERIFY(fake.waitForRecord(u"printed.1"_s));
    else if (moment != "answered"_L1)
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(held), 30000);

    const qint64 client = fake.processId(1);
    QList<qint64> targets;
    if (target == "posctl"_L1 || target == "all"_L1)
        targets.append(process.processId());
    if (target == "client"_L1 || target == "all"_L1)
        targets.append(client);
    if ((target == "recorder"_L1 || target == "all"_L1) && recorder)
        targets.append(parentOf(client));
    for (const int signal : signalsSent)
        for (const qint64 pid : targets)
            QCOMPARE(::kill(pid_t(pid), signal), 0);
    QFile::remove(held);
    QVERIFY(process.waitForFinished(60000));
    // Then a client that is still at the terminal goes on to its end: one that posctl no longer
    // waits for approves unseen.
    fake.mark(u"go"_s);
    fake.mark(u"end"_s);
    const int ended = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    const QByteArray out = process.readAllStandardOutput();
    const QByteArray err = process.readAllStandardError();
    QFETCH(int, exitCode);
    QVERIFY2(ended == exitCode, QByteArray(QByteArray::number(ended) + ": " + err).constData());

    QFETCH(QString, outcome);
    if (outcome == "delivered"_L1)
        QVERIFY2(out.contains("\"referenceNumber\":\"000000000042\""), out.constData());
    if (outcome == "interrupted"_L1)
        QVERIFY2(out.contains("\"status\":53"), out.constData());
    if (outcome == "unknown"_L1)
        QVERIFY2(err.contains("outcome is unknown") && err.contains("posctl --dir"),
                 err.constData());
    if (!recorder)
        return;
    // What check says once the recording has settled: the run named, or nothing at all.
    const auto findings = [&] {
        const ProgramRun check = posctl(fake.directory(), {u"check"_s});
        return QString::fromUtf8(check.out).split(u'\n').filter(u"problem: "_s).join(u'\n');
    };
    if (outcome == "delivered"_L1) {
        QTRY_COMPARE_WITH_TIMEOUT(findings(), QString(), 30000);
    } else {
        QTRY_VERIFY_WITH_TIMEOUT(findings().contains(u"an approval never reached the host: "_s) ||
                                     findings().contains(u"a run's outcome is unknown: "_s),
                                 30000);
    }
}

// Giving up on a second Ctrl+C, posctl leaves no client that was never told to stop: the
// interrupt the plug-in kept for the next client of an SBP payment reaches the one that has just
// started.
void tst_Approval::giveUpTellsTheClientThatKeptTheInterrupt()
{
    FakeClient fake;
    fake.setConfig("[Client]\nintervalBetweenOperations=1\n");
    fake.setBehaviour("trap 'touch \"$R/interrupted.$n\"; echo {\\\"Status\\\":53}; exit 0' INT\n"
                      "if [ $n = 1 ]; then echo '{\"Status\":0}'; exit 0; fi\n"
                      "touch \"$R/ready.$n\"\nsleep 60 & wait\n");
    QProcess process;
    process.start(QStringLiteral(POSCTL_PATH),
                  QStringList{u"--dir"_s, fake.directory(), u"sbp-pay"_s, u"1000"_s});
    QVERIFY(fake.waitForRecord(u"pid.1"_s));
    QTRY_VERIFY_WITH_TIMEOUT(!FakeClient::isRunning(fake.processId(1)), 30000);
    ::kill(pid_t(process.processId()), SIGINT); // between the two clients: kept
    QVERIFY(fake.waitForRecord(u"ready.2"_s));
    ::kill(pid_t(process.processId()), SIGINT);
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitCode(), 4);
    QVERIFY(fake.waitForRecord(u"interrupted.2"_s));
    QVERIFY(process.readAllStandardError().contains("posctl has just asked it to interrupt"));
}

// A batch runs no line after one whose outcome is unknown: it might take a payment again that
// the terminal has made.
void tst_Approval::batchStopsAfterAnUnknownOutcome()
{
    FakeClient fake;
    fake.setConfig(fastConfig);
    fake.setBehaviour("if [ $n = 1 ]; then echo '" + approval + "'; kill -TERM $$; fi\necho '" +
                      approval + "'");
    const ProgramRun run =
        ProgramRun::run(QStringLiteral(POSCTL_PATH), {u"--dir"_s, fake.directory(), u"batch"_s}, {},
                        "sale 1000\nsale 1000\n");
    QCOMPARE(run.exitCode, 4);
    QCOMPARE(run.out.count('\n'), 1);
    QCOMPARE(fake.runCount(), 1);
    QVERIFY2(run.err.contains("the batch stopped after line 1 because its outcome is unknown; "
                              "these did not run: line 2 \"sale 1000\""),
             run.err.constData());
}

// Started with its standard output (and input) closed, posctl never takes their numbers for
// anything of its own: it refuses to run a client, saying so where it can, and runs none.
void tst_Approval::noAnswerWrittenIntoADescriptorOfPosctlsOwn()
{
    FakeClient fake;
    fake.setConfig(fastConfig);
    fake.setAnswer(approval);
    const ProgramRun run = ProgramRun::run(u"bash"_s, {u"-c"_s, u"exec \"$@\" <&- >&-"_s, u"-"_s,
                                                       QStringLiteral(POSCTL_PATH), u"--dir"_s,
                                                       fake.directory(), u"sale"_s, u"1000"_s});
    QCOMPARE(run.exitCode, 2);
    QVERIFY2(run.err.contains("standard output is closed"), run.err.constData());
    QCOMPARE(fake.runCount(), 0);
}

void tst_Approval::recordingOutlivesItsScribe_data()
{
    QTest::addColumn<QByteArray>("client");
    QTest::addColumn<bool>("scribe");     // the scribe is there to start
    QTest::addColumn<QString>("finding"); // what check says of the run, beside the scribe itself
    QTest::newRow("no scribe to start")
        << QByteArray("echo '" + approval + "'") << false
        << u"the recorder's scribe did not keep what the client wrote"_s;
    QTest::newRow("a client that signals its own group on its way out")
        << QByteArray("trap '' TERM; echo '" + approval + "'; kill -TERM 0") << true << QString();
}

// What the recorder itself knows of a run is kept whatever becomes of its scribe: a run the host
// took is never read as one whose outcome is unknown because the outputs are missing.
void tst_Approval::recordingOutlivesItsScribe()
{
    QFETCH(QByteArray, client);
    QFETCH(bool, scribe);
    FakeClient fake;
    fake.setConfig(fastConfig);
    fake.setBehaviour(client);
    QCOMPARE(posctl(fake.directory(), words("recorder on")).exitCode, 0);
    if (!scribe)
        QVERIFY(QFile::remove(QDir(fake.directory()).filePath(u"zelnorinpas-scribe"_s)));
    const ProgramRun sale = posctl(fake.directory(), words("--json sale 1000"));
    QCOMPARE(sale.exitCode, 0);
    QFETCH(QString, finding);
    const auto check = [&] {
        return QString::fromUtf8(posctl(fake.directory(), {u"check"_s}).out);
    };
    QTRY_VERIFY_WITH_TIMEOUT(
        finding.isEmpty() ? !check().contains(u"problem:"_s) : check().contains(finding), 30000);
    const QString out = check();
    QVERIFY2(!out.contains(u"outcome is unknown"_s) && !out.contains(u"never reached"_s),
             qPrintable(out));
}

// The recorder switched on and off again and again while sales run back to back: every sale
// runs the client or the recorder in front of it, none finds nothing to run.
void tst_Approval::recorderSwitchedUnderAStreamOfSales()
{
    // A program client: a script is read again by name after the kernel has started it, which
    // no rename can make atomic (docs/recorder.md).
    const Till till(0);
    QByteArray sales;
    for (int i = 0; i < 60; ++i)
        sales += "balance\n";
    QProcess batch;
    batch.start(QStringLiteral(POSCTL_PATH), {u"--dir"_s, till.directory(), u"batch"_s});
    batch.write(sales);
    batch.closeWriteChannel();
    int switched = 0;
    while (batch.state() != QProcess::NotRunning) {
        switched += posctl(till.directory(), words("recorder on")).exitCode == 0;
        switched += posctl(till.directory(), words("recorder off")).exitCode == 0;
        batch.waitForFinished(1);
    }
    const QList<QByteArray> answers = batch.readAllStandardOutput().trimmed().split('\n');
    QCOMPARE(answers.size(), 60);
    for (const QByteArray &answer : answers)
        QVERIFY2(answer.contains("\"result\":0"), answer.constData());
    QCOMPARE(batch.exitCode(), 0);
    QVERIFY2(switched > 0, "the recorder was never switched while the sales ran");
}

void tst_Approval::recorderSwitchNeverLeavesNoClient_data()
{
    QTest::addColumn<QString>("onOrOff");
    QTest::newRow("on") << u"on"_s;
    QTest::newRow("off") << u"off"_s;
}

// posctl killed at any moment of switching the recorder on or off leaves ./zelnorinpas in place,
// whole: the client or the recorder, never nothing. Killed at moments spread over the switch;
// the property holds at every one of them.
void tst_Approval::recorderSwitchNeverLeavesNoClient()
{
    QFETCH(QString, onOrOff);
    FakeClient fake;
    fake.setConfig(fastConfig);
    fake.setAnswer(approval);
    const QString client = QDir(fake.directory()).filePath(u"zelnorinpas"_s);
    for (int delayUs = 0; delayUs < 40000; delayUs += 2000) {
        if (onOrOff == "off"_L1)
            posctl(fake.directory(), words("recorder on"));
        const ProgramRun switched = ProgramRun::run(
            u"bash"_s,
            {u"-c"_s, u"\"$@\" & sleep %1; kill -KILL $! 2>/dev/null; wait"_s.arg(delayUs / 1e6),
             u"-"_s, QStringLiteral(POSCTL_PATH), u"--dir"_s, fake.directory(), u"recorder"_s,
             onOrOff});
        QVERIFY(QFileInfo(client).isExecutable());
        const ProgramRun sale = posctl(fake.directory(), words("--json sale 1000"));
        QVERIFY2(sale.exitCode == 0, sale.err.constData());
        posctl(fake.directory(), words("recorder off"));
    }
}

QTEST_GUILESS_MAIN(tst_Approval)
#include "tst_approval.moc"
