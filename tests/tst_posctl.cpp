// posctl end to end: the real plug-in, loaded as the host loads it, against fake clients.

#include "fakeclient.h"
#include "programrun.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

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
           "touch \"$R/ready.$n\"\nsleep 30 & wait\necho '{\"Status\":1}'";
}

} // namespace

class tst_Posctl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void options();
    void reconcileWithMerchant();
    void commandLines_data();
    void commandLines();
    void exitStatus_data();
    void exitStatus();
    void sbpPayment();
    void scanParams();
    void humanOutput_data();
    void humanOutput();
    void signals_data();
    void signals();
    void check_data();
    void check();
    void interruptAfter();
    void batch();
    void batchStopsAtBadLine_data();
    void batchStopsAtBadLine();
    void errors_data();
    void errors();
};

void tst_Posctl::options()
{
    FakeClient client;
    const ProgramRun run = posctl(withDir(client, {u"options"_s}));
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QByteArray("{\"payment\":[4,8,8192,32768,524288],\"processing\":[1,7],"
                                 "\"paymentEnable\":[1,2,3],\"cancelEnable\":[1]}\n"));

    client.setConfig("[Client]\nallowInterruptPayment=true\nscanTokenOnCancel=false\n");
    QCOMPARE(posctl(withDir(client, {u"options"_s})).json().value("processing"_L1).toArray(),
             (QJsonArray{0, 7}));
}

void tst_Posctl::reconcileWithMerchant()
{
    FakeClient client;
    client.setConfig(fastConfig);
    client.setAnswer(R"({"Status":1,"TextResponse":"Сверка итогов выполнена",)"
                     R"("ReceiptData":"0xDF^1^ИТОГИ~"})");
    const ProgramRun run = posctl(withDir(client, {u"reconcile"_s, u"--merchant"_s, u"1234567"_s}));
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(client.arguments(1), (QStringList{u"4"_s, u"-t"_s, u"1234567"_s}));
    QCOMPARE(client.workingDirectory(1), client.directory());
    QCOMPARE(run.out,
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
    QTest::newRow("sale") << QStringList{u"sale"_s, u"500"_s, u"--merchant"_s, u"M1"_s}
                          << QStringList{u"1"_s,  u"-a"_s, u"500"_s, u"-c"_s, u""_s,
                                         u"-e"_s, u"0"_s,  u"-o"_s,  u"0"_s,  u"-r"_s,
                                         u""_s,   u"-t"_s, u"M1"_s};
    QTest::newRow("sale with customer code")
        << QStringList{u"sale"_s, u"500"_s, u"--merchant"_s, u"M1"_s, u"--customer-qr"_s, qr}
        << QStringList{u"1"_s, u"-a"_s, u"500"_s, u"-c"_s, u""_s, u"-d"_s, payload, u"-e"_s,
                       u"0"_s, u"-o"_s, u"0"_s,   u"-r"_s, u""_s, u"-t"_s, u"M1"_s};
    QTest::newRow("currency 2 keeps the code back")
        << QStringList{u"sale"_s, u"500"_s, u"--customer-qr"_s, qr, u"--currency"_s, u"2"_s}
        << QStringList{u"1"_s,  u"-a"_s, u"500"_s, u"-c"_s, u""_s,   u"-e"_s, u"0"_s,
                       u"-o"_s, u"0"_s,  u"-r"_s,  u""_s,   u"-t"_s, u""_s};
    QTest::newRow("negative refund")
        << QStringList{u"refund"_s, u"--rrn"_s, u"R"_s, u"--auth"_s, u"A"_s, u"--"_s, u"-5"_s}
        << QStringList{u"2"_s,  u"-a"_s, u"-5"_s, u"-c"_s, u"A"_s,  u"-e"_s, u"0"_s,
                       u"-o"_s, u"0"_s,  u"-r"_s, u"R"_s,  u"-t"_s, u""_s};
    QTest::newRow("cancel") << QStringList{u"cancel"_s, u"0"_s}
                            << QStringList{u"3"_s,  u"-a"_s, u"0"_s,  u"-c"_s, u""_s,
                                           u"-e"_s, u"0"_s,  u"-o"_s, u"0"_s,  u"-r"_s,
                                           u""_s,   u"-t"_s, u""_s};
    QTest::newRow("report for an empty merchant")
        << QStringList{u"report"_s, u"--merchant"_s, u""_s} << QStringList{u"14"_s, u"-t"_s, u""_s};
    QTest::newRow("short report") << QStringList{u"short-report"_s} << QStringList{u"11"_s};
    QTest::newRow("copy") << QStringList{u"copy"_s} << QStringList{u"12"_s};
    QTest::newRow("balance") << QStringList{u"balance"_s} << QStringList{u"15"_s};
    QTest::newRow("reconcile") << QStringList{u"reconcile"_s} << QStringList{u"4"_s};
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

void tst_Posctl::exitStatus_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("approved") << QByteArray(R"({"Status":1})") << 0;
    QTest::newRow("refused") << QByteArray(R"({"Status":16})") << 1;
    QTest::newRow("not enough balance")
        << QByteArray(R"({"Status":16,"ResponseCodeHost":51})") << 3;
}

void tst_Posctl::exitStatus()
{
    QFETCH(QByteArray, answer);
    FakeClient client;
    client.setConfig(fastConfig + "[ErrorCodes]\nnotEnoughtBalanceCode=51\n");
    client.setAnswer(answer);
    QTEST(posctl(withDir(client, {u"sale"_s, u"100"_s})).exitCode, "exitCode");
}

void tst_Posctl::sbpPayment()
{
    FakeClient client;
    client.setConfig(fastConfig);
    client.setAnswers(
        {R"({"Status":0})", R"({"Status":0})", R"({"Status":1,"AuthorizationCode":"777"})"});
    const ProgramRun run = posctl(withDir(
        client, {u"sbp-pay"_s, u"1000"_s, u"--form-text"_s, u"1"_s, u"--form-number"_s, u"12"_s,
                 u"--form-seq"_s, u"345"_s, u"--form-time"_s, u"2024-03-05T14:07:09"_s}));
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(client.runCount(), 3);
    const QJsonObject answer = run.json();
    QCOMPARE(answer.value("authorizationCode"_L1).toString(), u"0100120000345050324140709"_s);
    QCOMPARE(answer.value("referenceNumber"_L1).toString(), u"777"_s);
    QCOMPARE(answer.value("additionalData"_L1).toString(), u"{\"paymentMethod\":\"SbpPinPad\"}"_s);
}

// Every field of the dialog's record, in order, as the host gets it from the loaded plug-in,
// and the picture as Qt's resource system reads it.
void tst_Posctl::scanParams()
{
    FakeClient client;
    const ProgramRun run = posctl(withDir(client, {u"scan-params"_s}));
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(
        QString::fromUtf8(run.out),
        uR"({"manualInput":false,"hideInput":false,)"
        uR"("title":{"id":"inpasScanTitle","text":"Сканирование QR"},)"
        uR"("message":{"id":"inpasScanMessage","text":"Отсканируйте QR-код"},)"
        uR"("errorMessage":{"id":"inpasScanError","text":"Ошибка считывания кода,\nповторите сканирование"},)"
        uR"("patterns":["hQVDUFY.*"],"imagePath":":/inpas/scan_token.png",)"
        uR"("image":{"readable":true,"width":453,"height":350},"showOkButton":false,)"
        uR"("okButton":{"id":"markingCodeScanButtonOk","text":"Без маркировки"},)"
        uR"("cancelButtonText":{"id":"cancelButton","text":"Отмена"},"repeatOnError":false,)"
        uR"("maxAttempts":6,"timeoutSeconds":3,"replacements":{},"modal":true,)"
        uR"("fullScreen":false,"styleSheet":"background-color: rgb(255, 53, 53);",)"
        uR"("showCancelButton":true,"hint":{"id":"","text":""}})"
        u"\n"_s);
}

void tst_Posctl::humanOutput_data()
{
    QTest::addColumn<QByteArray>("client"); // shell code; empty: no client at all
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("out");
    QTest::addColumn<QStringList>("err");
    QTest::addColumn<int>("exitCode");

    const QStringList sale{u"sale"_s, u"150000"_s};
    QTest::newRow("approved with a slip")
        << QByteArray(R"(echo '{"Status":1,"TextResponse":"ОДОБРЕНО","CardType":"VISA",)"
                      R"("PAN":"************1234","ReceiptData":"0xDF^1^ЧЕК\nстрока~"}')")
        << sale
        << QStringList{u"ОДОБРЕНО\n"_s, u"1500.00 (150000 in minor units)"_s,
                       u"VISA ************1234"_s, u"│ ЧЕК    │\n│ строка │"_s}
        << QStringList{} << 0;
    QTest::newRow("every character shown")
        << QByteArray(R"(echo '{"Status":1,"TextResponse":"OK\r","ReceiptData":)"
                      R"("0xDF^^a\u0000b\u001b[31m~0xDA^^second~"}')")
        << sale << QStringList{u"OK\\r\n"_s, u"a\\0b\\e[31m"_s, u"│ second │"_s} << QStringList{}
        << 0;
    QTest::newRow("silent non-zero exit")
        << QByteArray("exit 1") << sale
        << QStringList{u"(no message)\n  (the payment client ended with status 1 and wrote nothing)"_s}
        << QStringList{} << 1;
    QTest::newRow("long standard error cut")
        << QByteArray("seq 100000 >&2; exit 1") << sale
        << QStringList{u"\n20\n... (588844 more characters in 99980 more lines not shown"_s}
        << QStringList{} << 1;
    QTest::newRow("no client") << QByteArray() << sale << QStringList{}
                               << QStringList{u"there is no payment client"_s} << 1;
    QTest::newRow("command line too long")
        << QByteArray("echo '{}'")
        << QStringList{u"sale"_s, u"1"_s, u"--customer-qr"_s, QString(100000, u'Q')}
        << QStringList{} << QStringList{u"(argument list too long)"_s} << 1;
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
    QFETCH(QStringList, err);
    QTEST(run.exitCode, "exitCode");
    const QString output = QString::fromUtf8(run.out);
    const QString errors = QString::fromUtf8(run.err);
    for (const QString &text : out)
        QVERIFY2(output.contains(text), qPrintable(output.left(2000)));
    for (const QString &text : err)
        QVERIFY2(errors.contains(text), qPrintable(errors.left(2000)));
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
    QTest::addColumn<bool>("answersInterrupt");
    QTest::addColumn<QList<int>>("signalsSent");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");

    QTest::newRow("SIGTERM: the answer is awaited and shown")
        << false << true << QList<int>{SIGTERM} << 1 << u"\"status\":53"_s
        << u"SIGTERM: asking the terminal to interrupt"_s;
    QTest::newRow("second Ctrl+C: outcome unknown")
        << false << false << QList<int>{SIGINT, SIGINT} << 4 << u""_s
        << u"the outcome of the operation is unknown: the payment client (process "_s;
    QTest::newRow("no answer within 10 s: outcome unknown")
        << false << false << QList<int>{SIGHUP} << 4 << u""_s
        << u"did not end within 10 s of the signal"_s;
    QTest::newRow("batch stops after its line")
        << true << true << QList<int>{SIGINT} << 130 << u"\"status\":53"_s
        << u"after line 1; these did not run: line 2 \"sale 2\", line 3 \"balance\""_s;
}

// posctl never ends silently while its client runs, and never leaves one behind unreported.
void tst_Posctl::signals()
{
    QFETCH(bool, batch);
    QFETCH(bool, answersInterrupt);
    QFETCH(QList<int>, signalsSent);
    FakeClient client;
    client.setConfig(fastConfig);
    client.setBehaviour(waitingClient(answersInterrupt));
    QProcess process;
    process.start(
        QStringLiteral(POSCTL_PATH),
        withDir(client, batch ? QStringList{u"batch"_s} : QStringList{u"sale"_s, u"1"_s}));
    process.write("sale 1\nsale 2\nbalance\n");
    QVERIFY(process.waitForBytesWritten());
    process.closeWriteChannel();
    QVERIFY(client.waitForRecord(u"ready.1"_s));
    for (int signal : signalsSent) {
        ::kill(pid_t(process.processId()), signal);
        QTest::qWait(300);
    }
    QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, 20000);
    QFETCH(QString, out);
    QFETCH(QString, err);
    QTEST(process.exitCode(), "exitCode");
    const QString output = QString::fromUtf8(process.readAllStandardOutput());
    const QString errors = QString::fromUtf8(process.readAllStandardError());
    QVERIFY2(output.contains(out), qPrintable(output));
    QVERIFY2(errors.contains(err), qPrintable(errors));
    // The report names the running client, which the test then ends.
    const QRegularExpressionMatch running =
        QRegularExpression(u"process (\\d+)\\)"_s).match(errors);
    if (running.hasMatch()) {
        QVERIFY(errors.contains(client.directory()));
        QCOMPARE(::kill(pid_t(running.captured(1).toInt()), SIGKILL), 0);
    }
    QCOMPARE(client.runCount(), 1);
}

void tst_Posctl::check_data()
{
    QTest::addColumn<QString>("client"); // "script", "none", "plain file", "python9"
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<QString>("problem");
    QTest::addColumn<int>("exitCode");

    const QString script = u"script"_s;
    QTest::newRow("all is well") << script << QByteArray("[Client]\nintervalBetweenOperations=1\n")
                                 << u""_s << 0;
    QTest::newRow("no client") << u"none"_s << QByteArray() << u"there is no payment client"_s << 1;
    QTest::newRow("client not executable")
        << u"plain file"_s << QByteArray() << u"is not executable"_s << 1;
    QTest::newRow("interpreter missing")
        << u"python9"_s << QByteArray() << u"whose interpreter /usr/bin/python9 is missing"_s << 1;
    QTest::newRow("line that does not parse")
        << script << QByteArray("[Client]\nintervalBetweenOperations 5\n")
        << u"zelnorinpas.conf, line 2: not a setting"_s << 1;
    QTest::newRow("key the plug-in does not read")
        << script << QByteArray("[ErrorCodes]\nnotEnoughBalanceCode=51\n")
        << u"line 2: the plug-in does not read notEnoughBalanceCode; did you mean "
           u"notEnoughtBalanceCode?"_s
        << 1;
    QTest::newRow("key in the wrong group")
        << script << QByteArray("[Client]\nnotEnoughtBalanceCode=51\n")
        << u"notEnoughtBalanceCode belongs in [ErrorCodes], not in [Client]"_s << 1;
    QTest::newRow("value that does not parse")
        << script << QByteArray("[ErrorCodes]\nnotEnoughtBalanceCode=fifty-one\n")
        << u"notEnoughtBalanceCode=fifty-one is not a whole number"_s << 1;
    QTest::newRow("interval below 0")
        << script << QByteArray("[Client]\nintervalBetweenOperations=-1\n")
        << u"intervalBetweenOperations=-1 is below 0"_s << 1;
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
    const ProgramRun run = posctl({u"--dir"_s, fake.directory(), u"check"_s});
    QTEST(run.exitCode, "exitCode");
    QVERIFY2(QString::fromUtf8(run.out).contains(problem), run.out.constData());
    // The settings in effect, defaults marked.
    QVERIFY(run.out.contains("Client/scanTokenOnCancel                 true  (default)\n"));
    const QJsonObject json = posctl(withDir(fake, {u"check"_s})).json();
    QCOMPARE(json.value("ok"_L1).toBool(), problem.isEmpty());
    QCOMPARE(json.value("settings"_L1).toArray().size(), 7);
}

void tst_Posctl::interruptAfter()
{
    FakeClient client;
    client.setConfig(fastConfig);
    client.setBehaviour("trap 'echo {\\\"Status\\\":53}; exit 0' INT\nsleep 10 & wait");
    const ProgramRun run =
        posctl(withDir(client, {u"--interrupt-after"_s, u"1000"_s, u"sale"_s, u"1"_s}));
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.json().value("message"_L1).toObject().value("text"_L1).toString(),
             u"Операция прервана"_s);
}

void tst_Posctl::batch()
{
    FakeClient first;
    first.setConfig(fastConfig);
    first.setAnswer(R"({"Status":1})");
    FakeClient second;
    second.setConfig(fastConfig + "allowInterruptPayment=true\n");
    second.setAnswer(R"({"Status":16})");
    const QByteArray input = "# a day\n"
                             "options\n"
                             "\n"
                             "set-dir \"" +
                             first.directory().toUtf8() +
                             "\"\n"
                             "sale 100 --merchant \"M 1\"\n"
                             "set-dir " +
                             second.directory().toUtf8() +
                             "\n"
                             "options\n"
                             "new-processor\n"
                             "options\n"
                             "set-dir " +
                             second.directory().toUtf8() +
                             "\n"
                             "sale 5\n";
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

void tst_Posctl::batchStopsAtBadLine_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("error");
    QTest::newRow("missing amount") << QByteArray("sale") << u"batch line 2 \"sale\": sale needs"_s;
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

void tst_Posctl::errors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("missing plug-in")
        << QStringList{u"--plugin"_s, u"/nonexistent/x.so"_s, u"options"_s}
        << QByteArray("plug-in not found");
    QTest::newRow("wrong interface")
        << QStringList{u"--plugin"_s, QStringLiteral(WRONG_IID_PLUGIN_PATH), u"options"_s}
        << QByteArray("is not an Inpas payment plug-in");
    QTest::newRow("no metadata") << QStringList{u"--plugin"_s,
                                                QStringLiteral(NO_METADATA_PLUGIN_PATH),
                                                u"options"_s}
                                 << QByteArray("is not a Qt plug-in");
    QTest::newRow("unknown command") << QStringList{u"pay"_s} << QByteArray("unknown command");
    QTest::newRow("no command") << QStringList{} << QByteArray("no command");
    QTest::newRow("missing amount") << QStringList{u"sale"_s} << QByteArray("needs an amount");
    QTest::newRow("bad amount") << QStringList{u"sale"_s, u"5.00"_s} << QByteArray("whole number");
    QTest::newRow("unknown option")
        << QStringList{u"sale"_s, u"5"_s, u"--tip"_s} << QByteArray("unknown option");
    QTest::newRow("bad time") << QStringList{u"sbp-pay"_s, u"5"_s, u"--form-time"_s, u"today"_s}
                              << QByteArray("--form-time");
    QTest::newRow("batch-only command")
        << QStringList{u"new-processor"_s} << QByteArray("unknown command");
    QTest::newRow("amount below 0 without --")
        << QStringList{u"sale"_s, u"-500"_s}
        << QByteArray("goes after --, as in: posctl sale -- -500");
    QTest::newRow("amount beyond 64 bits") << QStringList{u"sale"_s, u"99999999999999999999"_s}
                                           << QByteArray("does not fit in 64 bits");
    QTest::newRow("customer code outside Latin-1")
        << QStringList{u"sale"_s, u"5"_s, u"--customer-qr"_s, u"КОД"_s} << QByteArray("Latin-1");
    QTest::newRow("log file that cannot be written")
        << QStringList{u"--log"_s, u"/nonexistent/day.log"_s, u"options"_s}
        << QByteArray("cannot append to the log file");
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
