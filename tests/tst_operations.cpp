// Card and service operations: which client runs they make and what they return.

#include "processorfixture.h"
#include "words.h"

#include <hostinstance.h>
#include <tlv/bertlv.h>
#include <valutcollection.h>

#include <QTest>

#include <functional>

using namespace Qt::Literals::StringLiterals;
using Call = std::function<PaymentProcessingAnswer(AbstractPaymentProcessing &)>;

Q_DECLARE_METATYPE(Call)

namespace {

const QString customerCode = u"hQVDUFYwMWEYTwegAAAAAQEBUAdNYXN0ZXJjYXJk"_s;

QString payloadBase64(const QString &code)
{
    return QString::fromLatin1(
        tlv::generateBerTlvTag(u"F6"_s, tlv::generateBerTlvTag(u"D1"_s, code.toLatin1()))
            .toBase64());
}

} // namespace

class tst_Operations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void serviceOperations_data();
    void serviceOperations();
    void cardOperations_data();
    void cardOperations();
};

void tst_Operations::initTestCase()
{
    auto &valuts = hostInstance<ValutCollection>();
    valuts.addValut(Valut(1, u"card"_s, Valut::BankCard | Valut::PassCustomerQrCode));
    valuts.addValut(Valut(2, u"card without QR"_s, Valut::BankCard));
}

void tst_Operations::serviceOperations_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QString>("logLine");
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("reconciliation") << Call([](auto &p) { return p.checkTotals(0); })
                                    << u"Сверка итогов"_s << QStringList{u"4"_s};
    QTest::newRow("reconciliation ignores its mode")
        << Call([](auto &p) { return p.checkTotals(5); }) << u"Сверка итогов"_s
        << QStringList{u"4"_s};
    QTest::newRow("reconciliation of one entity")
        << Call([](auto &p) { return p.checkTotalsByMerchantId(u"1234567"_s); })
        << u"Сверка итогов для юр. лица(merchantId = 1234567)"_s << words("4 -t 1234567");
    QTest::newRow("slip copy") << Call([](auto &p) { return p.printCopy(3); })
                               << u"Печать копии слипа"_s << QStringList{u"12"_s};
    QTest::newRow("full report") << Call([](auto &p) { return p.printReport(); })
                                 << u"Печать полного отчета"_s << QStringList{u"14"_s};
    QTest::newRow("full report of one entity, empty id")
        << Call([](auto &p) { return p.printReportByMerchantId(QString()); })
        << u"Печать полного отчета для юр. лица(merchantId = )"_s << words("14 -t ''");
    QTest::newRow("short report") << Call([](auto &p) { return p.printShortReport(); })
                                  << u"Печать краткого отчета"_s << QStringList{u"11"_s};
    QTest::newRow("balance ignores its account")
        << Call([](auto &p) { return p.balance(u"40817"_s); }) << u"Запрос состояния счета"_s
        << QStringList{u"15"_s};
}

void tst_Operations::serviceOperations()
{
    QFETCH(Call, call);
    QFETCH(QString, logLine);
    QFETCH(QStringList, arguments);
    ProcessorFixture f;
    const QByteArray output = R"({"Status":1,"TextResponse":"ОДОБРЕНО"})";
    f.client.setAnswer(output);
    QTest::ignoreMessage(QtInfoMsg, qPrintable(logLine));
    ProcessorFixture::expectRun(f.client.directory(), arguments, output);
    ProcessorFixture::expectAnswerLine(1, u"ОДОБРЕНО"_s);
    // Through the host's interface, as the host calls it.
    const PaymentProcessingAnswer answer = call(*f.processor);
    QCOMPARE(f.client.runCount(), 1);
    QCOMPARE(f.client.arguments(1), arguments);
    QCOMPARE(f.client.workingDirectory(1), f.client.directory());
    QCOMPARE(answer.result, 0);
    QCOMPARE(answer.message.ru(), u"ОДОБРЕНО"_s);
}

void tst_Operations::cardOperations_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("qr");
    QTest::addColumn<int>("currency");
    QTest::addColumn<QStringList>("arguments"); // empty: no client runs
    QTest::addColumn<int>("paymentMode");

    const auto base = [](const char *code, bool qr = false) {
        return words(code) + words("-a 500 -c AC1") +
               (qr ? QStringList{u"-d"_s, payloadBase64(customerCode)} : QStringList{}) +
               words("-e 0 -o 0 -r RRN1 -t M1");
    };
    const QString payment = u"payment"_s;
    const QString cancel = u"cancel"_s;
    const QString none;
    QTest::newRow("sale") << payment << 1 << none << 1 << base("1") << 0;
    QTest::newRow("refund") << payment << 2 << none << 1 << base("2") << 0;
    QTest::newRow("other refund") << payment << 3 << none << 1 << base("2") << 0;
    QTest::newRow("sale with customer code")
        << payment << 1 << customerCode << 1 << base("1", true) << 2;
    QTest::newRow("refund with customer code")
        << payment << 2 << customerCode << 1 << base("2", true) << 2;
    QTest::newRow("currency without the flag")
        << payment << 1 << customerCode << 2 << base("1") << 0;
    QTest::newRow("unknown currency") << payment << 1 << customerCode << 99 << base("1") << 0;
    QTest::newRow("type 0 runs nothing") << payment << 0 << none << 1 << QStringList{} << 0;
    QTest::newRow("type -1 runs nothing") << payment << -1 << none << 1 << QStringList{} << 0;
    QTest::newRow("type 4 runs nothing, with customer code")
        << payment << 4 << customerCode << 1 << QStringList{} << 2;
    QTest::newRow("cancel") << cancel << 1 << none << 1 << base("3") << 0;
    QTest::newRow("cancel of any type") << cancel << 7 << none << 1 << base("3") << 0;
    QTest::newRow("cancel with customer code")
        << cancel << 1 << customerCode << 1 << base("3", true) << 0;
}

void tst_Operations::cardOperations()
{
    QFETCH(QString, operation);
    QFETCH(int, type);
    QFETCH(QString, qr);
    QFETCH(int, currency);
    QFETCH(QStringList, arguments);

    ProcessorFixture f;
    // A refusal: the payment mode is set whatever the outcome.
    const QByteArray output = R"({"Status":16})";
    f.client.setAnswer(output);
    QTest::ignoreMessage(QtInfoMsg,
                         operation == "cancel"_L1 ? "Отмена операции" : "Оплата/возврат");
    if (!arguments.isEmpty()) {
        ProcessorFixture::expectRun(f.client.directory(), arguments, output);
        ProcessorFixture::expectAnswerLine(16, u"Отказ"_s);
    }

    PaymentProcessingRequest request;
    request.type = static_cast<PaymentProcessingRequest::Type>(type);
    request.amount = 500;
    request.merchantId = u"M1"_s;
    request.referenceNumber = u"RRN1"_s;
    request.authorizationCode = u"AC1"_s;
    request.customerQrCode = qr;
    request.currencyCode = currency;
    AbstractPaymentProcessing &host = *f.processor;
    const PaymentProcessingAnswer answer =
        operation == "cancel"_L1 ? host.cancel(request) : host.payment(request);
    QCOMPARE(f.client.arguments(1), arguments);
    QCOMPARE(answer.result, 1);
    // A type that is not served: the fresh answer, with no message.
    QCOMPARE(answer.status, arguments.isEmpty() ? 0 : 16);
    QCOMPARE(answer.message.isEmpty(), arguments.isEmpty());
    QTEST(answer.paymentMode, "paymentMode");
}

QTEST_GUILESS_MAIN(tst_Operations)
#include "tst_operations.moc"
