// What the plug-in's log shows of card data: every line of an operation, at every level, read
// after its escapes are decoded, against what the client answered and what the host asked.

#include "logcapture.h"
#include "processorfixture.h"

#include <externalprocessthread.h>
#include <hostinstance.h>
#include <processmonitor.h>
#include <tlv/bertlv.h>
#include <valutcollection.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {

// A number of the given length that passes the Luhn check, from a prefix and a fixed filling.
QString card(const QString &prefix, int length)
{
    QString digits = prefix;
    while (digits.size() < length - 1)
        digits += QChar(char16_t(u'0' + (digits.size() * 7 + 3) % 10));
    int sum = 0;
    for (qsizetype k = 0; k < digits.size(); ++k) {
        const int digit = digits.at(digits.size() - 1 - k).digitValue();
        sum += k % 2 == 0 ? (digit * 2 > 9 ? digit * 2 - 9 : digit * 2) : digit;
    }
    return digits + QChar(char16_t(u'0' + (10 - sum % 10) % 10));
}

QString grouped(const QString &number, const QList<int> &layout, const QString &separator)
{
    QStringList groups;
    qsizetype at = 0;
    for (int size : layout) {
        groups.append(number.mid(at, size));
        at += size;
    }
    return groups.join(separator);
}

QByteArray answer(QJsonObject object = {})
{
    object.insert(u"Status"_s, 1);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray slipAnswer(const QString &slip, const QString &text = {})
{
    return answer(QJsonObject{{u"TextResponse"_s, text},
                              {u"ReceiptData"_s, QString(u"0xDF^1^"_s + slip + u'~')}});
}

// The escapes the log writes, read back.
QString decoded(const QString &line)
{
    QString out;
    for (qsizetype i = 0; i < line.size(); ++i) {
        if (line.at(i) != u'\\' || i + 1 == line.size()) {
            out += line.at(i);
            continue;
        }
        const QChar c = line.at(++i);
        if (c == u'u' && i + 4 < line.size()) {
            out += QChar(line.mid(i + 1, 4).toUShort(nullptr, 16));
            i += 4;
        } else {
            out += c == u'n' ? u'\n' : c == u'r' ? u'\r' : c == u't' ? u'\t' : c;
        }
    }
    return out;
}

QString digitsOf(const QString &text)
{
    QString digits;
    for (const QChar c : text)
        if (c >= u'0' && c <= u'9')
            digits += c;
    return digits;
}

bool allDigits(const QString &text)
{
    return !text.isEmpty() && digitsOf(text) == text;
}

} // namespace

class tst_MaskingLog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void log_data();
    void log();
    void cutOnlyAtTheRunnersLimit_data();
    void cutOnlyAtTheRunnersLimit();
};

void tst_MaskingLog::initTestCase()
{
    hostInstance<ValutCollection>().addValut(
        Valut(1, u"card"_s, Valut::BankCard | Valut::PassCustomerQrCode));
}

void tst_MaskingLog::log_data()
{
    QTest::addColumn<QByteArray>("output");  // what the client prints
    QTest::addColumn<QString>("merchant");   // a reconciliation of this merchant, if given
    QTest::addColumn<QString>("qr");         // the customer's code, for a sale
    QTest::addColumn<QString>("auth");       // the authorisation code of the sale
    QTest::addColumn<QStringList>("hidden"); // digits (separators aside) or text in no line
    QTest::addColumn<QStringList>("shown");  // in some line, as it stands
    const auto row = [](const QString &name, const QByteArray &output, const QStringList &hidden,
                        const QStringList &shown = {}, const QString &merchant = {},
                        const QString &qr = {}, const QString &auth = {}) {
        QTest::newRow(qPrintable(name)) << output << merchant << qr << auth << hidden << shown;
    };

    const QString visa = card(u"4"_s, 16);
    const QList<int> fours{4, 4, 4, 4};
    const QString last4 = visa.right(4);

    // Groups split by any short run of blanks, controls or punctuation, in a message (the
    // answer line, the output) and on a slip (the receipt, each slip).
    const std::pair<const char *, QString> separators[] = {{"two blanks", u"  "_s},
                                                           {"a tab", u"\t"_s},
                                                           {"CR/LF", u"\r\n"_s},
                                                           {"no-break spaces", u"\u00a0"_s},
                                                           {"thin spaces", u"\u2009"_s},
                                                           {"slashes", u"/"_s},
                                                           {"underscores", u"_"_s},
                                                           {"commas", u","_s},
                                                           {"middle dots", u"·"_s},
                                                           {"hyphens", u"-"_s},
                                                           {"blanks", u" "_s}};
    for (const auto &[name, separator] : separators) {
        const QString number = grouped(visa, fours, separator);
        row(u"groups split by "_s + QLatin1StringView(name),
            slipAnswer(u"КАРТА "_s + number + u" 500 РУБ"_s, u"Карта "_s + number), {visa},
            {u"****"_s + separator + u"****"_s + separator + u"****"_s + separator + last4});
    }
    // Every first digit a card number has, in the layouts cards are printed in.
    QStringList numbers;
    QStringList slip;
    for (char first = '2'; first <= '9'; ++first)
        numbers.append(card(QString(QLatin1Char(first)), 16));
    for (const QString &number : numbers)
        slip.append(number);
    const QString nineteen = card(u"6759"_s, 19);
    const QString amex = card(u"37"_s, 15);
    const QString diners = card(u"36"_s, 14);
    const QString thirteen = card(u"4"_s, 13);
    slip << grouped(nineteen, {4, 4, 4, 4, 3}, u" "_s) << grouped(amex, {4, 6, 5}, u" "_s)
         << grouped(diners, {4, 6, 4}, u" "_s) << grouped(thirteen, {4, 4, 4, 1}, u" "_s)
         << u"VISA"_s + visa + u"RUB"_s;
    row(u"first digits 2 to 9, 19 digits in groups, 4-6-5, 4-6-4, glued to letters"_s,
        slipAnswer(slip.join(u'\n')),
        numbers + QStringList{nineteen, amex, diners, thirteen, visa});

    // Track data goes whole: expiry, service code, discretionary data and name.
    const QString rest = u"25121010000012300000"_s;
    row(u"track 2"_s, slipAnswer(u";"_s + visa + u"="_s + rest + u"?"_s),
        {visa, rest.left(7), u"123"_s}, {u"<track ************"_s + last4 + u'>'});
    row(u"track 2 equivalent"_s, slipAnswer(visa + u"D"_s + rest + u"F"_s), {visa, rest.left(7)},
        {u"<track ************"_s + last4 + u'>'});
    row(u"track 1"_s, slipAnswer(u"%B"_s + visa + u"^IVANOV/IVAN^"_s + rest + u"?"_s),
        {visa, rest.left(7), u"IVANOV"_s});
    row(u"track 2 in grouped digits"_s, slipAnswer(grouped(visa, fours, u" "_s) + u"="_s + rest),
        {visa, rest.left(7)});
    // A member nobody named is read strictly: encoded data that is not BER-TLV by its length.
    row(u"EMV data in a member nobody named"_s,
        answer(QJsonObject{
            {u"EmvData"_s, QString(u"9F2701805713"_s + visa + u"D"_s + rest + u"F9F3602"_s)}}),
        {visa, rest.left(7)}, {u"\"EmvData\":\"<hex 28 bytes>\""_s});
    row(u"EMV tag 5A glued to its neighbours on a slip"_s,
        slipAnswer(u"EMV 9F02060000000150005A08"_s + visa + u"5F24032512319F"_s), {visa},
        {u"5A08************"_s + last4 + u"5F2403251231"_s});

    // JSON escapes cannot hide a digit or a separator.
    row(u"a control character before the number"_s,
        "{\"Status\":1,\"TextResponse\":\"\\u0012" + visa.toLatin1() + "\"}", {visa});
    row(u"escaped no-break spaces between groups"_s,
        "{\"Status\":1,\"TextResponse\":\"" + grouped(visa, fours, u"\\u00a0"_s).toLatin1() + "\"}",
        {visa});
    row(u"digits written as escapes"_s,
        "{\"Status\":1,\"X\":\"\\u0034" + visa.mid(1).toLatin1() + "\"}", {visa});
    row(u"output that is not JSON, with escapes"_s, "ОШИБКА \\u0034" + visa.mid(1).toLatin1(),
        {visa});
    row(u"PAN failing the check digit"_s, answer(QJsonObject{{u"PAN"_s, u"4276123456781234"_s}}),
        {u"4276123456781234"_s}, {u"Номер карты='427612******1234'"_s, u"\"PAN\":\"427612"_s});

    // A line break in a value stays inside its line.
    row(u"a forged line"_s,
        answer(
            QJsonObject{{u"TextResponse"_s, u"OK\n2026-11-23 10:00:00.000 INFO  inpas: Операция "_s
                                            u"выполнена"_s}}),
        {}, {u"Сообщение='OK\n2026-11-23"_s});

    // The customer's code is found by its option, whatever stands before it.
    const QString qr = u"hQVDUFYwMWEmTwegAAAAAxAQVxFBEREREREREdJRIgEAAAAAD1oIQRERERERERE="_s;
    const QString payload = QString::fromLatin1(
        tlv::generateBerTlvTag(u"F6"_s, tlv::generateBerTlvTag(u"D1"_s, qr.toLatin1())).toBase64());
    row(u"customer QR code after an option that looks like its own"_s, answer(), {qr, payload},
        {u"-c -d -d <QR %1 bytes>"_s.arg(payload.size())}, {}, qr, u"-d"_s);
    // A client that echoes the code it was sent, here in its message: found by its value.
    row(u"customer QR code echoed in the message"_s,
        answer(QJsonObject{{u"TextResponse"_s, QString(u"QR "_s + qr + u" -d "_s + payload)}}),
        {qr, payload},
        {u"Сообщение='QR <QR %1 bytes> -d <QR %2 bytes>'"_s.arg(qr.size()).arg(payload.size())}, {},
        qr);

    // What the log is for stays readable.
    const QString merchant = card(u"1"_s, 15);
    row(u"merchant id that passes the check digit"_s, answer(), {},
        {u"Сверка итогов для юр. лица(merchantId = %1)"_s.arg(merchant), u"-t "_s + merchant},
        merchant);
    const QStringList beside{
        u"ДАТА: 04.11.2026 RRN 123456785820"_s, u"1500.00 123456785820"_s, u"107919 000000000001"_s,
        u"ТЕРМИНАЛ 00012345 МЕРЧАНТ 000000000012344"_s, u"ВРЕМЯ 14:07:09 04.11.26"_s};
    row(u"dates, amounts and codes next to reference numbers"_s, slipAnswer(beside.join(u'\n')), {},
        beside);
    row(u"form identifier of 25 digits"_s,
        answer(QJsonObject{{u"ReferenceNumber"_s, u"0100120000345050324140709"_s}}), {},
        {u"ID операции='0100120000345050324140709'"_s,
         u"\"ReferenceNumber\":\"0100120000345050324140709\""_s});
}

// Every line holds no card data and no raw control character; the answer keeps exactly what
// the client sent.
void tst_MaskingLog::log()
{
    QFETCH(QByteArray, output);
    QFETCH(QString, merchant);
    QFETCH(QString, qr);
    QFETCH(QString, auth);
    QFETCH(QStringList, hidden);
    QFETCH(QStringList, shown);

    ProcessorFixture f;
    f.client.setAnswer(output);
    PaymentProcessingAnswer result;
    QStringList lines;
    {
        const LogCapture log;
        QLoggingCategory::setFilterRules(u"*.debug=true"_s);
        if (!merchant.isEmpty()) {
            result = f.processor->checkTotalsByMerchantId(merchant);
        } else {
            PaymentProcessingRequest request;
            request.type = PaymentProcessingRequest::Sale;
            request.customerQrCode = qr;
            request.authorizationCode = auth;
            request.currencyCode = 1;
            result = f.processor->payment(request);
        }
        QLoggingCategory::setFilterRules(QString());
        lines = log.lines();
    }
    QVERIFY(lines.size() >= 4);
    QStringList texts;
    for (const QString &line : std::as_const(lines)) {
        for (const QChar c : line)
            QVERIFY2(c >= u' ', qPrintable(line));
        const QString text = decoded(line);
        const QString digits = digitsOf(text);
        for (const QString &secret : hidden)
            QVERIFY2(!(allDigits(secret) ? digits : text).contains(secret), qPrintable(line));
        texts.append(text);
    }
    const QString all = texts.join(u'\n');
    for (const QString &expected : shown)
        QVERIFY2(all.contains(expected), qPrintable(all));

    const QJsonObject sent = QJsonDocument::fromJson(output).object();
    QCOMPARE(result.pan, sent.value("PAN"_L1).toString());
    if (sent.contains("TextResponse"_L1))
        QCOMPARE(result.message.ru(), sent.value("TextResponse"_L1).toString());
}

void tst_MaskingLog::cutOnlyAtTheRunnersLimit_data()
{
    QTest::addColumn<qsizetype>("size");   // of the output, in bytes
    QTest::addColumn<QString>("expected"); // how the line ends
    // Digits that fail the check digit are a reference, unless the runner may have cut the
    // number they start: only an output that could reach its limit (in bytes; up to three per
    // character) may have been.
    QTest::newRow("a short answer that does not end") << qsizetype(64) << u"КАРТА 41111111111111"_s;
    QTest::newRow("an answer that could reach the runner's limit")
        << maxProcessOutputSize / 3 + 64 << u"КАРТА **************"_s;
}

void tst_MaskingLog::cutOnlyAtTheRunnersLimit()
{
    QFETCH(qsizetype, size);
    QFETCH(QString, expected);
    QByteArray output = "{\"Status\":1,\"ReceiptData\":\"0xDF^1^";
    const QByteArray tail = QStringView(u" КАРТА 41111111111111").toUtf8();
    output += QByteArray(std::max<qsizetype>(0, size - output.size() - tail.size()), 'x') + tail;
    ProcessorFixture f;
    f.client.setAnswer(output);
    QString last;
    {
        const LogCapture log;
        QLoggingCategory::setFilterRules(u"inpas.debug=true"_s);
        f.processor->printCopy(0);
        QLoggingCategory::setFilterRules(QString());
        for (const QString &line : log.lines())
            if (line.contains("0xDF^1^"_L1))
                last = line;
    }
    QVERIFY2(last.endsWith(expected), qPrintable(last.right(80)));
}

QTEST_GUILESS_MAIN(tst_MaskingLog)
#include "tst_maskinglog.moc"
