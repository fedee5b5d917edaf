// The client's answer as the host receives it.

#include "processorfixture.h"

#include <QLoggingCategory>
#include <QRegularExpression>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

class tst_ProcessAnswer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void answers_data();
    void answers();
    void retry_data();
    void retry();
    void logLines();
};

void tst_ProcessAnswer::initTestCase()
{
    QTest::failOnWarning(QRegularExpression(u".*"_s));
}

void tst_ProcessAnswer::answers_data()
{
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("message");     // "identifier: text"
    QTest::addColumn<QStringList>("receipt"); // the card type, then the slips
    const auto row = [](const char *name, const QByteArray &config, const QByteArray &output,
                        int status, int result, const QString &message,
                        const QStringList &receipt = {u""_s}) {
        QTest::newRow(name) << config << output << status << result << message << receipt;
    };
    const QByteArray none;
    const QByteArray textOk("[Client]\nsuccessTextResponses=ОДОБРЕНО\n");
    const QByteArray textApproved("[Client]\nsuccessTextResponses=APPROVED\n");
    const QByteArray code51("[ErrorCodes]\nnotEnoughtBalanceCode=51\n");
    const QString notDone = u"inpasPaymentProcessingTransactionError: Транзакция не выполнена"_s;
    const QString rejected = u"inpasPaymentProcessingRejectedError: Отказ"_s;

    row("empty object", none, "{}", 0, 1, notDone);
    row("not JSON", none, "Нет связи", 0, 1, notDone);
    row("array", none, "[1]", 0, 1, notDone);
    row("empty output", none, "", 0, 1, notDone);
    row("status as string", none, R"({"Status":"1"})", 0, 1, notDone);
    row("status as fraction", none, R"({"Status":1.5})", 0, 1, notDone);
    row("status out of range", none, R"({"Status":4294967297})", 0, 1, notDone);
    row("status key case matters", none, R"({"status":1})", 0, 1, notDone);
    row("approved, no texts configured", none, R"({"Status":1,"TextResponse":"Одобрено"})", 1, 0,
        u"undefined: Одобрено"_s);
    row("approved without text", none, R"({"Status":1.0})", 1, 0, u"undefined: "_s);
    row("approved, text configured", textOk, R"({"Status":1,"TextResponse":"  одобрено "})", 1, 0,
        u"undefined:   одобрено "_s);
    row("approved, other text configured", textApproved,
        R"({"Status":1,"TextResponse":"  одобрено "})", 1, 1, u"undefined:   одобрено "_s);
    row("approved, blank text with texts configured", textApproved,
        R"({"Status":1,"TextResponse":"   "})", 1, 0, u"undefined:    "_s);
    row("not enough balance beats approval", code51,
        R"({"Status":1,"ResponseCodeHost":51,"TextResponse":"X"})", 1, 3, u"undefined: X"_s);
    row("not enough balance skips the text rule", code51 + "[Client]\nsuccessTextResponses=OK\n",
        R"({"Status":16,"ResponseCodeHost":51})", 16, 3, u"undefined: "_s);
    row("default code -1 is a code too", none, R"({"Status":16,"ResponseCodeHost":-1})", 16, 3,
        u"undefined: "_s);
    row("refused with text", none, R"({"Status":16,"TextResponse":"Недостаточно средств"})", 16, 1,
        u"undefined: Недостаточно средств"_s);
    row("refused", none, R"({"Status":16})", 16, 1, rejected);
    row("no connection", none, R"({"Status":34})", 34, 1,
        u"inpasPaymentProcessingNoConnectionError: Нет соединения"_s);
    row("interrupted", none, R"({"Status":53})", 53, 1,
        u"inpasPaymentProcessingInterruptedError: Операция прервана"_s);
    row("unknown status", none, R"({"Status":99})", 99, 1,
        u"inpasPaymentProcessingUndefinedError: Неопределенная ошибка"_s);
    row("text of another type", none, R"({"Status":16,"TextResponse":5})", 16, 1, rejected);
    row("slips of a declined operation", none,
        R"({"Status":16,"ReceiptData":"0xDF^1^Slip one~0xDA^1^Slip two~"})", 16, 1, rejected,
        {u""_s, u"Slip one"_s, u"Slip two"_s});
    row("card type from receipt", none, R"({"Status":1,"ReceiptData":"0xDE^^VISA~"})", 1, 0,
        u"undefined: "_s, {u"VISA"_s});
    row("card type kept", none,
        R"({"Status":1,"CardType":"MIR","ReceiptData":"0xDE^^VISA~0xDF^^~"})", 1, 0,
        u"undefined: "_s, {u"MIR"_s, u""_s});
}

void tst_ProcessAnswer::answers()
{
    QFETCH(QByteArray, config);
    QFETCH(QByteArray, output);
    ProcessorFixture f(config);
    const QuietLog quiet; // the lines themselves are checked in logLines()

    const PaymentProcessingAnswer answer = f.processor->processAnswer(output, nullptr);
    QTEST(answer.status, "status");
    QTEST(answer.result, "result");
    QTEST(QString(answer.message.id() + u": "_s + answer.message.ru()), "message");
    QTEST(QStringList{answer.cardType} + answer.slips, "receipt");
    QCOMPARE(answer.paymentMode, 0);
    QVERIFY(answer.additionalData.isEmpty());
}

void tst_ProcessAnswer::retry_data()
{
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<bool>("retry");
    const auto row = [](const char *name, const char *codes, const char *output, bool retry) {
        QTest::newRow(name) << (codes ? "[Client]\nhostCodesResponseToRetry="_ba + codes + '\n'
                                      : QByteArray())
                            << QByteArray(output) << retry;
    };
    row("open, no codes", nullptr, R"({"Status":0})", true);
    row("unparsable, no codes", nullptr, "?", true);
    row("approved", nullptr, R"({"Status":1})", false);
    row("refused", nullptr, R"({"Status":16})", false);
    row("open, listed code", "5, 7", R"({"Status":0,"ResponseCodeHost":5})", true);
    row("open, other code", "5, 7", R"({"Status":0,"ResponseCodeHost":6})", false);
    row("approved, listed code", "5, 7", R"({"Status":1,"ResponseCodeHost":5})", false);
    row("negative code in decimal", "-5", R"({"Status":0,"ResponseCodeHost":-5})", true);
    row("leading zeros never match", "05", R"({"Status":0,"ResponseCodeHost":5})", false);
}

void tst_ProcessAnswer::retry()
{
    QFETCH(QByteArray, config);
    QFETCH(QByteArray, output);
    QFETCH(bool, retry);
    ProcessorFixture f(config);
    const QuietLog quiet;
    bool flag = !retry; // so that a flag left alone shows
    f.processor->processAnswer(output, &flag);
    QCOMPARE(flag, retry);
}

void tst_ProcessAnswer::logLines()
{
    ProcessorFixture f;
    const QByteArray output =
        R"({"Status":1,"ResponseCodeHost":0,"TextResponse":"ОДОБРЕНО","CardType":"MIR",)"
        R"("PAN":"************1234","ReferenceNumber":"000012345678","AuthorizationCode":"123456",)"
        R"("ReceiptData":"0xDF^1^Чек~0xAA^1^x~0xDF^1^Копия"})";
    ProcessorFixture::expectAnswerLine(1, u"ОДОБРЕНО"_s, 0, u"MIR"_s, u"************1234"_s,
                                       u"000012345678"_s, u"123456"_s);
    QTest::ignoreMessage(QtDebugMsg, "Слипы: 0xDF^1^Чек~0xAA^1^x~0xDF^1^Копия");
    QTest::ignoreMessage(QtWarningMsg,
                         "Нет завершающего символа '~'! Добавление '~' в конце поля.");
    QTest::ignoreMessage(QtInfoMsg, "Получен слип: 'Чек'");
    QTest::ignoreMessage(QtInfoMsg, "Получен слип: 'Копия'");
    const PaymentProcessingAnswer answer = f.processor->processAnswer(output, nullptr);
    QCOMPARE(answer.slips, (QList<QString>{u"Чек"_s, u"Копия"_s}));
    QCOMPARE(answer.referenceNumber, u"000012345678"_s);
    QCOMPARE(answer.authorizationCode, u"123456"_s);
    QCOMPARE(answer.pan, u"************1234"_s);

    // An empty receipt: the warning, and an empty list of slips.
    ProcessorFixture::expectAnswerLine(0, u"Транзакция не выполнена"_s);
    QTest::ignoreMessage(QtDebugMsg, "Слипы: ");
    QTest::ignoreMessage(QtWarningMsg,
                         "Нет завершающего символа '~'! Добавление '~' в конце поля.");
    QVERIFY(f.processor->processAnswer(R"({"ReceiptData":""})", nullptr).slips.isEmpty());
}

QTEST_GUILESS_MAIN(tst_ProcessAnswer)
#include "tst_processanswer.moc"
