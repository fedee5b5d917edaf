// The card rule as a rule, apart from the plug-in: case files of text and of client output, each
// <case>.in with the <case>.expected that the log and the recordings may show of it, and the
// escapes every logged value goes through.

#include <cardmask.h>
#include <customercodeforms.h>
#include <escape.h>
#include <escapeblock.h>
#include <outputmask.h>

#include <QDir>
#include <QFile>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {

// A case file's text: UTF-8, the one line end an editor adds at the end not part of it.
QString caseText(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QByteArray bytes = file.readAll();
    if (bytes.endsWith('\n'))
        bytes.chop(1);
    return QString::fromUtf8(bytes);
}

} // namespace

class tst_CardMask : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cases_data();
    void cases();
    void customerCodeByValue_data();
    void customerCodeByValue();
    void escapes_data();
    void escapes();
    void escapeBlockForms();
};

// tests/data/cardmask/<kind>/*.in, by the kind of text they are:
//   text    what the client writes for people (CardMask::text, readable)
//   strict  text nothing says the kind of (CardMask::text, strict)
//   output  whole standard outputs (OutputMask::masked)
//   cut     standard outputs cut at the runner's limit
//   stderr  standard error (OutputMask::maskedUnknownText)
void tst_CardMask::cases_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("expected");
    const QDir root(QStringLiteral(CARDMASK_CASES));
    int found = 0;
    for (const QString &kind : {u"text"_s, u"strict"_s, u"output"_s, u"cut"_s, u"stderr"_s}) {
        const QDir dir(root.filePath(kind));
        for (const QString &name : dir.entryList({u"*.in"_s}, QDir::Files, QDir::Name)) {
            const QString base = name.chopped(3);
            QTest::newRow(qPrintable(kind + u'/' + base))
                << kind << caseText(dir.filePath(name))
                << caseText(dir.filePath(base + u".expected"_s));
            ++found;
        }
    }
    QVERIFY(found > 0);
}

void tst_CardMask::cases()
{
    QFETCH(QString, kind);
    QFETCH(QString, input);
    QFETCH(QString, expected);
    QVERIFY2(!expected.isNull(), "no .expected file");
    constexpr CardMask::Ending Whole = CardMask::Ending::Whole;
    const QString masked =
        kind == "text"_L1     ? CardMask::text(input)
        : kind == "strict"_L1 ? CardMask::text(input, Whole, CardMask::Reading::Strict)
        : kind == "output"_L1 ? OutputMask::masked(input, Whole)
        : kind == "cut"_L1    ? OutputMask::masked(input, CardMask::Ending::MayBeCut)
                              : OutputMask::maskedUnknownText(input, Whole);
    QCOMPARE(masked, expected);
}

namespace {

// A "-d" value as the plug-in sends it: the customer code (Base64 of EMV data with tags 57 and
// 5A) in tags D1 and F6, in Base64. Its number, 4276123456781234, fails the check digit, so that
// only the code's value can find it.
const QString sent =
    u"9lLRUGhRVkRVRll3TVdFeFR3ZWdBQUFBQXhBUVZ4RkNkaEkwVm5nU05OSlJJZ0VBQUFBQUQxb0lRbllTTkZaNEVqU2ZKZ2dSSWpORVZXWjNpQT09"_s;
const QString number = u"4276123456781234"_s;

QString hexOf(const QString &base64)
{
    return QString::fromLatin1(QByteArray::fromBase64(base64.toLatin1()).toHex());
}

} // namespace

void tst_CardMask::customerCodeByValue_data()
{
    QTest::addColumn<QString>("echo"); // what the client writes back
    const QString code = QString::fromLatin1(QByteArray::fromBase64(sent.toLatin1()).mid(4));
    QTest::newRow("its command line") << u"zelnorinpas 1 -a 100 -d "_s + sent;
    QTest::newRow("the code inside") << u"code="_s + code;
    QTest::newRow("the value in hex") << u"hex "_s + hexOf(sent).toUpper();
    QTest::newRow("the code's bytes in hex") << u"emv:"_s + hexOf(code);
    QTest::newRow("the number alone") << u"card "_s + number + u" declined"_s;
    QTest::newRow("track 2 as text") << u"t2="_s + number + u"=2512201000000000?"_s;
}

// Wherever a client echoes the customer's code it was sent, in whatever form, neither the code
// nor the card data inside it is kept: on its standard error and in its message.
void tst_CardMask::customerCodeByValue()
{
    QFETCH(QString, echo);
    const CustomerCodeForms forms(sent);
    const QString output = u"{\"Status\":1,\"TextResponse\":\""_s + echo + u"\"}"_s;
    for (const QString &masked :
         {OutputMask::maskedUnknownText(echo, CardMask::Ending::Whole, forms),
          OutputMask::masked(output, CardMask::Ending::Whole, forms)}) {
        QVERIFY2(masked.contains("<QR "_L1), qPrintable(masked));
        for (const QString &secret : {sent, number, u"2512201"_s, hexOf(sent).mid(8, 40)})
            QVERIFY2(!masked.contains(secret, Qt::CaseInsensitive), qPrintable(masked));
    }
}

void tst_CardMask::escapes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("escaped"); // as a log line writes it (quotes kept)
    QTest::addColumn<QString>("decoded"); // what decoding the text gives
    QTest::newRow("line and paragraph separators")
        << u"a\u2028b\u2029c"_s << u"a\\u2028b\\u2029c"_s << u"a\u2028b\u2029c"_s;
    QTest::newRow("C0, DEL and C1 controls")
        << u"\u0001\u007f\u0085\u009f"_s << u"\\u0001\\u007f\\u0085\\u009f"_s
        << u"\u0001\u007f\u0085\u009f"_s;
    QTest::newRow("short escapes and a backslash")
        << u"\n\r\t\b\f\\\""_s << u"\\n\\r\\t\\b\\f\\\\\""_s << u"\n\r\t\b\f\""_s;
    QTest::newRow("a backslash at the very end") << u"end\\"_s << u"end\\\\"_s << u"end\\"_s;
    QTest::newRow("an escape cut at the very end") << u"x\\u00"_s << u"x\\\\u00"_s << u"x\\u00"_s;
    QTest::newRow("escapes decoded wherever they stand")
        << u"\\u0034\\n\\/"_s << u"\\\\u0034\\\\n\\\\/"_s << u"4\n/"_s;
    QTest::newRow("a backslash before a letter that starts no escape")
        << u"\\q"_s << u"\\\\q"_s << u"\\q"_s;
}

// What is escaped reads back unambiguously, and decoding never reads past the text.
void tst_CardMask::escapes()
{
    QFETCH(QString, text);
    QFETCH(QString, escaped);
    QFETCH(QString, decoded);
    QCOMPARE(Escape::escaped(text), escaped);
    QCOMPARE(Escape::decoded(Escape::escaped(text, Escape::Quotes::Escaped)), text);
    // From a view that ends inside a larger buffer: nothing past the view is read, neither the
    // letter of a short escape nor the digits of a long one.
    for (const QString &after : {u"n"_s, u"41"_s}) {
        const QString buffer = text + after;
        QCOMPARE(Escape::decoded(QStringView(buffer).left(text.size())), decoded);
    }
}

// The block test, whichever form the CPU runs, finds exactly the characters that need an escape,
// in every lane; the plain form, which other CPUs run, is held against the one-character rule.
void tst_CardMask::escapeBlockForms()
{
    using escapeblock::Quotes;
    char16_t block[8];
    for (const Quotes quotes : {Quotes::Kept, Quotes::Escaped}) {
        for (uint c = 0; c <= 0xffff; ++c) {
            const bool needs = escapeblock::needsEscape(char16_t(c), quotes);
            for (int lane = 0; lane < 8; ++lane) {
                std::fill(block, block + 8, u'a');
                block[lane] = char16_t(c);
                if (escapeblock::plain(block, quotes) != needs)
                    QFAIL(qPrintable(u"plain form, U+%1 in lane %2"_s.arg(c, 4, 16).arg(lane)));
#ifdef __SSE2__
                if (escapeblock::sse2(block, quotes) != needs)
                    QFAIL(qPrintable(u"SSE2 form, U+%1 in lane %2"_s.arg(c, 4, 16).arg(lane)));
#endif
            }
        }
    }
    const QList<char16_t> expected{0x00, 0x1f, 0x7f, 0x85, 0x9f, 0x2028, 0x2029, u'\\'};
    for (char16_t c : expected)
        QVERIFY(escapeblock::needsEscape(c, Quotes::Kept));
    for (char16_t c : {char16_t(0x20), char16_t(0xa0), char16_t(0x2027), char16_t(u'"')})
        QVERIFY(!escapeblock::needsEscape(c, Quotes::Kept));
    QVERIFY(escapeblock::needsEscape(u'"', Quotes::Escaped));
}

QTEST_APPLESS_MAIN(tst_CardMask)
#include "tst_cardmask.moc"
