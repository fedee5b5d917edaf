// posctl end to end: the real plug-in, loaded as the host loads it, against fake clients.

#include "fakeclient.h"
#include "programrun.h"
#include "words.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

ProgramRun posctl(const QStringList &arguments, const QByteArray &input = {})
{
    return ProgramRun::run(QStringLiteral(POSCTL_PATH), arguments, {}, input);
}

QStringList withDir(const FakeClient &client, QStringList arguments)
{
    return QStringList{u"--json"_s, u"--dir"_s, client.directory()} + arguments;
}

const QByteArray fastConfig = "[Client]\nintervalBetweenOperations=0\n";

// A client that answers 53 on SIGINT, or ignores it; it marks when it is ready for it.
QByteArray waitingClient(bool answersInterrupt)
{
    return QByteArray(answersInterrupt ? "trap 'echo {\\\"Status\\\":53}; exit 0' INT\n"
                                       : "trap '' INT\n") +
           "touch \"$R/ready.$n\"\nsleep 60 & wait\necho '{\"Status\":1}'";
}

} // namespace

class tst_Posctl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void informationCommands();
    void jsonLine();
    void commandLines_data();
    void commandLines();
    void humanOutput_data();
    void humanOutput();
    void signals_data();
    void signals();
    void check_data();
    void check();
    void batch();
    void batchBlockedOnItsOutput();
    void batchStopsAtBadLine_data();
    void batchStopsAtBadLine();
    void logFileAndEchoesHoldNoCardData();
    void errors_data();
    void errors();
};

// What the processor announces, and the scanning dialog's picture and pattern as the host
// gets them from the loaded plug-in.
void tst_Posctl::informationCommands()
{
    FakeClient client;
    const ProgramRun run = posctl(withDir(client, words("options")));
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QByteArray("{\"payment\":[4,8,8192,32768,524288],\"processing\":[1,7],"
                                 "\"paymentEnable\":[1,2,3],\"cancelEnable\":[1]}\n"));

    client.setConfig("[Client]\nallowInterruptPayment=true\nscanTokenOnCancel=false\n");
    QCOMPARE(posctl(withDir(client, words("options"))).json().value("processing"_L1).toArray(),
             (QJsonArray{0, 7}));

    const QJsonObject scan = posctl(withDir(client, words("scan-params"))).json();
    QCOMPARE(scan.value("image"_L1).toObject(),
             (QJsonObject{{u"readable"_s, true}, {u"width"_s, 453}, {u"height"_s, 350}}));
    QCOMPARE(scan.value("patterns"_L1).toArray(), QJsonArray{u"hQVDUFY.*"_s});
}

// The answer as one JSON line: all twelve keys, in the contract's order.
void tst_Posctl::jsonLine()
{
    FakeClient client;
    client.setConfig(fastConfig);
    client.setAnswer(R"({"Status":1,"TextResponse":"Сверка итогов выполнена",)"
                     R"("ReceiptData":"0xDF^1^ИТОГИ~"})");
    QCOMPARE(posctl(withDir(client, words("reconcile --merchant 1234567"))).out,
             u"{\"status\":1,\"result\":0,\"message\":{\"id\":\"undefined\",\"text\":\"Сверка "
             u"итогов выполнена\"},\"slips\":[\"ИТОГИ\"],\"cardType\":\"\",\"pan\":\"\","
             u"\"authorizationCode\":\"\",\"referenceNumber\":\"\",\"accountBalance\":0,"
             u"\"paymentMode\":0,\"additionalData\":\"\"}\n"_s.toUtf8());
}

void tst_Posctl::commandLines_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QStringList>("arguments");

    const QString qr = u"hQVDUFYwMQ=="_s;
    const QString payload =
        QString::fromLatin1(QByteArray(QByteArray::fromHex("F60ED10C") + qr.toLatin1()).toBase64());
    QTest::newRow("sale") << words("sale 500 --merchant M1")
                          << words("1 -a 500 -c '' -e 0 -o 0 -r '' -t M1");
    QTest::newRow("sale with customer code")
        << words("sale 500 --merchant M1 --customer-qr") + QStringList{qr}
        << words("1 -a 500 -c '' -d") + QStringList{payload} + words("-e 0 -o 0 -r '' -t M1");
    QTest::newRow("currency 2 keeps the code back")
        << words("sale 500 --currency 2 --customer-qr") + QStringList{qr}
        << words("1 -a 500 -c '' -e 0 -o 0 -r '' -t ''");
    QTest::newRow("negative refund")
        << words("refund --rrn R --auth A -- -5") << words("2 -a -5 -c A -e 0 -o 0 -r R -t ''");
    QTest::newRow("cancel") << words("cancel 0") << words("3 -a 0 -c '' -e 0 -o 0 -r '' -t ''");
    QTest::newRow("report for an empty merchant")
        << words("report --merchant ''") << words("14 -t ''");
    QTest::newRow("short report") << words("short-report") << words("11");
    QTest::newRow("copy") << words("copy") << words("12");
    QTest::newRow("balance") << words("balance") << words("15");
    QTest::newRow("reconcile") << words("reconcile") << words("4");
}

void tst_Posctl::commandLines()
{
    QFETCH(QStringList, command);
    FakeClient client;
    client.setConfig(fastConfig);
    client.setAnswer(R"({"Status":1})");
    const ProgramRun run = posctl(withDir(client, command));
    QVERIFY2(run.exitCode == 0, run.err.constData());
    QCOMPARE(client.runCount(), 1);
    QTEST(client.arguments(1), "arguments");
}

void tst_Posctl::humanOutput_data()
{
    QTest::addColumn<QByteArray>("client"); // shell code; empty: no client at all
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("out");
    QTest::addColumn<QString>("err");
    QTest::addColumn<int>("exitCode");
    const auto row = [](const char *name, const QByteArray &client, const QStringList &out,
                        const QString &err = {}, int exitCode = 0,
                        const QStringList &arguments = words("sale 150000")) {
        QTest::newRow(name) << client << arguments << out << err << exitCode;
    };
    row("approved with a slip",
        R"(echo '{"Status":1,"TextResponse":"ОДОБРЕНО","CardType":"VISA",)"
        R"("PAN":"************1234","ReceiptData":"0xDF^1^ЧЕК\nстрока~"}')",
        {u"ОДОБРЕНО\n"_s, u"1500.00 (150000 in minor units)"_s, u"VISA ************1234"_s,
         u"│ ЧЕК    │\n│ строка │"_s});
    row("every character shown",
        R"(echo '{"Status":1,"TextResponse":"OK\r","ReceiptData":)"
        R"("0xDF^^a\u0000b\u001b[31m~0xDA^^second~"}')",
        {u"OK\\r\n"_s, u"a\\0b\\e[31m"_s, u"│ second │"_s});
    row("silent non-zero exit", "exit 1",
        {u"(no message)\n  (the payment client ended with status 1 and wrote nothing)"_s}, {}, 1);
    row("long standard error cut", "seq 100000 >&2; exit 1",
        {u"\n20\n... (588844 more characters in 99980 more lines not shown"_s}, {}, 1);
    row("no client", "", {}, u"there is no payment client"_s, 1);
    row("command line too long", "echo '{}'", {}, u"(argument list too long)"_s, 1,
        words("sale 1 --customer-qr") + QStringList{QString(100000, u'Q')});
}

void tst_Posctl::humanOutput()
{
    QFETCH(QByteArray, client);
    QFETCH(QStringList, arguments);
    FakeClient fake;
    fake.setConfig(fastConfig);
    if (client.isEmpty())
        fake.removeClient();
    else
        fake.setBehaviour(client);
    QTemporaryDir logDir;
    const QString log = logDir.filePath(u"day.log"_s);
    const ProgramRun run =
        posctl(QStringList{u"--log"_s, log, u"--dir"_s, fake.directory()} + arguments);
    QFETCH(QStringList, out);
    QFETCH(QString, err);
    QTEST(run.exitCode, "exitCode");
    const QString output = QString::fromUtf8(run.out);
    for (const QString &text : out)
        QVERIFY2(output.contains(text), qPrintable(output.left(2000)));
    QVERIFY2(QString::fromUtf8(run.err).contains(err), run.err.left(2000).constData());
    // The log goes to the file whatever -v says, each line with its time.
    QFile file(log);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(QRegularExpression(u"^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} INFO  inpas: "
                               u"Оплата/возврат\n"_s)
                .match(QString::fromUtf8(file.readAll()))
                .hasMatch());
}

void tst_Posctl::signals_data()
{
    QTest::addColumn<bool>("batch");
    QTest::addColumn<QByteArray>("client");
    QTest::addColumn<QString>("output"); // "pipe", "closed pipe" or "/dev/full"
    // When the signals go: after the client's record of that name; "ended.1" once the first
    // client has ended; "held" once posctl holds the answer it has, before writing it; "first
    // answer" once a batch has answered its first line and waits for the next.
    QTest::addColumn<QString>("waitFor");
    QTest::addColumn<QList<int>>("signalsSent");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");
    QTest::addColumn<int>("giveUpMs");
    QTest::addColumn<QStringList>("command"); // of a single command
    const auto row = [](const char *name, bool batch, const QByteArray &client,
                        const QString &waitFor, const QList<int> &signalsSent, int exitCode,
                        const QString &out, const QString &err, const QString &output = u"pipe"_s,
                        int giveUpMs = 60000, const QStringList &command = words("sale 1")) {
        QTest::newRow(name) << batch << client << output << waitFor << signalsSent << exitCode
                            << out << err << giveUpMs << command;
    };
    const QByteArray answers = waitingClient(true);
    const QByteArray ignores = waitingClient(false);
    // The first sale is approved at once; the second waits, ignoring SIGINT.
    const QByteArray secondWaits = "if [ $n = 1 ]; then echo '{\"Status\":1,\"ReferenceNumber\":"
                                   "\"000000000001\"}'; exit 0; fi\n" +
                                   ignores;
    const QByteArray answersAtOnce = "echo '{\"Status\":1,\"ReferenceNumber\":\"000000000007\"}'";
    const QString ready = u"ready.1"_s;

    row("SIGTERM: the answer is awaited and shown", false, answers, ready, {SIGTERM}, 1,
        u"\"status\":53"_s, u"SIGTERM: asking the terminal to interrupt"_s);
    row("SIGQUIT: the same", false, answers, ready, {SIGQUIT}, 1, u"\"status\":53"_s,
        u"SIGQUIT: asking the terminal to interrupt"_s);
    row("second Ctrl+C: outcome unknown at once", false, ignores, ready, {SIGINT, SIGINT}, 4, {},
        u"the outcome of the operation is unknown: the payment client (process "_s);
    row("no answer in the time given: outcome unknown", false, ignores, ready, {SIGHUP}, 4, {},
        u"did not end within 0.3 s of the signal"_s, u"pipe"_s, 300);
    row("signal between the answer and its writing: the answer, its status", false, answersAtOnce,
        u"held"_s, {SIGTERM}, 0, u"\"referenceNumber\":\"000000000007\""_s,
        u"posctl stops once the answer is written"_s);
    row("closed output: the answer's gist on stderr", false, answersAtOnce, {}, {}, 4, {},
        u"could not be written to standard output (Broken pipe)"_s, u"closed pipe"_s);
    row("full disk: the same", false, answersAtOnce, {}, {}, 4, {},
        u"(No space left on device); the terminal's answer was not written out. It was: "
        u"result 0 (success), status 1, message \"\", reference number \"000000000007\""_s,
        u"/dev/full"_s);
    row("batch stops after its line", true, answers, ready, {SIGINT}, 130, u"\"status\":53"_s,
        u"after line 1 on Ctrl+C; these did not run: line 2 \"sale 2\", line 3 \"balance\""_s);
    row("batch: an answer written before two signals is kept", true, secondWaits, u"ready.2"_s,
        {SIGINT, SIGINT}, 4, u"\"referenceNumber\":\"000000000001\""_s,
        u"Ctrl+C again: not waiting for the operation to end"_s);
    row("batch waiting for its next line: stops at once", true, answersAtOnce, u"first answer"_s,
        {SIGINT}, 130, u"\"status\":1"_s,
        u"after line 1 on Ctrl+C; no further lines were waiting"_s);
    // An SBP payment between its first client and its status query: no client runs, and posctl
    // names none when it gives up.
    row("give-up between two clients of an operation", false,
        "if [ $n = 1 ]; then echo '{\"Status\":0}'; exit 0; fi\n" + ignores, u"ended.1"_s,
        {SIGTERM}, 4, {},
        u"no payment client runs at this moment (the operation was between two runs"_s, u"pipe"_s,
        300, words("sbp-pay 1"));
}

// posctl never ends silently while its client runs, never loses an answer it has, and leaves
// no client behind unreported. Each signal is sent once posctl has said it took the one before
// (two of a kind sent at once may reach it as one); a give-up comes no sooner than its time
// after the signal, and every ending well within the minute that a client left waiting runs.
void tst_Posctl::signals()
{
    QFETCH(bool, batch);
    QFETCH(QByteArray, client);
    QFETCH(QString, output);
    QFETCH(QString, waitFor);
    QFETCH(QList<int>, signalsSent);
    QFETCH(int, giveUpMs);
    QFETCH(QStringList, command);
    FakeClient fake;
    // A pause between runs long enough that a signal after the first run lands in it.
    fake.setConfig(waitFor == "ended.1"_L1 ? "[Client]\nintervalBetweenOperations=60\n"
                                           : fastConfig);
    fake.setBehaviour(client);
    QTemporaryDir hold;
    const QString held = hold.filePath(u"held"_s);
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"POSCTL_GIVE_UP_MS"_s, QString::number(giveUpMs));
    if (waitFor == "held"_L1)
        environment.insert(u"POSCTL_HOLD_ANSWER"_s, held);
    process.setProcessEnvironment(environment);
    const QStringList arguments = withDir(fake, batch ? words("batch") : command);
    if (output == "closed pipe"_L1)
        process.start(u"bash"_s, QStringList{u"-c"_s, u"\"$@\" | true; exit ${PIPESTATUS[0]}"_s,
                                             u"-"_s, QStringLiteral(POSCTL_PATH)} +
                                     arguments);
    else {
        if (output != "pipe"_L1)
            process.setStandardOutputFile(output);
        process.start(QStringLiteral(POSCTL_PATH), arguments);
    }
    QByteArray written;
    if (waitFor == "first answer"_L1) {
        process.write("sale 1\n"); // and no more: the batch waits for its next line
        QTRY_VERIFY_WITH_TIMEOUT((written += process.readAllStandardOutput()).contains('\n'),
                                 30000);
    } else {
        process.write("sale 1\nsale 2\nbalance\n");
        QVERIFY(process.waitForBytesWritten());
        process.closeWriteChannel();
    }
    if (waitFor == "held"_L1) {
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(held), 30000);
    } else if (waitFor == "ended.1"_L1) {
        QVERIFY(fake.waitForRecord(u"pid.1"_s));
        QTRY_VERIFY_WITH_TIMEOUT(!FakeClient::isRunning(fake.processId(1)), 30000);
    } else if (!waitFor.isEmpty() && waitFor != "first answer"_L1) {
        QVERIFY(fake.waitForRecord(waitFor));
    }
    QString errors;
    const auto taken = [&] {
        errors += QString::fromUtf8(process.readAllStandardError());
        return errors.count(QRegularExpression(u"(^|\n)posctl: (Ctrl\\+C|SIG[A-Z0-9]+)"_s));
    };
    QElapsedTimer sinceLast;
    for (qsizetype i = 0; i < signalsSent.size(); ++i) {
        if (i > 0)
            QTRY_VERIFY_WITH_TIMEOUT(taken() >= i, 30000);
        ::kill(pid_t(process.processId()), signalsSent.at(i));
        sinceLast.start();
    }
    if (waitFor == "held"_L1) {
        QTRY_VERIFY_WITH_TIMEOUT(taken() >= 1, 30000);
        QFile::remove(held);
    }
    QVERIFY(process.state() == QProcess::NotRunning || process.waitForFinished(30000));
    if (sinceLast.isValid()) {
        const qint64 ended = sinceLast.elapsed();
        QVERIFY2(ended < 20000, qPrintable(QString::number(ended)));
        if (giveUpMs < 1000)
            QVERIFY2(ended >= giveUpMs, qPrintable(QString::number(ended)));
    }
    QFETCH(QString, out);
    QFETCH(QString, err);
    QTEST(process.exitCode(), "exitCode");
    written += process.readAllStandardOutput();
    errors += QString::fromUtf8(process.readAllStandardError());
    QVERIFY2(QString::fromUtf8(written).contains(out), written.constData());
    QVERIFY2(errors.contains(err), qPrintable(errors));
    // A report of a running client names it and where it runs.
    const QRegularExpressionMatch running =
        QRegularExpression(u"process (\\d+)\\)"_s).match(errors);
    if (running.hasMatch()) {
        QVERIFY(errors.contains(fake.directory()));
        QCOMPARE(running.captured(1).toLongLong(), fake.processId(fake.runCount()));
    }
}

void tst_Posctl::check_data()
{
    // "script", "none", "plain file", "python9", or "left running" by a posctl killed mid-sale
    QTest::addColumn<QString>("client");
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<QString>("problem"); // empty: all is well
    const auto row = [](const char *name, const char *client, const char *config,
                        const char *problem) {
        QTest::newRow(name) << QString::fromUtf8(client) << QByteArray(config)
                            << QString::fromUtf8(problem);
    };
    row("all is well", "script", "[Client]\nintervalBetweenOperations=1\n", "");
    row("no client", "none", "", "there is no payment client");
    row("client not executable", "plain file", "", "is not executable");
    row("interpreter missing", "python9", "", "whose interpreter /usr/bin/python9 is missing");
    row("line that does not parse", "script", "[Client]\nintervalBetweenOperations 5\n",
        "zelnorinpas.conf, line 2: not a setting");
    row("key the plug-in does not read", "script", "[ErrorCodes]\nnotEnoughBalanceCode=51\n",
        "line 2: the plug-in does not read notEnoughBalanceCode; did you mean "
        "notEnoughtBalanceCode?");
    row("key in the wrong group", "script", "[Client]\nnotEnoughtBalanceCode=51\n",
        "notEnoughtBalanceCode belongs in [ErrorCodes], not in [Client]");
    row("value that does not parse", "script", "[ErrorCodes]\nnotEnoughtBalanceCode=fifty-one\n",
        "notEnoughtBalanceCode=fifty-one is not a whole number");
    row("interval below 0", "script", "[Client]\nintervalBetweenOperations=-1\n",
        "intervalBetweenOperations=-1 is below 0");
    row("client left running", "left running", "",
        "a payment client still runs here: process %1, for ");
}

void tst_Posctl::check()
{
    QFETCH(QString, client);
    QFETCH(QByteArray, config);
    QFETCH(QString, problem);
    FakeClient fake;
    if (!config.isEmpty())
        fake.setConfig(config);
    const QString path = QDir(fake.directory()).filePath(u"zelnorinpas"_s);
    if (client == "none"_L1)
        fake.removeClient();
    else if (client == "plain file"_L1)
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
    QFile file(path);
    if (client == "python9"_L1 && file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write("#!/usr/bin/python9\n");
    file.close();
    if (client == "left running"_L1) {
        fake.setBehaviour(waitingClient(false));
        QProcess host;
        host.start(QStringLiteral(POSCTL_PATH),
                   QStringList{u"--dir"_s, fake.directory()} + words("sale 1 --customer-qr") +
                       QStringList{u"hQVDUFYwMWEmTwegAAAAAxAQVxFBEREREREREdJRIgEAAAAAD1oIQRE="_s});
        QVERIFY(fake.waitForRecord(u"ready.1"_s));
        host.kill();
        host.waitForFinished();
        problem = problem.arg(fake.processId(1));
    }
    const ProgramRun run = posctl({u"--dir"_s, fake.directory(), u"check"_s});
    QCOMPARE(run.exitCode, problem.isEmpty() ? 0 : 1);
    QVERIFY2(QString::fromUtf8(run.out).contains(problem), run.out.constData());
    // The client's command line, the customer's code by its length.
    QCOMPARE(run.out.contains(": ./zelnorinpas 1 -a 1 -c  -d <QR 80 bytes> -e 0 -o 0 -r  -t \n"),
             client == "left running"_L1);
    // The settings in effect, defaults marked.
    QVERIFY(run.out.contains("Client/scanTokenOnCancel                 true  (default)\n"));
    const QJsonObject json = posctl(withDir(fake, {u"check"_s})).json();
    QCOMPARE(json.value("ok"_L1).toBool(), problem.isEmpty());
    QCOMPARE(json.value("settings"_L1).toArray().size(), 7);
}

void tst_Posctl::batch()
{
    FakeClient first;
    first.setConfig(fastConfig);
    first.setAnswer(R"({"Status":1})");
    FakeClient second;
    second.setConfig(fastConfig + "allowInterruptPayment=true\n");
    second.setAnswer(R"({"Status":16})");
    const QByteArray input = u"# a day\noptions\n\nset-dir \"%1\"\nsale 100 --merchant \"M 1\"\n"
                             u"set-dir %2\noptions\nnew-processor\noptions\nset-dir %2\nsale 5\n"_s
                                 .arg(first.directory(), second.directory())
                                 .toUtf8();
    const ProgramRun run = posctl({u"--dir"_s, first.directory(), u"batch"_s}, input);
    const QList<QByteArray> lines = run.out.trimmed().split('\n');
    QCOMPARE(lines.size(), 9);
    QCOMPARE(lines.at(1), "{\"setDir\":\"" + first.directory().toUtf8() + "\"}");
    QCOMPARE(first.lastArguments().last(), u"M 1"_s);
    // Option 0, once on, stays on for that processor; a new processor starts without it.
    QVERIFY(lines.at(4).contains("\"processing\":[0,1,7]"));
    QCOMPARE(lines.at(5), QByteArray("{\"newProcessor\":true}"));
    QVERIFY(lines.at(6).contains("\"processing\":[1,7]"));
    QCOMPARE(run.exitCode, 1); // the last sale was refused
}

// A batch whose reader has stopped reading blocks on its output; the first signal asks it to
// stop, which it cannot do while blocked, and the second ends it.
void tst_Posctl::batchBlockedOnItsOutput()
{
    FakeClient client;
    QTemporaryDir dir;
    const QString fifo = dir.filePath(u"out"_s);
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const int reader = ::open(QFile::encodeName(fifo).constData(), O_RDONLY | O_NONBLOCK);
    QVERIFY(reader >= 0);
    QProcess process;
    process.setStandardOutputFile(fifo);
    process.start(QStringLiteral(POSCTL_PATH), {u"--dir"_s, client.directory(), u"batch"_s});
    QByteArray lines;
    for (int i = 0; i < 5000; ++i)
        lines += "set-dir " + client.directory().toUtf8() + '\n';
    process.write(lines);
    process.closeWriteChannel();
    // Blocked once the pipe holds all it can.
    const auto pending = [reader] {
        int bytes = 0;
        ::ioctl(reader, FIONREAD, &bytes);
        return bytes;
    };
    QTRY_VERIFY_WITH_TIMEOUT(pending() >= 60000, 30000);
    ::kill(pid_t(process.processId()), SIGINT);
    QByteArray errors;
    QTRY_VERIFY2_WITH_TIMEOUT(
        (errors += process.readAllStandardError()).contains("stops before its next line"),
        errors.constData(), 30000);
    ::kill(pid_t(process.processId()), SIGINT);
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitCode(), 130);
    ::close(reader);
}

void tst_Posctl::batchStopsAtBadLine_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("error");
    QTest::newRow("missing amount") << QByteArray("sale") << u"batch line 2 \"sale\": sale needs"_s;
    QTest::newRow("option the command does not take")
        << QByteArray("balance --rrn 5")
        << u"batch line 2 \"balance --rrn 5\": balance takes no option --rrn"_s;
    QTest::newRow("set-dir without a directory")
        << QByteArray("set-dir") << u"batch line 2 \"set-dir\": set-dir needs a directory"_s;
    QTest::newRow("binary bytes") << QByteArray("sale \x01\x02\x00z", 9)
                                  << u"batch line 2 \"sale \\x01\\x02\\0z\""_s;
    QTest::newRow("10 MB line quoted in part")
        << QByteArray(10 * 1024 * 1024, 'x')
        << u"batch line 2 \""_s + QString(80, u'x') + u"\"...: unknown command"_s;
}

void tst_Posctl::batchStopsAtBadLine()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, error);
    FakeClient client;
    const ProgramRun run =
        posctl({u"--dir"_s, client.directory(), u"batch"_s}, "options\n" + line + "\noptions\n");
    QCOMPARE(run.exitCode, 2);
    QCOMPARE(run.out.count('\n'), 1);
    QVERIFY2(QString::fromUtf8(run.err).startsWith(u"posctl: "_s + error),
             run.err.left(300).constData());
    QVERIFY(run.err.size() < 400);
}

// The log file is the engineer's alone, a client's line break cannot forge a line in it, and
// what posctl echoes of a batch line never holds the customer's code.
void tst_Posctl::logFileAndEchoesHoldNoCardData()
{
    FakeClient client;
    client.setConfig(fastConfig);
    client.setAnswer(R"({"Status":1,"TextResponse":"OK\n2026-11-23 10:00:00.000 INFO  inpas: )"
                     R"(Операция выполнена. Статус='1'"})");
    QTemporaryDir logDir;
    const QString log = logDir.filePath(u"day.log"_s);
    const QByteArray qr = "hQVDUFYwMWEmTwegAAAAAxAQVxFBEREREREREdJRIgEAAAAAD1oIQRERERERERE=";
    const ProgramRun run =
        posctl({u"--log"_s, log, u"--dir"_s, client.directory(), u"batch"_s},
               "sale 5 --customer-qr " + qr + "\nsale 5 --customer-qr \"" + qr + "\" --tip\n");
    QCOMPARE(run.exitCode, 2);
    QVERIFY2(run.err.contains("batch line 2 \"sale 5 --customer-qr <QR 64 bytes> --tip\""),
             run.err.constData());
    struct stat mode = {};
    QCOMPARE(::stat(QFile::encodeName(log).constData(), &mode), 0);
    QCOMPARE(mode.st_mode & 0777, 0600u);
    QFile file(log);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray lines = file.readAll();
    QVERIFY(!lines.contains(qr.left(16)) && !run.err.contains(qr.left(16)));
    QVERIFY2(lines.contains("Сообщение='OK\\n2026-11-23 10:00:00.000 INFO  inpas:") &&
                 !lines.contains("\n2026-11-23 10:00:00.000"),
             lines.constData());
}

void tst_Posctl::errors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QStringList &arguments, const char *message) {
        QTest::newRow(name) << arguments << QByteArray(message);
    };
    const auto plugin = [](const char *path) {
        return QStringList{u"--plugin"_s, QString::fromUtf8(path), u"options"_s};
    };
    row("missing plug-in", words("--plugin /nonexistent/x.so options"), "plug-in not found");
    row("wrong interface", plugin(WRONG_IID_PLUGIN_PATH), "is not an Inpas payment plug-in");
    row("no metadata", plugin(NO_METADATA_PLUGIN_PATH), "is not a Qt plug-in");
    row("unknown command", words("pay"), "unknown command");
    row("no command", {}, "no command");
    row("missing amount", words("sale"), "needs an amount");
    row("bad amount", words("sale 5.00"), "whole number");
    row("unknown option", words("sale 5 --tip"), "unknown option");
    row("bad time", words("sbp-pay 5 --form-time today"), "--form-time");
    row("batch-only command", words("new-processor"), "unknown command");
    row("request option on a service command", words("balance --customer-qr abc --type 7"),
        "balance takes no option --customer-qr");
    row("option of another command", words("options --day 2026-01-01 --rrn X --form-seq 3"),
        "options takes no option --day");
    row("merchant on a command without it", words("copy --merchant 1"),
        "copy takes no option --merchant");
    row("amount below 0 without --", words("sale -500"),
        "goes after --, as in: posctl sale -- -500");
    row("amount beyond 64 bits", words("sale 99999999999999999999"), "does not fit in 64 bits");
    row("customer code outside Latin-1", words("sale 5 --customer-qr КОД"), "Latin-1");
    row("log file that cannot be written", words("--log /nonexistent/day.log options"),
        "cannot append to the log file");
}

void tst_Posctl::errors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, message);
    const ProgramRun run = posctl(arguments);
    QCOMPARE(run.exitCode, 2);
    QVERIFY(run.out.isEmpty());
    QVERIFY2(run.err.startsWith("posctl: ") && run.err.contains(message), run.err.constData());
    QCOMPARE(run.err.count('\n'), 1);
}

QTEST_GUILESS_MAIN(tst_Posctl)
#include "tst_posctl.moc"
