// The card rule on arbitrary text and output, against a plain reading of the rule: every card
// number that the reference finds in the input is starred in what the rule writes (when no
// track data was cut out, so that positions still match); nothing written holds a raw control
// character; escapes read back to what was escaped.

#include <cardmask.h>
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
    int sum = 0;
    for (qsizetype k = 0; k < digits.size(); ++k) {
        const int digit = text.at(digits.at(digits.size() - 1 - k)).digitValue();
        sum += k % 2 == 0 ? digit : (digit * 2 > 9 ? digit * 2 - 9 : digit * 2);
    }
    return text.at(start) != u'0' && sum % 10 == 0 ? digits : QList<qsizetype>{};
}

void checkEveryCardStarred(const QString &input, const QString &masked)
{
    static const QList<QList<int>> layouts = [] {
        QList<QList<int>> all{{4, 6, 5}, {4, 6, 4}};
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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString input = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    const QString masked = CardMask::text(input);
    if (masked.size() == input.size() && !masked.contains(u"<track "))
        checkEveryCardStarred(input, masked);
    check(Escape::decoded(Escape::escaped(input)) == input);
    for (const auto ending : {CardMask::Ending::Whole, CardMask::Ending::MayBeCut}) {
        check(!hasControl(Escape::escaped(CardMask::text(input, ending))));
        check(!hasControl(OutputMask::masked(input, ending)));
    }
    return 0;
}
