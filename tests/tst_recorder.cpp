// The recorder in front of the payment client: the host sees exactly what it would see
// without it, every run is kept, an approval that never reached the host is found, and a
// recorded day plays back as it was.

#include "till.h"
#include "words.h"

#include <externalprocessthread.h>
#include <processmonitor.h>
#include <recordings.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/stat.h>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString customerCode = u"hQVDUFYwMWEmTwegAAAAAxAQVxFBEREREREREdJRIgEAAAAAD1oIQRE="_s;

// How a run ended, as the host's runner saw it.
struct Seen
{
    int error = 0;
    int exitCode = 0;
    int signal = 0;
    QString out;
    QString err;
    bool operator==(const Seen &other) const
    {
        return error == other.error && exitCode == other.exitCode && signal == other.signal &&
               out == other.out && err == other.err;
    }
};

class LastEnd : public ProcessMonitor
{
public:
    void finished(const ProcessEnd &end) override { last = end; }
    ProcessEnd last;
};

// The first end line of a day's recording.
QJsonObject endLine(const QByteArray &lines)
{
    for (const QByteArray &line : lines.split('\n'))
        if (line.contains("\"event\":\"end\""))
            return QJsonDocument::fromJson(line).object();
    return {};
}

QByteArray recording(const QString &directory)
{
    QFile file(QDir(directory).filePath(u"recordings/"_s +
                                        QDate::currentDate().toString(Qt::ISODate) + u".jsonl"_s));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

ProgramRun posctl(const QString &directory, const QStringList &arguments,
                  const QByteArray &input = {})
{
    return ProgramRun::run(QStringLiteral(POSCTL_PATH),
                           QStringList{u"--json"_s, u"--dir"_s, directory} + arguments, {}, input);
}

} // namespace

class tst_Recorder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void transparent_data();
    void transparent();
    void streamsAsKept_data();
    void streamsAsKept();
    void runsThatNeedAPerson_data();
    void runsThatNeedAPerson();
    void writeFailureIsReported();
    void namedByCheck_data();
    void namedByCheck();
    void replayedDay();
    void onAndOff();
    void ownership_data();
    void ownership();
};

void tst_Recorder::transparent_data()
{
    QTest::addColumn<QByteArray>("client");
    QTest::addColumn<int>("timeoutMs");
    QTest::addColumn<bool>("interrupt"); // SIGINT to what the host started, once it is ready
    QTest::addColumn<QString>("ending"); // as the end line records it; empty: no end line
    QTest::addColumn<bool>("keptAsIs");  // the recorded output is what the host got, as it was
    const auto row = [](const char *name, const QByteArray &client, const char *ending,
                        int timeoutMs = 10000, bool interrupt = false, bool keptAsIs = false) {
        QTest::newRow(name) << client << timeoutMs << interrupt << QString::fromUtf8(ending)
                            << keptAsIs;
    };
    row("an answer", R"(echo '{"Status":1,"PAN":"4111111111111111"}'; echo note >&2)", "exit 0");
    row("exit status and standard error", "printf 'Нет связи с пин-падом\\n' >&2; exit 3",
        "exit 3");
    row("death by a signal", "kill -ABRT $$", "signal 6");
    row("SIGINT reaches the client",
        "trap 'echo {\\\"Status\\\":53}; exit 0' INT\ntouch \"$R/ready.$n\"\nsleep 5 & wait",
        "exit 0", 10000, true);
    // Time enough for the client to start its helper on a busy machine.
    row("the group is killed on time-out", "sleep 60 & echo $! > \"$R/helper.$n\"; wait", "", 3000);
    // Beyond what a recording keeps of a stream: its first part, marked as cut, and its length.
    row("large output", "head -c 3000000 /dev/zero | tr '\\0' x", "exit 0", 10000, false, true);
    row("NUL bytes", "printf 'a\\0b\\0c'; printf '\\0' >&2", "exit 0");
}

// Each client run as the host runs it, first without the recorder, then with it.
void tst_Recorder::transparent()
{
    QFETCH(QByteArray, client);
    QFETCH(int, timeoutMs);
    QFETCH(bool, interrupt);
    FakeClient fake;
    fake.setBehaviour(client);
    LastEnd lastEnd;
    ProcessMonitor::install(&lastEnd);
    Seen seen[2];
    for (int run = 1; run <= 2; ++run) {
        if (run == 2)
            QCOMPARE(posctl(fake.directory(), words("recorder on")).exitCode, 0);
        ExternalProcessThread runner(u"./zelnorinpas"_s, words("1 -a 500 -d") << customerCode,
                                     std::chrono::milliseconds(timeoutMs), fake.directory());
        runner.start();
        if (interrupt) {
            QVERIFY(fake.waitForRecord(u"ready.%1"_s.arg(run)));
            ::kill(pid_t(runner.processId()), SIGINT);
        }
        runner.exec();
        seen[run - 1] = {runner.error(), runner.exitCode(), lastEnd.last.signal,
                         runner.standardOutput(), runner.standardError()};
        if (timeoutMs < 10000) { // the client's helper went with the group
            const pid_t helper = pid_t(fake.record(u"helper.%1"_s.arg(run)).toInt());
            QVERIFY(helper > 0);
            QTRY_VERIFY_WITH_TIMEOUT(!FakeClient::isRunning(helper), 30000);
        }
    }
    ProcessMonitor::install(nullptr);
    QVERIFY(seen[0] == seen[1]);
    QCOMPARE(fake.runCount(), 2);
    QCOMPARE(fake.arguments(2), fake.arguments(1));

    // Kept: the start before the run, its end after it, the customer's code by its length.
    QFETCH(QString, ending);
    QTRY_COMPARE_WITH_TIMEOUT(recording(fake.directory()).count("\"event\":\"output\""),
                              ending.isEmpty() ? 0 : 1, 30000);
    const QByteArray lines = recording(fake.directory());
    const Recordings::Day day =
        Recordings::read(fake.directory(), QDate::currentDate(), Recordings::Streams::Kept);
    QCOMPARE(day.runs.size(), 1);
    const RecordedRun &run = day.runs.first();
    QCOMPARE(run.ended ? run.ending() : QString(), ending);
    if (run.ended) {
        const QJsonObject end = endLine(lines);
        QCOMPARE(end.value("stdoutBytes"_L1).toInteger(), seen[1].out.toUtf8().size());
        QCOMPARE(end.value("stderrBytes"_L1).toInteger(), seen[1].err.toUtf8().size());
        const qsizetype kept = 256 * 1024;
        QCOMPARE(end.value("stdoutCut"_L1).toBool(), seen[1].out.size() > kept);
        QFETCH(bool, keptAsIs);
        if (keptAsIs)
            QCOMPARE(QString::fromUtf8(run.standardOutput), seen[1].out.left(kept));
    }
    QCOMPARE(lines.count("\"event\":\"start\""), 1);
    QVERIFY(lines.contains(QByteArray("\"-d\",\"<QR " + QByteArray::number(customerCode.size()) +
                                      " bytes>\"")) &&
            !lines.contains("hQVDUFY"));
    QVERIFY(!lines.contains("4111111111111111"));
}

void tst_Recorder::streamsAsKept_data()
{
    QTest::addColumn<QByteArray>("client");
    QTest::addColumn<QByteArray>("output"); // as the recording keeps it
    QTest::addColumn<QByteArray>("error");
    const QByteArray kept(256 * 1024 - 1, 'x');
    QTest::newRow("standard error decoded, then read strictly")
        << QByteArray(R"(printf '{"pan":"4111\u00a01111\u00a01111\u00a01111","cvv":"CVV2: 123",)"
                      R"("rrn":"123456785820"}\n' >&2)")
        << QByteArray()
        << QStringView(u"{\"pan\":\"****\u00a0****\u00a0****\u00a01111\",\"cvv\":\"CVV2: ***\","
                       u"\"rrn\":\"********5820\"}")
               .toUtf8();
    QTest::newRow("the customer's code echoed, found by its value")
        << QByteArray(R"(echo "$@" >&2; echo "{\"TextResponse\":\"$5\"}")")
        << "{\"TextResponse\":\"<QR " + QByteArray::number(customerCode.size()) + " bytes>\"}"
        << "1 -a 500 -d <QR " + QByteArray::number(customerCode.size()) + " bytes>\n";
    QTest::newRow("a stream cut inside a letter ends before it")
        << QByteArray("head -c 262143 /dev/zero | tr '\\0' x; printf 'Ж'") << kept << QByteArray();
}

// What a recording keeps of the client's streams: no card data, the customer's code not even
// by another form, and text that reads as text.
void tst_Recorder::streamsAsKept()
{
    QFETCH(QByteArray, client);
    FakeClient fake;
    fake.setBehaviour(client);
    QCOMPARE(posctl(fake.directory(), words("recorder on")).exitCode, 0);
    ExternalProcessThread runner(u"./zelnorinpas"_s, words("1 -a 500 -d") << customerCode, 10s,
                                 fake.directory());
    runner.start();
    QVERIFY(runner.exec());
    QTRY_COMPARE_WITH_TIMEOUT(recording(fake.directory()).count("\"event\":\"output\""), 1, 30000);
    const Recordings::Day day =
        Recordings::read(fake.directory(), QDate::currentDate(), Recordings::Streams::Kept);
    QCOMPARE(day.runs.size(), 1);
    QTEST(day.runs.first().standardOutput, "output");
    QTEST(day.runs.first().standardError, "error");
    QVERIFY(!recording(fake.directory()).contains("stdoutEscaped"));
}

void tst_Recorder::runsThatNeedAPerson_data()
{
    QTest::addColumn<bool>("killGroup"); // the client's group, as power lost; else posctl
    QTest::addColumn<QString>("problem");
    QTest::addColumn<QString>("next");
    QTest::newRow("posctl killed: an approval that never reached the host")
        << false << u"an approval never reached the host: "_s
        << u"cancel 20000 --rrn 000000000001"_s;
    QTest::newRow("the client's group killed: an unknown outcome")
        << true << u"a run's outcome is unknown: "_s << u"copy, or look at the terminal's"_s;
}

void tst_Recorder::runsThatNeedAPerson()
{
    QFETCH(bool, killGroup);
    const Till till(500);
    QCOMPARE(posctl(till.directory(), words("recorder on")).exitCode, 0);
    QProcess host;
    host.start(QStringLiteral(POSCTL_PATH), {u"--dir"_s, till.directory(), u"sale"_s, u"20000"_s});
    QTRY_VERIFY_WITH_TIMEOUT(recording(till.directory()).contains("\"event\":\"start\""), 30000);
    if (killGroup) {
        const QByteArray start = recording(till.directory());
        const qsizetype at = start.indexOf("\"pid\":") + 6;
        ::kill(-pid_t(start.mid(at, start.indexOf(',', at) - at).toInt()), SIGKILL);
        QVERIFY(host.waitForFinished());
    } else {
        host.kill();
        host.waitForFinished();
        QTRY_VERIFY_WITH_TIMEOUT(recording(till.directory()).contains("\"event\":\"end\""), 30000);
    }
    const ProgramRun check =
        ProgramRun::run(QStringLiteral(POSCTL_PATH), {u"--dir"_s, till.directory(), u"check"_s});
    QFETCH(QString, problem);
    QFETCH(QString, next);
    QCOMPARE(check.exitCode, 1);
    const QString out = QString::fromUtf8(check.out);
    QVERIFY2(out.contains(problem + QDate::currentDate().toString(Qt::ISODate)) &&
                 out.contains(next),
             qPrintable(out));
}

// A recording that could not be written is named by check, whatever was recorded after it.
void tst_Recorder::writeFailureIsReported()
{
    FakeClient fake;
    fake.setConfig("[Client]\nintervalBetweenOperations=0\n");
    fake.setAnswer(R"({"Status":1})");
    QCOMPARE(posctl(fake.directory(), words("recorder on")).exitCode, 0);
    QCOMPARE(posctl(fake.directory(), words("sale 100")).exitCode, 0);
    QTRY_VERIFY_WITH_TIMEOUT(recording(fake.directory()).contains("\"event\":\"end\""), 30000);
    QCOMPARE(posctl(fake.directory(), {u"check"_s}).exitCode, 0);
    QFile failed(QDir(fake.directory()).filePath(u"recordings/failed"_s));
    QVERIFY(failed.open(QIODevice::WriteOnly));
    failed.write("cannot write recordings/x.jsonl: No space left on device\n");
    failed.close();
    // Reported, and still after the next run is recorded: until a person has dealt with it.
    for (int run = 0; run < 2; ++run) {
        const ProgramRun check = posctl(fake.directory(), {u"check"_s});
        QCOMPARE(check.exitCode, 1);
        QVERIFY2(check.out.contains("could not write its recording") &&
                     check.out.contains("No space left on device"),
                 check.out.constData());
        QCOMPARE(posctl(fake.directory(), words("sale 100")).exitCode, 0);
    }
}

void tst_Recorder::namedByCheck_data()
{
    QTest::addColumn<QByteArray>("client");
    // What happens besides the sale: "kill the client" once it has printed its answer, "remove
    // the client", "replace the recorder" with a new client, "remove the scribe", "link the
    // recordings" elsewhere, "tear a line".
    QTest::addColumn<QString>("action");
    QTest::addColumn<int>("saleExit");
    QTest::addColumn<QStringList>("kinds");  // among check's findings
    QTest::addColumn<QStringList>("absent"); // not among them
    const QByteArray approval = R"({"Status":1,"ReferenceNumber":"000000000042"})";
    const auto row = [](const char *name, const QByteArray &client, const char *action,
                        int saleExit, const QStringList &kinds, const QStringList &absent = {}) {
        QTest::newRow(name) << client << QString::fromLatin1(action) << saleExit << kinds << absent;
    };
    row("an approval, then exit 1", "echo '" + approval + "'; exit 1", "", 1,
        {u"unseenApproval"_s});
    row("an approval, then its own SIGSEGV", "echo '" + approval + "'; kill -SEGV $$", "", 4,
        {u"unseenApproval"_s});
    row("an approval, then killed", "echo '" + approval + "'; touch \"$R/printed.$n\"; sleep 60",
        "kill the client", 4, {u"unseenApproval"_s});
    // A cp1251 "№" in the slip: the plug-in reads it as U+FFFD and takes the approval.
    row("a byte that is not UTF-8 in an approval, then exit 1",
        R"(printf '{"Status":1,"ReferenceNumber":"000000000042","ReceiptData":"0xDF^1^\271 5~"}\n'; exit 1)",
        "", 1, {u"unseenApproval"_s});
    row("the client removed", "echo '" + approval + "'", "remove the client", 1,
        {u"recordedClientMissing"_s});
    row("a new client copied over the recorder", "echo '" + approval + "'", "replace the recorder",
        0, {u"recorderReplaced"_s});
    row("no scribe", "echo '" + approval + "'", "remove the scribe", 0,
        {u"scribeMissing"_s, u"outputsMissing"_s}, {u"unknownOutcome"_s, u"unseenApproval"_s});
    row("the recordings a link elsewhere", "echo '" + approval + "'", "link the recordings", 0,
        {u"recordingsNotAFolder"_s});
    row("a torn line of a run", "echo '" + approval + "'", "tear a line", 0, {u"lineUnreadable"_s});
}

// Every shape of a run that needs a person, and of a recorder that cannot keep its runs, is a
// finding of check; none reads as all is well.
void tst_Recorder::namedByCheck()
{
    QFETCH(QByteArray, client);
    QFETCH(QString, action);
    FakeClient fake;
    fake.setConfig("[Client]\nintervalBetweenOperations=0\n");
    fake.setBehaviour(client);
    const QDir dir(fake.directory());
    QCOMPARE(posctl(fake.directory(), words("recorder on")).exitCode, 0);
    QTemporaryDir elsewhere;
    if (action == "remove the client"_L1)
        QVERIFY(QFile::remove(dir.filePath(u"zelnorinpas.real"_s)));
    if (action == "remove the scribe"_L1)
        QVERIFY(QFile::remove(dir.filePath(u"zelnorinpas-scribe"_s)));
    if (action == "link the recordings"_L1)
        QVERIFY(QFile::link(elsewhere.path(), dir.filePath(u"recordings"_s)));
    if (action == "replace the recorder"_L1) {
        QVERIFY(QFile::remove(dir.filePath(u"zelnorinpas"_s)));
        QVERIFY(QFile::copy(dir.filePath(u"zelnorinpas.real"_s), dir.filePath(u"zelnorinpas"_s)));
    }
    QProcess sale;
    sale.start(QStringLiteral(POSCTL_PATH), {u"--dir"_s, fake.directory(), u"sale"_s, u"100"_s});
    if (action == "kill the client"_L1) {
        QVERIFY(fake.waitForRecord(u"printed.1"_s));
        ::kill(pid_t(fake.processId(1)), SIGKILL);
    }
    QVERIFY(sale.waitForFinished(30000));
    QTEST(sale.exitCode(), "saleExit");
    if (action == "tear a line"_L1) {
        QFile day(Recordings::dayPath(fake.directory(), QDate::currentDate()));
        QVERIFY(day.open(QIODevice::Append));
        day.write("{\"event\":\"end\",\"id\":\"2026-11-24T10:00:00.000-77\",\"time\":\"20");
    }
    const auto found = [&] {
        QStringList names;
        for (const QJsonValue &finding :
             posctl(fake.directory(), {u"check"_s}).json().value("findings"_L1).toArray())
            names.append(finding.toObject().value("kind"_L1).toString());
        return names;
    };
    QFETCH(QStringList, kinds);
    for (const QString &kind : std::as_const(kinds))
        QTRY_VERIFY2_WITH_TIMEOUT(found().contains(kind), qPrintable(found().join(u' ')), 30000);
    QFETCH(QStringList, absent);
    for (const QString &kind : std::as_const(absent))
        QVERIFY2(!found().contains(kind), qPrintable(found().join(u' ')));
    QCOMPARE(posctl(fake.directory(), {u"check"_s}).exitCode, 1);
    if (action == "link the recordings"_L1)
        QVERIFY(QDir(elsewhere.path()).isEmpty());
    if (action == "replace the recorder"_L1) {
        // Taking the recorder away would put the older client back over the new one.
        QVERIFY(posctl(fake.directory(), words("recorder off")).err.contains("--force"));
        QCOMPARE(posctl(fake.directory(), words("recorder off --force")).exitCode, 0);
    }
}

// A day recorded through the recorder, then played back by the emulator: the same answers.
void tst_Recorder::replayedDay()
{
    // The SBP form identifier holds its time, which must not change between the two days.
    const QByteArray day =
        "sale 150000\nsale 250005\nsbp-pay 99900 --form-time 2026-11-23T10:00:00\n"
        "sale 10096\nrefund 50000 --rrn 000000000001\nreconcile\n"
        "sale 10098\n"; // a crash: its outcome is unknown, and it ends the batch
    const Till recorded;
    QCOMPARE(posctl(recorded.directory(), words("recorder on")).exitCode, 0);
    // A line torn by a power loss earlier in the day stays a line of its own.
    QVERIFY(QDir(recorded.directory()).mkdir(u"recordings"_s));
    QFile torn(
        QDir(recorded.directory())
            .filePath(u"recordings/"_s + QDate::currentDate().toString(Qt::ISODate) + u".jsonl"_s));
    QVERIFY(torn.open(QIODevice::WriteOnly));
    torn.write("{\"event\":\"start\",\"id\":\"x");
    torn.close();
    const ProgramRun original = posctl(recorded.directory(), {u"batch"_s}, day);
    QCOMPARE(original.out.count('\n'), 7);
    QTRY_COMPARE_WITH_TIMEOUT(recording(recorded.directory()).count("\"event\":\"output\""), 10,
                              30000);
    QVERIFY(posctl(recorded.directory(), {u"recordings"_s}).out.contains("line 1 cannot be read"));

    const Till replaying;
    QFile config(QDir(replaying.directory()).filePath(u"zelnorinpas.conf"_s));
    QVERIFY(config.open(QIODevice::Append));
    config.write(
        "[Emulator]\nreplaySpeed=0\nreplay=" +
        QDir(recorded.directory())
            .filePath(u"recordings/"_s + QDate::currentDate().toString(Qt::ISODate) + u".jsonl"_s)
            .toUtf8() +
        '\n');
    config.close();
    // A run the recording does not hold is refused, naming what was expected.
    QVERIFY(posctl(replaying.directory(), words("sale 5"))
                .message()
                .contains(u"ожидался запуск 1 от "_s));
    QCOMPARE(posctl(replaying.directory(), {u"batch"_s}, day).out, original.out);
    QVERIFY(posctl(replaying.directory(), words("sale 150000"))
                .message()
                .contains(u"все 10 запусков уже воспроизведены"_s));
}

// On puts the recorder in front of the client, once; off puts the very client file back and
// leaves the directory as it was; each refuses what it cannot do.
void tst_Recorder::onAndOff()
{
    FakeClient fake;
    const QString client = QDir(fake.directory()).filePath(u"zelnorinpas"_s);
    const auto inode = [](const QString &path) {
        struct stat file = {};
        ::stat(QFile::encodeName(path).constData(), &file);
        return file.st_ino;
    };
    const ino_t before = inode(client);
    const QStringList entries = QDir(fake.directory()).entryList(QDir::AllEntries | QDir::Hidden);
    QCOMPARE(posctl(fake.directory(), words("recorder on")).exitCode, 0);
    QVERIFY(QFileInfo(client + u".real"_s).isExecutable());
    // On when on, off when off: done, and said so.
    const ProgramRun again = posctl(fake.directory(), words("recorder on"));
    QCOMPARE(again.exitCode, 0);
    QVERIFY(again.out.contains("already on"));
    QCOMPARE(posctl(fake.directory(), words("recorder off")).exitCode, 0);
    QCOMPARE(inode(client), before);
    QCOMPARE(QDir(fake.directory()).entryList(QDir::AllEntries | QDir::Hidden), entries);
    const ProgramRun offAgain = posctl(fake.directory(), words("recorder off"));
    QCOMPARE(offAgain.exitCode, 0);
    QVERIFY(offAgain.out.contains("not on"));

    // Not while a client runs: it would find its program gone, or the recorder half in place.
    fake.setBehaviour("touch \"$R/ready.$n\"; sleep 60");
    QProcess running;
    running.setWorkingDirectory(fake.directory());
    running.start(client, {u"1"_s});
    QVERIFY(fake.waitForRecord(u"ready.1"_s));
    QVERIFY(posctl(fake.directory(), words("recorder on")).err.contains("a payment client runs"));
    QVERIFY(!QFile::exists(client + u".real"_s));
    running.kill();
    running.waitForFinished();

    fake.removeClient();
    QVERIFY(posctl(fake.directory(), words("recorder on")).err.contains("no payment client"));

    // With the recorder on, a running sale is one entry (the recorder and the real client it
    // runs), whose group kill names a group that exists.
    const Till till(60000);
    QCOMPARE(posctl(till.directory(), words("recorder on")).exitCode, 0);
    QProcess sale;
    sale.start(QStringLiteral(POSCTL_PATH), {u"--dir"_s, till.directory(), u"sale"_s, u"100"_s});
    QTRY_VERIFY_WITH_TIMEOUT(recording(till.directory()).contains("\"event\":\"start\""), 30000);
    QList<QJsonObject> clients;
    const auto listed = [&] {
        clients.clear();
        for (const QJsonValue &finding :
             posctl(till.directory(), {u"check"_s}).json().value("findings"_L1).toArray())
            if (finding.toObject().value("kind"_L1) == "clientStillRunning"_L1)
                clients.append(finding.toObject());
        return !clients.isEmpty();
    };
    QTRY_VERIFY_WITH_TIMEOUT(listed(), 30000);
    QCOMPARE(clients.size(), 1);
    const QString advice = clients.first().value("advice"_L1).toString();
    const qsizetype group = advice.indexOf(u"kill -TERM -- -"_s);
    QVERIFY2(group > 0, qPrintable(advice));
    const pid_t id = pid_t(advice.mid(group + 15).section(u')', 0, 0).toInt());
    QCOMPARE(::kill(-id, SIGKILL), 0);
    QVERIFY(sale.waitForFinished(30000));
}

void tst_Recorder::ownership_data()
{
    QTest::addColumn<bool>("asOwner"); // recorder on as root, or as a user who does not own it
    QTest::newRow("root, over another user's client") << true;
    QTest::newRow("a user, over another user's client") << false;
}

// The recorder and the scribe take the client's owner, group and mode, so that the host's user
// can run them; a user who could not give them that is refused, and told whose the client is.
void tst_Recorder::ownership()
{
    if (::geteuid() != 0)
        QSKIP("needs root, to give the client to another user");
    QFETCH(bool, asOwner);
    constexpr uid_t owner = 4242; // and 4243, a stranger
    FakeClient fake;
    const QString client = QDir(fake.directory()).filePath(u"zelnorinpas"_s);
    QVERIFY(::chown(QFile::encodeName(client).constData(), owner, owner) == 0);
    QVERIFY(::chmod(QFile::encodeName(client).constData(), 0700) == 0);
    QVERIFY(::chmod(QFile::encodeName(fake.directory()).constData(), 0777) == 0);
    const QStringList stranger{u"--reuid=4243"_s, u"--regid=4243"_s, u"--clear-groups"_s};
    if (!asOwner &&
        ProgramRun::run(u"setpriv"_s,
                        stranger + QStringList{u"test"_s, u"-x"_s, QStringLiteral(POSCTL_PATH)})
                .exitCode != 0)
        QSKIP("posctl lies where another user cannot run it (a private build folder)");
    const QStringList on{u"--dir"_s, fake.directory(), u"recorder"_s, u"on"_s};
    const ProgramRun run =
        asOwner ? ProgramRun::run(QStringLiteral(POSCTL_PATH), on)
                : ProgramRun::run(u"setpriv"_s,
                                  stranger + QStringList{QStringLiteral(POSCTL_PATH)} + on);
    if (!asOwner) {
        QCOMPARE(run.exitCode, 1);
        QVERIFY2(run.err.contains("belongs to 4242"), run.err.constData());
        QVERIFY(!QFile::exists(client + u".real"_s));
        return;
    }
    QCOMPARE(run.exitCode, 0);
    for (const char *name : {"zelnorinpas", "zelnorinpas-scribe", "zelnorinpas.real"}) {
        struct stat info = {};
        QVERIFY(::stat(QFile::encodeName(QDir(fake.directory()).filePath(QLatin1StringView(name)))
                           .constData(),
                       &info) == 0);
        QCOMPARE(info.st_uid, owner);
        QCOMPARE(info.st_gid, gid_t(owner));
        QCOMPARE(info.st_mode & 07777, mode_t(0700));
    }
}

QTEST_GUILESS_MAIN(tst_Recorder)
#include "tst_recorder.moc"
