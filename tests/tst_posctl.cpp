// posctl end to end: the real plug-in, loaded as the host loads it, against fake clients.

#include "fakeclient.h"
#include "programrun.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

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
    void humanOutput();
    void interruptAfter();
    void batch();
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

void tst_Posctl::humanOutput()
{
    FakeClient client;
    client.setConfig(fastConfig);
    client.setAnswer(R"({"Status":1,"TextResponse":"ОДОБРЕНО","CardType":"VISA",)"
                     R"("PAN":"************1234","ReceiptData":"0xDF^1^ЧЕК\nстрока~"})");
    const ProgramRun run = posctl({u"--dir"_s, client.directory(), u"sale"_s, u"100"_s});
    QCOMPARE(run.exitCode, 0);
    const QString out = QString::fromUtf8(run.out);
    QVERIFY(out.startsWith(u"ОДОБРЕНО\n"_s));
    QVERIFY(out.contains(u"VISA ************1234"_s));
    QVERIFY(out.contains(u"│ ЧЕК    │\n│ строка │"_s));
    QVERIFY(run.err.isEmpty()); // no log without -v, no progress bar without a terminal

    const ProgramRun verbose =
        posctl({u"-v"_s, u"--dir"_s, client.directory(), u"sale"_s, u"100"_s});
    QVERIFY(verbose.err.contains("Оплата/возврат"));
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

void tst_Posctl::batchStopsAtBadLine()
{
    FakeClient client;
    const ProgramRun run =
        posctl({u"--dir"_s, client.directory(), u"batch"_s}, "options\nsale\noptions\n");
    QCOMPARE(run.exitCode, 2);
    QCOMPARE(run.out.count('\n'), 1);
    QVERIFY(run.err.contains("needs an amount"));
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
