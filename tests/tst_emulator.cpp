// The terminal emulator, as the plug-in reads it through posctl, and its own command line.

#include "till.h"
#include "words.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::Literals::StringLiterals;
using Commands = QList<QStringList>;

class tst_Emulator : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cardReadThatDoesNotAnswer();
    void badCommandLines_data();
    void badCommandLines();
    void days_data();
    void days();
    void oneDeviceForConcurrentClients();
    void journalProblems_data();
    void journalProblems();
};

// SIGINT ends a card read with 53, well before the minute the read would take; an amount
// ending in 91 hangs until it is killed.
void tst_Emulator::cardReadThatDoesNotAnswer()
{
    const Till till(60000);
    QElapsedTimer clock;
    clock.start();
    const ProgramRun run = till.posctl({u"--interrupt-after"_s, u"1000"_s, u"sale"_s, u"1000"_s});
    QVERIFY(clock.elapsed() < 30000);
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.json().value("status"_L1).toInt(), 53);
    QCOMPARE(run.message(), u"ОПЕРАЦИЯ ПРЕРВАНА"_s);

    const Till quick;
    QProcess client;
    client.setWorkingDirectory(quick.directory());
    client.start(quick.directory() + u"/zelnorinpas"_s, words("1 -a 10091"));
    QVERIFY(client.waitForStarted());
    QVERIFY(!client.waitForFinished(300)); // its card read takes 20 ms
}

void tst_Emulator::badCommandLines_data()
{
    QTest::addColumn<QStringList>("arguments");
    const auto row = [](const char *name, const char *arguments) {
        QTest::newRow(name) << words(arguments);
    };
    row("nothing", "");
    row("unknown code", "99");
    row("code not a number", "x");
    row("option without value", "1 -a");
    row("unknown option", "4 -x 5");
    row("amount not a number", "1 -a abc");
    row("SBP function of another operation", "4 -f paymentSbp");
    row("unknown SBP function", "1 -f pay");
    row("help", "--help");
}

void tst_Emulator::badCommandLines()
{
    QFETCH(QStringList, arguments);
    const Till till;
    const ProgramRun run = till.client(arguments);
    if (arguments == words("--help")) {
        QCOMPARE(run.exitCode, 0);
        QVERIFY(run.out.startsWith("Usage: zelnorinpas CODE"));
        return;
    }
    QCOMPARE(run.exitCode, 2);
    QVERIFY(run.out.isEmpty());
    QCOMPARE(run.err.count('\n'), 1);
    QVERIFY(QString::fromUtf8(run.err).contains(QRegularExpression(u"[А-Яа-я]"_s)));
}

void tst_Emulator::days_data()
{
    QTest::addColumn<Commands>("commands"); // the last one is judged
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QStringList>("slipHas");
    QTest::addColumn<QString>("field"); // a field of the answer, and its value
    QTest::addColumn<QString>("value");
    const auto row = [](const char *name, const Commands &commands, int exitCode,
                        const QString &message, const QStringList &slipHas = {},
                        const QString &field = {}, const QString &value = {}) {
        QTest::newRow(name) << commands << exitCode << message << slipHas << field << value;
    };
    const auto one = [](const char *command) { return Commands{words(command)}; };
    const QStringList sale = words("sale 150000 --merchant M1");
    const QString approved = u"ОДОБРЕНО"_s;
    const QString invalid = u"НЕВЕРНАЯ СУММА"_s;
    const QStringList bothCopies{u"МЕРЧАНТ:"_s + QString(30, u' ') + u"M1"_s, u"КОПИЯ ПРОДАВЦА"_s};

    // The last two digits of the amount choose the outcome.
    row("sale approved", {sale}, 0, approved, bothCopies, u"cardType"_s, u"MIR"_s);
    row("refund approved", one("refund 50000 --merchant M1"), 0, approved, bothCopies);
    row("cancel approved", one("cancel 150000 --merchant M1"), 0, approved, bothCopies);
    row("05 refused", one("sale 250005"), 1, u"ОТКАЗ"_s, {u"КОД ОТВЕТА:"_s}, u"status"_s, u"16"_s);
    row("51 not enough money", one("sale 10051"), 3, u"НЕДОСТАТОЧНО СРЕДСТВ"_s, {}, u"status"_s,
        u"16"_s);
    row("34 no connection", one("sale 10034"), 1, u"Нет соединения"_s, {}, u"status"_s, u"34"_s);
    row("53 interrupted", one("refund 10053"), 1, u"Операция прервана"_s, {}, u"status"_s, u"53"_s);
    row("96 no PIN pad", one("sale 10096"), 1, u"Нет связи с пин-падом\n"_s, {}, u"status"_s,
        u"-1"_s);
    row("97 not JSON", one("sale 10097"), 1, u"Транзакция не выполнена"_s, {}, u"status"_s, u"0"_s);
    // A client that did not end by itself: the outcome is unknown, not a failure to retry.
    row("98 crash", one("sale 10098"), 4, u"Ошибка процесса оплаты"_s);

    row("reconciliation of the day",
        {words("sale 150000"), words("sale 250005"), words("refund 50000"), words("sbp-pay 99900"),
         words("sale 30000 --merchant M2"), words("reconcile --merchant M2"), words("reconcile")},
        0, u"ИТОГИ СОВПАЛИ"_s,
        {u"ОПЛАТА      2 шт.                2499.00"_s,
         u"ВОЗВРАТ     1 шт.                 500.00"_s,
         u"ИТОГО:                           1999.00"_s,
         // One merchant's reconciliation does not end the period of all.
         u"ПЕРИОД:"_s + QString(32, u' ') + u'1'});
    row("reconciliation of one entity",
        {sale, words("sale 30000 --merchant M2"), words("reconcile --merchant M2")}, 0,
        u"ИТОГИ СОВПАЛИ"_s, {u"ИТОГО:                            300.00"_s});
    row("a new period starts empty", {sale, words("reconcile"), words("reconcile")}, 0,
        u"ИТОГИ СОВПАЛИ"_s, {u"НЕТ ОПЕРАЦИЙ"_s});
    row("reports do not end the period",
        {words("sale 12300"), words("sale 45600"), words("report"), words("short-report")}, 0,
        u"ОТЧЕТ СФОРМИРОВАН"_s, {u"579.00"_s});
    row("nothing to copy", one("copy"), 1, u"НЕТ СЛИПА ДЛЯ КОПИИ"_s);
    row("copy of the last slip", {words("sale 12300"), words("sale 45600"), words("copy")}, 0,
        approved, {u"*** КОПИЯ ***"_s, u"456.00"_s});
    row("balance", one("balance"), 0, u"ЗАПРОС ВЫПОЛНЕН"_s, {}, u"accountBalance"_s, u"100000"_s);

    const QStringList form =
        words("--form-text 1 --form-number 12 --form-seq 345 --form-time 2024-03-05T14:07:09");
    row("SBP payment open for two queries", {words("-v sbp-pay 99900") + form}, 0, approved,
        {u"ОПЛАТА СБП"_s}, u"status queries"_s, u"3"_s);
    row("SBP payment carries its form identifier", {words("sbp-pay 99900") + form}, 0, approved, {},
        u"authorizationCode"_s, u"0100120000345050324140709"_s);
    row("SBP refund", one("sbp-refund 99900 --rrn RRN"), 0, approved, {u"ВОЗВРАТ СБП"_s},
        u"additionalData"_s, u"{\"paymentMethod\":\"SbpPinPad\"}"_s);
    row("SBP payment refused", one("sbp-pay 10005"), 1, u"ОТКАЗ"_s);

    // What a terminal refuses.
    const auto ofFirstSale = [](const char *command) {
        return words(command) + words("--rrn 000000000001");
    };
    row("refused: amount 0", one("sale 0"), 1, invalid);
    row("refused: amount below 0", one("refund -- -500"), 1, invalid);
    row("refused: totals would overflow", {sale, words("sale 9223372036854775800 --merchant M1")},
        1, invalid);
    row("refused: refund of an unknown sale", {ofFirstSale("refund 100")}, 1,
        u"ОПЕРАЦИЯ НЕ НАЙДЕНА"_s);
    row("refused: refund beyond what is left",
        {sale, ofFirstSale("refund 100000"), ofFirstSale("refund 100000")}, 1,
        u"СУММА ПРЕВЫШАЕТ ОСТАТОК ОПЛАТЫ"_s);
    row("refused: second cancel",
        {sale, ofFirstSale("cancel 150000"), ofFirstSale("cancel 150000")}, 1,
        u"ОПЕРАЦИЯ УЖЕ ОТМЕНЕНА"_s);
    // The sale took the day's first card; the refund, third of the day, would take another.
    row("refund goes back to the sale's card", {sale, words("sale 600"), ofFirstSale("refund 100")},
        0, approved, {u"MIR ************4571"_s}, u"pan"_s, u"************4571"_s);
}

// A till's day through posctl: each row's commands run in order on one terminal, and the
// answer to the last one is judged. Every answer shows only masked card numbers, and no slip
// line is wider than 40 columns, long merchant names included.
void tst_Emulator::days()
{
    QFETCH(Commands, commands);
    QFETCH(QStringList, slipHas);
    QFETCH(QString, field);
    QFETCH(QString, value);
    const Till till;
    ProgramRun run;
    for (const QStringList &command : commands)
        run = till.posctl(command);
    QTEST(run.exitCode, "exitCode");
    QTEST(run.message(), "message");
    for (const QString &text : slipHas)
        QVERIFY2(run.slips().contains(text), qPrintable(run.slips()));
    if (field == "status queries"_L1)
        QCOMPARE(QString::number(run.err.count("-f paymentStatusSbp")), value);
    else if (!field.isEmpty())
        QCOMPARE(run.json().value(field).toVariant().toString(), value);
    const QString pan = run.json().value("pan"_L1).toString();
    QVERIFY2(pan.isEmpty() || QRegularExpression(u"^\\*{12}\\d{4}$"_s).match(pan).hasMatch(),
             qPrintable(pan));
    for (const QString &line : run.slips().split(u'\n'))
        QVERIFY2(line.size() <= 40, qPrintable(line));
}

// Eight tills on one terminal at once: each operation is served whole, in turn.
void tst_Emulator::oneDeviceForConcurrentClients()
{
    const Till till;
    QList<QProcess *> tills;
    for (int i = 1; i <= 8; ++i) {
        auto *process = new QProcess(this);
        process->start(QStringLiteral(POSCTL_PATH), {u"--json"_s, u"--dir"_s, till.directory(),
                                                     u"sale"_s, u"%1"_s.arg(i * 100)});
        tills.append(process);
    }
    QSet<QString> references;
    for (QProcess *process : std::as_const(tills)) {
        QVERIFY(process->waitForFinished(60000));
        const QJsonObject answer =
            QJsonDocument::fromJson(process->readAllStandardOutput()).object();
        QCOMPARE(answer.value("result"_L1).toInt(), 0);
        references.insert(answer.value("referenceNumber"_L1).toString());
    }
    QCOMPARE(references.size(), 8);
    const ProgramRun totals = till.posctl({u"reconcile"_s});
    QVERIFY2(totals.slips().contains(u"ОПЛАТА      8 шт.                  36.00"_s),
             qPrintable(totals.slips()));
}

void tst_Emulator::journalProblems_data()
{
    QTest::addColumn<QByteArray>("journal"); // "dir": a directory in its place
    QTest::addColumn<bool>("sizeLimit");     // the client may not write files
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("reference");

    QTest::newRow("cannot be read")
        << QByteArray("{\"sequence\": 1, garbage") << false << u"повреждён"_s << u""_s;
    QTest::newRow("a directory in its place")
        << QByteArray("dir") << false << u"не читается"_s << u""_s;
    QTest::newRow("cannot be saved") << QByteArray(R"({"sequence":5,"period":1,"entries":[]})")
                                     << true << u"не удалось сохранить журнал"_s << u""_s;
    QTest::newRow("largest 32-bit sequence")
        << QByteArray(R"({"sequence":2147483647,"period":1,"entries":[]})") << false
        << u"ОДОБРЕНО"_s << u"002147483648"_s;
    QTest::newRow("largest sequence wraps to 1")
        << QByteArray(R"({"sequence":9223372036854775807,"period":1,"entries":[]})") << false
        << u"ОДОБРЕНО"_s << u"000000000001"_s;
    QTest::newRow("12-digit reference wraps")
        << QByteArray(R"({"sequence":999999999999,"period":1,"entries":[]})") << false
        << u"ОДОБРЕНО"_s << u"000000000001"_s;
    QTest::newRow("whole card numbers of an older journal")
        << QByteArray(R"({"sequence":5,"period":1,"lastSlip":"КАРТА 4276 1234 5678 1235",)"
                      R"("entries":[{"operation":"sale","amount":100,"pan":"4276123456781235",)"
                      R"("referenceNumber":"000000000005","time":"2026-11-24T10:00:00"}]})")
        << false << u"ОДОБРЕНО"_s << u"000000000006"_s;
}

// A journal that cannot be read or saved refuses the operation and stays as it was; the
// numbers never turn negative.
void tst_Emulator::journalProblems()
{
    QFETCH(QByteArray, journal);
    QFETCH(bool, sizeLimit);
    QFETCH(QString, reference);
    const Till till;
    if (journal == "dir") {
        QVERIFY(QDir(till.directory()).mkdir(u"zelnorinpas-journal.json"_s));
    } else {
        QFile file(till.journalPath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(journal);
    }
    if (sizeLimit) {
        QDir dir(till.directory());
        QVERIFY(dir.rename(u"zelnorinpas"_s, u"emulator"_s));
        QFile wrapper(dir.filePath(u"zelnorinpas"_s));
        QVERIFY(wrapper.open(QIODevice::WriteOnly));
        wrapper.write("#!/bin/sh\nulimit -f 0\nexec ./emulator \"$@\"\n");
        wrapper.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    }
    const ProgramRun run = till.posctl({u"sale"_s, u"500"_s});
    QFETCH(QString, message);
    QVERIFY2(run.message().contains(message), qPrintable(run.message()));
    QCOMPARE(run.json().value("referenceNumber"_L1).toString(), reference);
    QFile file(till.journalPath());
    if (reference.isEmpty() && journal != "dir") {
        QCOMPARE(run.exitCode, 1);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), journal);
    } else if (journal != "dir") {
        // What the emulator saves is masked, whatever it read.
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray saved = file.readAll();
        QVERIFY2(!QRegularExpression(u"4276\\D?1234"_s).match(QString::fromUtf8(saved)).hasMatch(),
                 saved.constData());
    }
}

QTEST_GUILESS_MAIN(tst_Emulator)
#include "tst_emulator.moc"
