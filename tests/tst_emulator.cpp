// The terminal emulator, as the plug-in reads it through posctl, and its own command line.

#include "programrun.h"

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

namespace {

// A fresh copy of the processing directory that the build lays out, made quick.
class Till
{
public:
    explicit Till(int readDelayMs = 20)
    {
        const QDir source(QStringLiteral(EMULATOR_DIR));
        QFile::copy(source.filePath(u"zelnorinpas"_s), m_dir.filePath(u"zelnorinpas"_s));
        QFile config(source.filePath(u"zelnorinpas.conf"_s));
        config.open(QIODevice::ReadOnly);
        QByteArray text = config.readAll();
        text.replace("intervalBetweenOperations=1", "intervalBetweenOperations=0");
        text.replace("readDelayMs=1000",
                     QByteArray("readDelayMs=" + QByteArray::number(readDelayMs)));
        // Long enough to wrap on every slip.
        text.replace("merchantName=", "merchantName=Общество с ограниченной ответственностью ");
        QFile copy(m_dir.filePath(u"zelnorinpas.conf"_s));
        copy.open(QIODevice::WriteOnly);
        copy.write(text);
    }

    QString directory() const { return m_dir.path(); }
    QString journalPath() const { return m_dir.filePath(u"zelnorinpas-journal.json"_s); }

    ProgramRun posctl(const QStringList &arguments) const
    {
        return ProgramRun::run(QStringLiteral(POSCTL_PATH),
                               QStringList{u"--json"_s, u"--dir"_s, m_dir.path()} + arguments,
                               m_dir.path());
    }
    ProgramRun client(const QStringList &arguments) const
    {
        return ProgramRun::run(m_dir.filePath(u"zelnorinpas"_s), arguments, m_dir.path());
    }

private:
    QTemporaryDir m_dir;
};

} // namespace

class tst_Emulator : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void testAmounts_data();
    void testAmounts();
    void hangsUntilKilled();
    void interruptedCardRead();
    void dayAndReconciliation();
    void reportsCopyAndBalance();
    void sbpStaysOpen();
    void badCommandLines_data();
    void badCommandLines();
    void refusals_data();
    void refusals();
    void oneDeviceForConcurrentClients();
    void journalProblems_data();
    void journalProblems();
};

void tst_Emulator::testAmounts_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("amount");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("message");
    QTest::addColumn<int>("slips");

    QTest::newRow("sale approved") << u"sale"_s << u"150000"_s << 1 << 0 << u"ОДОБРЕНО"_s << 2;
    QTest::newRow("refund approved") << u"refund"_s << u"50000"_s << 1 << 0 << u"ОДОБРЕНО"_s << 2;
    QTest::newRow("cancel approved") << u"cancel"_s << u"150000"_s << 1 << 0 << u"ОДОБРЕНО"_s << 2;
    QTest::newRow("05 refused") << u"sale"_s << u"250005"_s << 16 << 1 << u"ОТКАЗ"_s << 1;
    QTest::newRow("51 not enough money")
        << u"sale"_s << u"10051"_s << 16 << 3 << u"НЕДОСТАТОЧНО СРЕДСТВ"_s << 1;
    QTest::newRow("34 no connection")
        << u"sale"_s << u"10034"_s << 34 << 1 << u"Нет соединения"_s << 0;
    QTest::newRow("53 interrupted")
        << u"refund"_s << u"10053"_s << 53 << 1 << u"Операция прервана"_s << 0;
    QTest::newRow("96 no PIN pad")
        << u"sale"_s << u"10096"_s << -1 << 1 << u"Нет связи с пин-падом\n"_s << 0;
    QTest::newRow("97 not JSON") << u"sale"_s << u"10097"_s << 0 << 1
                                 << u"Транзакция не выполнена"_s << 0;
    QTest::newRow("98 crash") << u"sale"_s << u"10098"_s << -1 << 1 << u"Ошибка процесса оплаты"_s
                              << 0;
}

void tst_Emulator::testAmounts()
{
    QFETCH(QString, command);
    QFETCH(QString, amount);
    const Till till;
    const ProgramRun run = till.posctl({command, amount, u"--merchant"_s, u"M1"_s});
    const QJsonObject answer = run.json();
    QTEST(answer.value("status"_L1).toInt(), "status");
    QTEST(answer.value("result"_L1).toInt(), "result");
    QTEST(run.message(), "message");
    QTEST(int(answer.value("slips"_L1).toArray().size()), "slips");
    const QString pan = answer.value("pan"_L1).toString();
    QVERIFY2(pan.isEmpty() || QRegularExpression(u"^\\*{12}\\d{4}$"_s).match(pan).hasMatch(),
             qPrintable(pan));
    if (answer.value("result"_L1).toInt() == 0) {
        QVERIFY(!answer.value("cardType"_L1).toString().isEmpty());
        QVERIFY(!answer.value("authorizationCode"_L1).toString().isEmpty());
        QVERIFY(run.slips().contains(u"МЕРЧАНТ:"_s + QString(30, u' ') + u"M1"_s));
        for (const QJsonValue &slip : answer.value("slips"_L1).toArray())
            for (const QString &line : slip.toString().split(u'\n'))
                QVERIFY2(line.size() <= 40, qPrintable(line));
    }
}

void tst_Emulator::hangsUntilKilled()
{
    const Till till;
    QProcess client;
    client.setWorkingDirectory(till.directory());
    client.start(till.directory() + u"/zelnorinpas"_s,
                 {u"1"_s, u"-a"_s, u"10091"_s, u"-t"_s, u"M1"_s});
    QVERIFY(client.waitForStarted());
    QVERIFY(!client.waitForFinished(800));
    client.kill();
    QVERIFY(client.waitForFinished());
}

void tst_Emulator::interruptedCardRead()
{
    const Till till(5000);
    QElapsedTimer clock;
    clock.start();
    const ProgramRun run = till.posctl({u"--interrupt-after"_s, u"1000"_s, u"sale"_s, u"1000"_s});
    QVERIFY(clock.elapsed() < 4000);
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.json().value("status"_L1).toInt(), 53);
    QCOMPARE(run.message(), u"ОПЕРАЦИЯ ПРЕРВАНА"_s);
}

void tst_Emulator::dayAndReconciliation()
{
    const Till till;
    QCOMPARE(till.posctl({u"sale"_s, u"150000"_s}).exitCode, 0);
    QCOMPARE(till.posctl({u"sale"_s, u"250005"_s}).exitCode, 1);
    QCOMPARE(till.posctl({u"refund"_s, u"50000"_s}).exitCode, 0);
    QCOMPARE(till.posctl({u"sbp-pay"_s, u"99900"_s}).exitCode, 0);
    QCOMPARE(till.posctl({u"sale"_s, u"30000"_s, u"--merchant"_s, u"M2"_s}).exitCode, 0);

    // One entity first: only its operations, and they leave the period.
    ProgramRun run = till.posctl({u"reconcile"_s, u"--merchant"_s, u"M2"_s});
    QCOMPARE(run.exitCode, 0);
    QVERIFY(run.slips().contains(u"ИТОГО:                            300.00"_s));
    QVERIFY(!run.slips().contains(u"2499.00"_s));

    run = till.posctl({u"reconcile"_s});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.message(), u"ИТОГИ СОВПАЛИ"_s);
    const QString slip = run.slips();
    QVERIFY2(slip.contains(u"ОПЛАТА      2 шт.                2499.00"_s), qPrintable(slip));
    QVERIFY(slip.contains(u"ВОЗВРАТ     1 шт.                 500.00"_s));
    QVERIFY(slip.contains(u"ИТОГО:                           1999.00"_s));

    // A new period starts empty.
    QVERIFY(till.posctl({u"reconcile"_s}).slips().contains(u"НЕТ ОПЕРАЦИЙ"_s));
    QFile journal(till.directory() + u"/zelnorinpas-journal.json"_s);
    QVERIFY(journal.open(QIODevice::ReadOnly));
    QVERIFY(QJsonDocument::fromJson(journal.readAll()).isObject());
}

void tst_Emulator::reportsCopyAndBalance()
{
    const Till till;
    QCOMPARE(till.posctl({u"copy"_s}).exitCode, 1); // nothing to copy yet
    till.posctl({u"sale"_s, u"12300"_s});
    till.posctl({u"sale"_s, u"45600"_s});

    const ProgramRun full = till.posctl({u"report"_s});
    QCOMPARE(full.exitCode, 0);
    QCOMPARE(full.slips().count(u" ОПЛАТА *"_s), 2);
    const ProgramRun brief = till.posctl({u"short-report"_s});
    QVERIFY(brief.slips().contains(u"579.00"_s));
    QCOMPARE(brief.slips().count(u" ОПЛАТА *"_s), 0);
    // Reports do not end the period.
    QVERIFY(till.posctl({u"report"_s, u"--merchant"_s, u"000000000012345"_s})
                .slips()
                .contains(u"579.00"_s));

    const ProgramRun copy = till.posctl({u"copy"_s});
    QCOMPARE(copy.exitCode, 0);
    QVERIFY(copy.slips().contains(u"*** КОПИЯ ***"_s));
    QVERIFY(copy.slips().contains(u"456.00"_s));

    const ProgramRun balance = till.posctl({u"balance"_s});
    QCOMPARE(balance.exitCode, 0);
    QCOMPARE(balance.json().value("accountBalance"_L1).toDouble(), 100000.0);
}

void tst_Emulator::sbpStaysOpen()
{
    const Till till;
    const ProgramRun pay = till.posctl({u"-v"_s, u"sbp-pay"_s, u"99900"_s, u"--form-text"_s, u"1"_s,
                                        u"--form-number"_s, u"12"_s, u"--form-seq"_s, u"345"_s,
                                        u"--form-time"_s, u"2024-03-05T14:07:09"_s});
    QCOMPARE(pay.exitCode, 0);
    // The start and two open queries, then the approval.
    QCOMPARE(pay.err.count("paymentStatusSbp"), 3);
    QCOMPARE(pay.json().value("authorizationCode"_L1).toString(), u"0100120000345050324140709"_s);
    QVERIFY(!pay.slips().isEmpty());

    const ProgramRun refund =
        till.posctl({u"-v"_s, u"sbp-refund"_s, u"99900"_s, u"--rrn"_s, u"RRN"_s});
    QCOMPARE(refund.exitCode, 0);
    QCOMPARE(refund.err.count("returnStatusSbp"), 3);
    QCOMPARE(refund.json().value("additionalData"_L1).toString(),
             u"{\"paymentMethod\":\"SbpPinPad\"}"_s);

    const ProgramRun refused = till.posctl({u"sbp-pay"_s, u"10005"_s});
    QCOMPARE(refused.exitCode, 1);
    QCOMPARE(refused.message(), u"ОТКАЗ"_s);
}

void tst_Emulator::badCommandLines_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("nothing") << QStringList{};
    QTest::newRow("unknown code") << QStringList{u"99"_s};
    QTest::newRow("code not a number") << QStringList{u"x"_s};
    QTest::newRow("option without value") << QStringList{u"1"_s, u"-a"_s};
    QTest::newRow("unknown option") << QStringList{u"4"_s, u"-x"_s, u"5"_s};
    QTest::newRow("amount not a number") << QStringList{u"1"_s, u"-a"_s, u"abc"_s};
    QTest::newRow("SBP function of another operation")
        << QStringList{u"4"_s, u"-f"_s, u"paymentSbp"_s};
    QTest::newRow("unknown SBP function") << QStringList{u"1"_s, u"-f"_s, u"pay"_s};
    QTest::newRow("help") << QStringList{u"--help"_s};
}

void tst_Emulator::badCommandLines()
{
    QFETCH(QStringList, arguments);
    const Till till;
    const ProgramRun run = till.client(arguments);
    if (arguments == QStringList{u"--help"_s}) {
        QCOMPARE(run.exitCode, 0);
        QVERIFY(run.out.startsWith("Usage: zelnorinpas CODE"));
        return;
    }
    QCOMPARE(run.exitCode, 2);
    QVERIFY(run.out.isEmpty());
    QCOMPARE(run.err.count('\n'), 1);
    QVERIFY(QString::fromUtf8(run.err).contains(QRegularExpression(u"[А-Яа-я]"_s)));
}

void tst_Emulator::refusals_data()
{
    QTest::addColumn<QList<QStringList>>("commands"); // the last one is judged
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("card");

    const QStringList sale{u"sale"_s, u"500"_s};
    const auto ofFirstSale = [](const QString &command, const QString &amount) {
        return QStringList{command, amount, u"--rrn"_s, u"000000000001"_s};
    };
    const QString invalid = u"НЕВЕРНАЯ СУММА"_s;
    QTest::newRow("amount 0") << QList<QStringList>{{u"sale"_s, u"0"_s}} << 16 << invalid << u""_s;
    QTest::newRow("amount below 0")
        << QList<QStringList>{{u"refund"_s, u"--"_s, u"-500"_s}} << 16 << invalid << u""_s;
    QTest::newRow("totals would overflow")
        << QList<QStringList>{sale, {u"sale"_s, u"9223372036854775800"_s}} << 16 << invalid
        << u""_s;
    QTest::newRow("refund of an unknown sale")
        << QList<QStringList>{ofFirstSale(u"refund"_s, u"100"_s)} << 16 << u"ОПЕРАЦИЯ НЕ НАЙДЕНА"_s
        << u""_s;
    QTest::newRow("refund beyond what is left")
        << QList<QStringList>{sale, ofFirstSale(u"refund"_s, u"300"_s),
                              ofFirstSale(u"refund"_s, u"300"_s)}
        << 16 << u"СУММА ПРЕВЫШАЕТ ОСТАТОК ОПЛАТЫ"_s << u""_s;
    QTest::newRow("second cancel") << QList<QStringList>{sale, ofFirstSale(u"cancel"_s, u"500"_s),
                                                         ofFirstSale(u"cancel"_s, u"500"_s)}
                                   << 16 << u"ОПЕРАЦИЯ УЖЕ ОТМЕНЕНА"_s << u""_s;
    // The sale took the day's first card; the refund, third of the day, would take another.
    QTest::newRow("refund goes back to the sale's card")
        << QList<QStringList>{sale, {u"sale"_s, u"600"_s}, ofFirstSale(u"refund"_s, u"100"_s)} << 1
        << u"ОДОБРЕНО"_s << u"MIR ************4571"_s;
}

void tst_Emulator::refusals()
{
    QFETCH(QList<QStringList>, commands);
    const Till till;
    ProgramRun run;
    for (const QStringList &command : commands)
        run = till.posctl(command);
    const QJsonObject answer = run.json();
    QTEST(answer.value("status"_L1).toInt(), "status");
    QTEST(run.message(), "message");
    QTEST(QString(answer.value("cardType"_L1).toString() + u' ' + answer.value("pan"_L1).toString())
              .trimmed(),
          "card");
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
    }
}

QTEST_GUILESS_MAIN(tst_Emulator)
#include "tst_emulator.moc"
