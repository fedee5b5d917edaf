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
    void additionalData_data();
    void additionalData();
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
    QTest::addColumn<QString>("messageId");
    QTest::addColumn<QString>("messageText");
    QTest::addColumn<QStringList>("slips");
    QTest::addColumn<QString>("cardType");

    const QByteArray none;
    const QString undefined = u"undefined"_s;
    const QString transaction = u"inpasPaymentProcessingTransactionError"_s;

    QTest::newRow("empty object") << none << QByteArray("{}") << 0 << 1 << transaction
                                  << u"Транзакция не выполнена"_s << QStringList{} << u""_s;
    QTest::newRow("not JSON") << none << QByteArray("Нет связи") << 0 << 1 << transaction
                              << u"Транзакция не выполнена"_s << QStringList{} << u""_s;
    QTest::newRow("array") << none << QByteArray("[1]") << 0 << 1 << transaction
                           << u"Транзакция не выполнена"_s << QStringList{} << u""_s;
    QTest::newRow("empty output") << none << QByteArray() << 0 << 1 << transaction
                                  << u"Транзакция не выполнена"_s << QStringList{} << u""_s;
    QTest::newRow("status as string")
        << none << QByteArray(R"({"Status":"1"})") << 0 << 1 << transaction
        << u"Транзакция не выполнена"_s << QStringList{} << u""_s;
    QTest::newRow("status as fraction")
        << none << QByteArray(R"({"Status":1.5})") << 0 << 1 << transaction
        << u"Транзакция не выполнена"_s << QStringList{} << u""_s;
    QTest::newRow("status out of range")
        << none << QByteArray(R"({"Status":4294967297})") << 0 << 1 << transaction
        << u"Транзакция не выполнена"_s << QStringList{} << u""_s;
    QTest::newRow("status key case matters")
        << none << QByteArray(R"({"status":1})") << 0 << 1 << transaction
        << u"Транзакция не выполнена"_s << QStringList{} << u""_s;
    QTest::newRow("approved, no texts configured")
        << none << QByteArray(R"({"Status":1,"TextResponse":"Одобрено"})") << 1 << 0 << undefined
        << u"Одобрено"_s << QStringList{} << u""_s;
    QTest::newRow("approved without text") << none << QByteArray(R"({"Status":1.0})") << 1 << 0
                                           << undefined << u""_s << QStringList{} << u""_s;
    QTest::newRow("approved, text configured")
        << QByteArray("[Client]\nsuccessTextResponses=ОДОБРЕНО\n")
        << QByteArray(R"({"Status":1,"TextResponse":"  одобрено "})") << 1 << 0 << undefined
        << u"  одобрено "_s << QStringList{} << u""_s;
    QTest::newRow("approved, other text configured")
        << QByteArray("[Client]\nsuccessTextResponses=APPROVED\n")
        << QByteArray(R"({"Status":1,"TextResponse":"  одобрено "})") << 1 << 1 << undefined
        << u"  одобрено "_s << QStringList{} << u""_s;
    QTest::newRow("approved, blank text with texts configured")
        << QByteArray("[Client]\nsuccessTextResponses=APPROVED\n")
        << QByteArray(R"({"Status":1,"TextResponse":"   "})") << 1 << 0 << undefined << u"   "_s
        << QStringList{} << u""_s;
    QTest::newRow("not enough balance beats approval")
        << QByteArray("[ErrorCodes]\nnotEnoughtBalanceCode=51\n")
        << QByteArray(R"({"Status":1,"ResponseCodeHost":51,"TextResponse":"X"})") << 1 << 3
        << undefined << u"X"_s << QStringList{} << u""_s;
    QTest::newRow("not enough balance skips the text rule")
        << QByteArray("[ErrorCodes]\nnotEnoughtBalanceCode=51\n[Client]\nsuccessTextResponses=OK\n")
        << QByteArray(R"({"Status":16,"ResponseCodeHost":51})") << 16 << 3 << undefined << u""_s
        << QStringList{} << u""_s;
    QTest::newRow("default code -1 is a code too")
        << none << QByteArray(R"({"Status":16,"ResponseCodeHost":-1})") << 16 << 3 << undefined
        << u""_s << QStringList{} << u""_s;
    QTest::newRow("refused with text")
        << none << QByteArray(R"({"Status":16,"TextResponse":"Недостаточно средств"})") << 16 << 1
        << undefined << u"Недостаточно средств"_s << QStringList{} << u""_s;
    QTest::newRow("refused") << none << QByteArray(R"({"Status":16})") << 16 << 1
                             << u"inpasPaymentProcessingRejectedError"_s << u"Отказ"_s
                             << QStringList{} << u""_s;
    QTest::newRow("no connection") << none << QByteArray(R"({"Status":34})") << 34 << 1
                                   << u"inpasPaymentProcessingNoConnectionError"_s
                                   << u"Нет соединения"_s << QStringList{} << u""_s;
    QTest::newRow("interrupted") << none << QByteArray(R"({"Status":53})") << 53 << 1
                                 << u"inpasPaymentProcessingInterruptedError"_s
                                 << u"Операция прервана"_s << QStringList{} << u""_s;
    QTest::newRow("unknown status") << none << QByteArray(R"({"Status":99})") << 99 << 1
                                    << u"inpasPaymentProcessingUndefinedError"_s
                                    << u"Неопределенная ошибка"_s << QStringList{} << u""_s;
    QTest::newRow("text of another type")
        << none << QByteArray(R"({"Status":16,"TextResponse":5})") << 16 << 1
        << u"inpasPaymentProcessingRejectedError"_s << u"Отказ"_s << QStringList{} << u""_s;
    QTest::newRow("slips of a declined operation")
        << none << QByteArray(R"({"Status":16,"ReceiptData":"0xDF^1^Slip one~0xDA^1^Slip two~"})")
        << 16 << 1 << u"inpasPaymentProcessingRejectedError"_s << u"Отказ"_s
        << QStringList{u"Slip one"_s, u"Slip two"_s} << u""_s;
    QTest::newRow("card type from receipt")
        << none << QByteArray(R"({"Status":1,"ReceiptData":"0xDE^^VISA~"})") << 1 << 0 << undefined
        << u""_s << QStringList{} << u"VISA"_s;
    QTest::newRow("card type kept")
        << none << QByteArray(R"({"Status":1,"CardType":"MIR","ReceiptData":"0xDE^^VISA~0xDF^^~"})")
        << 1 << 0 << undefined << u""_s << QStringList{u""_s} << u"MIR"_s;
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
    QTEST(answer.message.id(), "messageId");
    QTEST(answer.message.ru(), "messageText");
    QTEST(QStringList(answer.slips), "slips");
    QTEST(answer.cardType, "cardType");
    QCOMPARE(answer.paymentMode, 0);
    QVERIFY(answer.additionalData.isEmpty());
}

void tst_ProcessAnswer::retry_data()
{
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<bool>("retry");

    const QByteArray codes("[Client]\nhostCodesResponseToRetry=5, 7\n");
    QTest::newRow("open, no codes") << QByteArray() << QByteArray(R"({"Status":0})") << true;
    QTest::newRow("unparsable, no codes") << QByteArray() << QByteArray("?") << true;
    QTest::newRow("approved") << QByteArray() << QByteArray(R"({"Status":1})") << false;
    QTest::newRow("refused") << QByteArray() << QByteArray(R"({"Status":16})") << false;
    QTest::newRow("open, listed code")
        << codes << QByteArray(R"({"Status":0,"ResponseCodeHost":5})") << true;
    QTest::newRow("open, other code")
        << codes << QByteArray(R"({"Status":0,"ResponseCodeHost":6})") << false;
    QTest::newRow("approved, listed code")
        << codes << QByteArray(R"({"Status":1,"ResponseCodeHost":5})") << false;
    QTest::newRow("negative code in decimal")
        << QByteArray("[Client]\nhostCodesResponseToRetry=-5\n")
        << QByteArray(R"({"Status":0,"ResponseCodeHost":-5})") << true;
    QTest::newRow("leading zeros never match")
        << QByteArray("[Client]\nhostCodesResponseToRetry=05\n")
        << QByteArray(R"({"Status":0,"ResponseCodeHost":5})") << false;
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

void tst_ProcessAnswer::additionalData_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("after");
    QTest::newRow("SBP") << u""_s << u"SbpPinPad"_s << u"{\"paymentMethod\":\"SbpPinPad\"}"_s;
    QTest::newRow("replaces") << u"{\"a\":1}"_s << u"SbpPinPad"_s
                              << u"{\"paymentMethod\":\"SbpPinPad\"}"_s;
    QTest::newRow("empty method keeps") << u"{\"a\":1}"_s << u""_s << u"{\"a\":1}"_s;
    QTest::newRow("escaped") << u""_s << u"a\"b\\c"_s << u"{\"paymentMethod\":\"a\\\"b\\\\c\"}"_s;
}

void tst_ProcessAnswer::additionalData()
{
    QFETCH(QString, before);
    QFETCH(QString, method);
    ProcessorFixture f;
    PaymentProcessingAnswer answer;
    answer.additionalData = before;
    f.processor->addAdditionalData(answer, method);
    QTEST(answer.additionalData, "after");
}

QTEST_GUILESS_MAIN(tst_ProcessAnswer)
#include "tst_processanswer.moc"
