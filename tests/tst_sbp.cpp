// SBP payments and refunds with the QR code on the PIN pad, and the scan dialog.

#include "processorfixture.h"

#include <QLoggingCategory>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString formIdentifier = u"0100120000345050324140709"_s;

PaymentProcessingRequest sbpRequest(int type)
{
    PaymentProcessingRequest request;
    request.type = static_cast<PaymentProcessingRequest::Type>(type);
    request.amount = 1000;
    request.referenceNumber = u"RRN9"_s;
    request.authorizationCode = u"AUTH9"_s;
    request.customerQrCode = u"hQVDUFYwMQ=="_s; // never sent by SBP operations
    request.currencyCode = 1;
    request.formIdText = u"1"_s;
    request.formIdNumber = 12;
    request.formIdSequence = 345;
    request.formIdTime = QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9));
    return request;
}

QStringList arguments(const QString &code, const QString &c, const QString &function,
                      const QString &r)
{
    return {code,     u"-a"_s, u"1000"_s, u"-c"_s, c, u"-e"_s, u"0"_s, u"-f"_s,
            function, u"-o"_s, u"0"_s,    u"-r"_s, r, u"-t"_s, u""_s};
}

// A client that answers run n with the n-th answer (the last repeating); an answer "fail"
// exits with status 1 instead.
QByteArray sequence(const QList<QByteArray> &answers)
{
    QByteArray script = "case $n in\n";
    for (qsizetype i = 0; i < answers.size(); ++i) {
        const QByteArray pattern = i + 1 == answers.size() ? "*" : QByteArray::number(i + 1);
        const QByteArray action = answers.at(i) == "fail"
                                      ? QByteArray("echo 'Сбой' >&2; exit 1")
                                      : QByteArray("echo '" + answers.at(i) + "'");
        script += pattern + ") " + action + ";;\n";
    }
    return script + "esac\n";
}

} // namespace

class tst_Sbp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void formId_data();
    void formId();
    void payment_data();
    void payment();
    void statusRunArguments_data();
    void statusRunArguments();
    void refund_data();
    void refund();
};

void tst_Sbp::formId_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("number");
    QTest::addColumn<int>("sequence");
    QTest::addColumn<QDateTime>("time");
    QTest::addColumn<QString>("expected");
    const QDateTime time(QDate(2024, 3, 5), QTime(14, 7, 9));
    QTest::newRow("example") << u"1"_s << 12 << 345 << time << formIdentifier;
    QTest::newRow("long text is kept whole")
        << u"123"_s << 12 << 345 << time << u"12300120000345050324140709"_s;
    QTest::newRow("empty text") << u""_s << 0 << 0 << time << u"0000000000000050324140709"_s;
    QTest::newRow("no time") << u"7"_s << 1 << 2 << QDateTime() << u"0700010000002"_s;
    QTest::newRow("wide numbers") << u"AB"_s << 123456 << 98765432 << time
                                  << u"AB12345698765432050324140709"_s;
    QTest::newRow("percent in text") << u"%2"_s << 1 << 1 << time << u"%200010000001050324140709"_s;
    QTest::newRow("afternoon in 24 hours")
        << u"1"_s << 1 << 1 << QDateTime(QDate(1999, 12, 31), QTime(23, 59, 58))
        << u"0100010000001311299235958"_s;
}

void tst_Sbp::formId()
{
    QFETCH(QString, text);
    QFETCH(int, number);
    QFETCH(int, sequence);
    QFETCH(QDateTime, time);
    ProcessorFixture f;
    PaymentProcessingRequest request;
    request.formIdText = text;
    request.formIdNumber = number;
    request.formIdSequence = sequence;
    request.formIdTime = time;
    QTEST(f.processor->formId(request), "expected");
}

void tst_Sbp::payment_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<QList<QByteArray>>("answers");
    QTest::addColumn<int>("runs");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("authorizationCode");
    QTest::addColumn<QString>("referenceNumber");

    const QByteArray open = R"({"Status":0,"AuthorizationCode":"A0","ReferenceNumber":"R0"})";
    const QByteArray approved = R"({"Status":1,"AuthorizationCode":"A1","ReferenceNumber":"R1"})";
    const QByteArray refused = R"({"Status":16,"AuthorizationCode":"A2","ReferenceNumber":"R2"})";
    const QByteArray none;
    const QString id = formIdentifier;

    QTest::newRow("approved at once")
        << 1 << none << QList{approved} << 1 << 1 << 0 << id << u"R1"_s;
    QTest::newRow("open three times, then approved")
        << 1 << none << QList{open, open, open, approved} << 4 << 1 << 0 << id << u"A1"_s;
    QTest::newRow("open, then refused")
        << 1 << none << QList{open, refused} << 2 << 16 << 1 << u"A2"_s << u"R2"_s;
    QTest::newRow("refused at once")
        << 1 << none << QList{refused} << 1 << 16 << 1 << u"A2"_s << u"R2"_s;
    QTest::newRow("first run fails")
        << 1 << none << QList<QByteArray>{"fail"} << 1 << -1 << 1 << u""_s << u""_s;
    QTest::newRow("unparsable first answer opens the query")
        << 1 << none << QList<QByteArray>{"garbage", approved} << 2 << 1 << 0 << id << u"A1"_s;
    QTest::newRow("failed run in the loop")
        << 1 << none << QList<QByteArray>{open, open, "fail"} << 3 << -1 << 1 << u""_s << u""_s;
    const QByteArray retryFive("[Client]\nhostCodesResponseToRetry=5\n");
    QTest::newRow("host code not to retry")
        << 1 << retryFive
        << QList<QByteArray>{open, R"({"Status":0,"ResponseCodeHost":6})", approved} << 2 << 0 << 1
        << u""_s << u""_s;
    QTest::newRow("host code to retry")
        << 1 << retryFive
        << QList<QByteArray>{open, R"({"Status":0,"ResponseCodeHost":5})", approved} << 3 << 1 << 0
        << id << u"A1"_s;
    // Type 3 is the refund: its runs are code 2 and the client's codes stay as they came.
    QTest::newRow("type 3 is the refund")
        << 3 << none << QList{open, approved} << 2 << 1 << 0 << u"A1"_s << u"R1"_s;
    // Other types run nothing and carry no additional data.
    QTest::newRow("type 2 not supported")
        << 2 << retryFive << QList{approved} << 0 << 0 << 1 << u"Не поддерживается"_s << u""_s;
    QTest::newRow("type 0") << 0 << none << QList{approved} << 0 << 0 << 1 << u""_s << u""_s;
    QTest::newRow("type 4") << 4 << none << QList{approved} << 0 << 0 << 1 << u""_s << u""_s;
}

void tst_Sbp::payment()
{
    QFETCH(int, type);
    QFETCH(QByteArray, config);
    QFETCH(QList<QByteArray>, answers);
    ProcessorFixture f(config);
    f.client.setBehaviour(sequence(answers));
    const QuietLog quiet;
    const PaymentProcessingAnswer answer = static_cast<AbstractPaymentProcessing &>(*f.processor)
                                               .paymentByQRCodeOnPinPad(sbpRequest(type));
    QTEST(f.client.runCount(), "runs");
    QTEST(answer.status, "status");
    QTEST(answer.result, "result");
    QTEST(type == 2 ? answer.message.ru() : answer.authorizationCode, "authorizationCode");
    QTEST(answer.referenceNumber, "referenceNumber");
    if (type == 3)
        QCOMPARE(f.client.arguments(1).at(0), u"2"_s);
    const bool ran = f.client.runCount() > 0;
    QCOMPARE(answer.additionalData, ran ? u"{\"paymentMethod\":\"SbpPinPad\"}"_s : QString());
}

void tst_Sbp::refund_data()
{
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<QList<QByteArray>>("answers");
    QTest::addColumn<int>("runs");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("authorizationCode");
    const auto row = [](const char *name, const char *codes, const QList<QByteArray> &answers,
                        int runs, int status, int result, const QString &message,
                        const QString &authorizationCode = {}) {
        QTest::newRow(name) << (codes ? "[Client]\nreturnStatusSbpSuccessCodes="_ba + codes + '\n'
                                      : QByteArray())
                            << answers << runs << status << result << message << authorizationCode;
    };
    const QByteArray open = R"({"Status":0})";
    const QByteArray five = R"({"Status":5,"AuthorizationCode":"A5"})";
    const QString undefined = u"Неопределенная ошибка"_s;

    row("ends on a success code", "5", {open, open, five}, 3, 5, 0, undefined, u"A5"_s);
    row("no success codes", nullptr, {open, five}, 2, 5, 1, undefined, u"A5"_s);
    row("approved status", nullptr, {open, R"({"Status":1})"}, 2, 1, 0, u""_s);
    row("codes 0 and 1 change nothing", "0,1", {open, open, R"({"Status":16})"}, 3, 16, 1,
        u"Отказ"_s);
    row("-1 makes a failed run a refund", "-1", {open, "fail"}, 2, -1, 0, u"Сбой\n"_s);
    row("approved at once", nullptr, {R"({"Status":1,"AuthorizationCode":"AX"})"}, 1, 1, 0, u""_s,
        u"AX"_s);
    row("first run fails", "5", {"fail"}, 1, -1, 1, u"Сбой\n"_s);
}

void tst_Sbp::refund()
{
    QFETCH(QByteArray, config);
    QFETCH(QList<QByteArray>, answers);
    ProcessorFixture f(config);
    f.client.setBehaviour(sequence(answers));
    const QuietLog quiet;
    const PaymentProcessingAnswer answer = f.processor->cancelByQRCodeOnPinPad(sbpRequest(7));
    QTEST(f.client.runCount(), "runs");
    QTEST(answer.status, "status");
    QTEST(answer.result, "result");
    QTEST(answer.message.ru(), "message");
    QTEST(answer.authorizationCode, "authorizationCode");
    QCOMPARE(answer.additionalData, u"{\"paymentMethod\":\"SbpPinPad\"}"_s);
}

// The first run and every status run, with the form identifier where each expects it.
void tst_Sbp::statusRunArguments_data()
{
    QTest::addColumn<bool>("refund");
    QTest::addColumn<QStringList>("first");
    QTest::addColumn<QStringList>("status");
    QTest::newRow("payment") << false
                             << arguments(u"1"_s, u"AUTH9"_s, u"paymentSbp"_s, formIdentifier)
                             << arguments(u"1"_s, formIdentifier, u"paymentStatusSbp"_s, u"RRN9"_s);
    QTest::newRow("refund") << true << arguments(u"2"_s, u"RRN9"_s, u"returnSbp"_s, formIdentifier)
                            << arguments(u"2"_s, u""_s, u"returnStatusSbp"_s, formIdentifier);
}

void tst_Sbp::statusRunArguments()
{
    QFETCH(bool, refund);
    QFETCH(QStringList, status);
    ProcessorFixture f;
    f.client.setBehaviour(sequence({R"({"Status":0})", R"({"Status":0})", R"({"Status":1})"}));
    const QuietLog quiet;
    if (refund)
        f.processor->cancelByQRCodeOnPinPad(sbpRequest(1));
    else
        f.processor->paymentByQRCodeOnPinPad(sbpRequest(1));
    QCOMPARE(f.client.runCount(), 3);
    QTEST(f.client.arguments(1), "first");
    QCOMPARE(f.client.arguments(2), status);
    QCOMPARE(f.client.arguments(3), status);
}

QTEST_GUILESS_MAIN(tst_Sbp)
#include "tst_sbp.moc"
