#include "panmask.h"

#include <QList>

namespace {

bool passesLuhn(const QString &text, const QList<qsizetype> &digits)
{
    int sum = 0;
    bool doubled = false;
    for (auto it = digits.crbegin(); it != digits.crend(); ++it) {
        int d = text.at(*it).digitValue();
        if (doubled) {
            d *= 2;
            if (d > 9)
                d -= 9;
        }
        sum += d;
        doubled = !doubled;
    }
    return sum % 10 == 0;
}

bool isAsciiDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

} // namespace

QString maskCardNumbers(const QString &text)
{
    QString result = text;
    QList<qsizetype> digits;
    qsizetype i = 0;
    const qsizetype size = text.size();
    while (i < size) {
        if (!isAsciiDigit(text.at(i))) {
            ++i;
            continue;
        }
        // One group: digits, with single separators allowed between two digits.
        digits.clear();
        while (i < size) {
            if (isAsciiDigit(text.at(i))) {
                digits.append(i++);
            } else if ((text.at(i) == u' ' || text.at(i) == u'-') && i + 1 < size &&
                       isAsciiDigit(text.at(i + 1))) {
                ++i;
            } else {
                break;
            }
        }
        if (digits.size() >= 13 && digits.size() <= 19 && passesLuhn(text, digits)) {
            for (qsizetype k = 0; k < digits.size() - 4; ++k)
                result[digits.at(k)] = u'*';
        }
    }
    return result;
}
