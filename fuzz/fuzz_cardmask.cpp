// The card rule on arbitrary text and output, against a plain reading of the rule: every card
// number that the reference finds in the input is starred in what the rule writes (when no
// track data was cut out, so that positions still match); the strict reading leaves no thirteen
// digits in a row; a customer's code put anywhere in the input is never kept; nothing written
// holds a raw control character; escapes read back to what was escaped.

#include <cardmask.h>
#include <customercodeforms.h>
#include <escape.h>
#include <outputmask.h>

#include <QList>

#include <cstdint>
#include <cstdlib>

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

bool hasControl(const QString &text)
{
    for (const QChar c : text)
        if (c.unicode() < 0x20)
            return true;
    return false;
}

bool hasLetterBeyondAscii(const QString &text)
{
    for (const QChar c : text)
        if (c.unicode() >= 0x80 && c.isLetter())
            return true;
    return false;
}

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

bool isSeparator(QChar c)
{
    return c.isSpace() || c.isPunct() || c.category() == QChar::Other_Control ||
           c.category() == QChar::Other_Format;
}

// The positions of the digits of the card number written at start in this layout, or none.
QList<qsizetype> cardAt(const QString &text, qsizetype start, const QList<int> &layout)
{
    QList<qsizetype> digits;
    qsizetype at = start;
    for (qsizetype g = 0; g < layout.size(); ++g) {
        if (g > 0) {
            const qsizetype from = at;
            while (at < text.size() && isSeparator(text.at(at)) && at - from < 4)
                ++at;
            if (at == from || at - from > 3)
                return {};
        }
        for (int k = 0; k < layout.at(g); ++k, ++at) {
            if (at >= text.size() || !isDigit(text.at(at)))
                return {};
            digits.append(at);
        }
    }
    if (at < text.size() && isDigit(text.at(at)))
        return {};
    // Zeros padding the number aside; fifteen digits only with an American Express prefix;
    // never a time stamp.
    qsizetype zeros = 0;
    while (zeros < digits.size() && text.at(digits.at(zeros)) == u'0')
        ++zeros;
    const qsizetype length = digits.size() - zeros;
    if (length < 13 || length > 19)
        return {};
    const auto digit = [&](qsizetype k) { return text.at(digits.at(k)).digitValue(); };
    if (length == 15 && !(digit(zeros) == 3 && (digit(zeros + 1) == 4 || digit(zeros + 1) == 7)))
        return {};
    if (digits.size() == 14 && digit(0) == 2 && digit(1) == 0)
        return {};
    int sum = 0;
    for (qsizetype k = 0; k < length; ++k) {
        const int d = digit(digits.size() - 1 - k);
        sum += k % 2 == 0 ? d : (d * 2 > 9 ? d * 2 - 9 : d * 2);
    }
    return sum % 10 == 0 ? digits : QList<qsizetype>{};
}

void checkEveryCardStarred(const QString &input, const QString &masked)
{
    static const QList<QList<int>> layouts = [] {
        QList<QList<int>> all{{4, 6, 5}, {4, 6, 4}, {6, 10}, {8, 8}, {6, 13}};
        for (int length = 13; length <= 19; ++length)
            all.append(QList<int>{length});
        for (int last = 1; last <= 4; ++last)
            all.append(QList<int>{4, 4, 4, last});
        for (int last = 1; last <= 3; ++last)
            all.append(QList<int>{4, 4, 4, 4, last});
        return all;
    }();
    for (qsizetype start = 0; start < input.size(); ++start) {
        if (!isDigit(input.at(start)) || (start > 0 && isDigit(input.at(start - 1))))
            continue;
        for (const QList<int> &layout : layouts) {
            const QList<qsizetype> digits = cardAt(input, start, layout);
            for (qsizetype k = 0; k + 4 < digits.size(); ++k)
                check(masked.at(digits.at(k)) == u'*');
        }
    }
}

// The longest run of ASCII digits in the text, but a time stamp's fourteen.
qsizetype longestDigits(const QString &text)
{
    qsizetype longest = 0;
    for (qsizetype i = 0; i < text.size();) {
        qsizetype j = i;
        while (j < text.size() && isDigit(text.at(j)))
            ++j;
        if (!(j - i == 14 && text.mid(i, 2) == u"20"))
            longest = std::max(longest, j - i);
        i = j + 1;
    }
    return longest;
}

// A "-d" value as the plug-in sends it, a customer code with a card number inside.
const QString sent = QStringLiteral(
    "9lLRUGhRVkRVRll3TVdFeFR3ZWdBQUFBQXhBUVZ4RkNkaEkwVm5nU05OSlJJZ0VBQUFBQUQxb0lRbllTTkZaNEVqU2ZK"
    "Z2dSSWpORVZXWjNpQT09");

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString input = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    const QString masked = CardMask::text(input);
    // Without track or encoded data cut out (so that positions still match; a marker may be
    // as long as what it replaced) and without fiscal labels
    // (Cyrillic), whose values are no cards.
    if (masked.size() == input.size() && masked.count(u'<') == input.count(u'<') &&
        !hasLetterBeyondAscii(input))
        checkEveryCardStarred(input, masked);
    check(Escape::decoded(Escape::escaped(input)) == input);
    for (const auto ending : {CardMask::Ending::Whole, CardMask::Ending::MayBeCut}) {
        check(!hasControl(Escape::escaped(CardMask::text(input, ending))));
        check(!hasControl(OutputMask::masked(input, ending)));
    }
    // Fiscal labels (Cyrillic) keep their values: only text without them is held to it.
    const QString strict =
        CardMask::text(input, CardMask::Ending::Whole, CardMask::Reading::Strict);
    if (!hasLetterBeyondAscii(input))
        check(longestDigits(strict) < 13);

    // The code put where the input's first byte says.
    static const CustomerCodeForms forms(sent);
    const qsizetype at = size > 0 ? qsizetype(data[0]) % (input.size() + 1) : 0;
    const QString echoed = input.left(at) + sent + input.mid(at);
    check(!OutputMask::masked(echoed, CardMask::Ending::Whole, forms).contains(sent));
    check(!OutputMask::maskedUnknownText(echoed, CardMask::Ending::Whole, forms).contains(sent));
    return 0;
}
