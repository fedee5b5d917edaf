#include "cardmask.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>

#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qsizetype shortestCard = 13;
constexpr qsizetype longestCard = 19;
constexpr qsizetype visibleTail = 4;
constexpr qsizetype visibleHead = 6;

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

bool isSeparator(QChar c)
{
    return c == u' ' || c == u'-' || c == u'.';
}

// The Luhn sums of a digit string read from its left end: doubled[p] is the sum when the
// digits at even (p = 0) or odd (p = 1) positions from the left are the doubled ones.
struct LuhnSums
{
    int doubled[2] = {0, 0};

    void add(qsizetype position, int digit)
    {
        const int twice = digit * 2 > 9 ? digit * 2 - 9 : digit * 2;
        doubled[position % 2] += twice;
        doubled[1 - position % 2] += digit;
    }
    // From the right, the last digit is plain and the one before it doubled.
    bool passes(qsizetype length) const { return doubled[length % 2] % 10 == 0; }
};

// Masks the card numbers among the groups of one run: every sequence of whole groups that
// holds 13 to 19 digits and passes Luhn keeps its last four digits. Groups hold positions
// into text; result receives the stars.
void maskRun(const QString &text, const std::vector<qsizetype> &digits,
             const std::vector<qsizetype> &groupStarts, QString &result)
{
    const qsizetype groups = qsizetype(groupStarts.size());
    const auto groupEnd = [&](qsizetype g) {
        return g + 1 < groups ? groupStarts[size_t(g + 1)] : qsizetype(digits.size());
    };
    for (qsizetype first = 0; first < groups; ++first) {
        LuhnSums sums;
        const qsizetype from = groupStarts[size_t(first)];
        for (qsizetype g = first; g < groups; ++g) {
            const qsizetype to = groupEnd(g);
            if (to - from > longestCard)
                break;
            for (qsizetype d = groupStarts[size_t(g)]; d < to; ++d)
                sums.add(d - from, text.at(digits[size_t(d)]).digitValue());
            if (to - from >= shortestCard && sums.passes(to - from)) {
                for (qsizetype d = from; d < to - visibleTail; ++d)
                    result[digits[size_t(d)]] = u'*';
            }
        }
    }
}

// Where a JSON string that starts with the quote at begin ends (the index after its closing
// quote), or -1 when it does not end.
qsizetype stringEnd(const QString &json, qsizetype begin)
{
    for (qsizetype i = begin + 1; i < json.size(); ++i) {
        if (json.at(i) == u'\\')
            ++i;
        else if (json.at(i) == u'"')
            return i + 1;
    }
    return -1;
}

// The text of a JSON string token, quotes included; escapes are decoded by Qt's own parser.
QString decodedString(QStringView token)
{
    if (!token.contains(u'\\'))
        return token.sliced(1, token.size() - 2).toString();
    const QJsonDocument array = QJsonDocument::fromJson('[' + token.toUtf8() + ']');
    return array.isArray() ? array.array().first().toString() : QString();
}

bool isPanKey(QStringView token)
{
    return token == u"\"PAN\"" || (token.contains(u'\\') && decodedString(token) == "PAN"_L1);
}

QString jsonString(const QString &text)
{
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.sliced(1, array.size() - 2));
}

qsizetype skipBlanks(const QString &json, qsizetype i)
{
    while (i < json.size() && (json.at(i) == u' ' || json.at(i) == u'\t' || json.at(i) == u'\n' ||
                               json.at(i) == u'\r'))
        ++i;
    return i;
}

} // namespace

QString CardMask::text(const QString &text)
{
    QString result = text;              // shared until the first star
    std::vector<qsizetype> digits;      // positions of the run's digits
    std::vector<qsizetype> groupStarts; // index into digits where each group starts
    const qsizetype size = text.size();
    qsizetype i = 0;
    while (i < size) {
        if (!isDigit(text.at(i))) {
            ++i;
            continue;
        }
        digits.clear();
        groupStarts.clear();
        for (;;) {
            groupStarts.push_back(qsizetype(digits.size()));
            while (i < size && isDigit(text.at(i)))
                digits.push_back(i++);
            if (i + 1 < size && isSeparator(text.at(i)) && isDigit(text.at(i + 1)))
                ++i;
            else
                break;
        }
        if (qsizetype(digits.size()) >= shortestCard)
            maskRun(text, digits, groupStarts, result);
    }
    return result;
}

QString CardMask::pan(const QString &pan)
{
    qsizetype count = 0;
    for (const QChar c : pan)
        count += isDigit(c);
    if (count <= visibleHead + visibleTail)
        return pan;
    QString result = pan;
    qsizetype seen = 0;
    for (qsizetype i = 0; i < result.size(); ++i) {
        if (!isDigit(result.at(i)))
            continue;
        if (seen >= visibleHead && seen < count - visibleTail)
            result[i] = u'*';
        ++seen;
    }
    return result;
}

QString CardMask::panMembers(const QString &json)
{
    // Only a member named "PAN" matters, so text without that name is not tokenised at all.
    if (!json.contains("PAN"_L1) && !json.contains(u'\\'))
        return json;
    QString result;
    qsizetype copied = 0;
    for (qsizetype i = 0; i < json.size(); ++i) {
        if (json.at(i) != u'"')
            continue;
        const qsizetype keyEnd = stringEnd(json, i);
        if (keyEnd < 0)
            break;
        const qsizetype colon = skipBlanks(json, keyEnd);
        if (colon >= json.size() || json.at(colon) != u':' ||
            !isPanKey(QStringView(json).sliced(i, keyEnd - i))) {
            i = keyEnd - 1;
            continue;
        }
        const qsizetype valueStart = skipBlanks(json, colon + 1);
        qsizetype valueEnd = valueStart;
        QString masked;
        if (valueStart < json.size() && json.at(valueStart) == u'"') {
            valueEnd = stringEnd(json, valueStart);
            if (valueEnd < 0)
                break;
            masked = jsonString(
                pan(decodedString(QStringView(json).sliced(valueStart, valueEnd - valueStart))));
        } else {
            while (valueEnd < json.size() &&
                   (isDigit(json.at(valueEnd)) || json.at(valueEnd) == u'-' ||
                    json.at(valueEnd) == u'.'))
                ++valueEnd;
            masked = pan(json.sliced(valueStart, valueEnd - valueStart));
        }
        result.append(QStringView(json).sliced(copied, valueStart - copied)).append(masked);
        copied = valueEnd;
        i = valueEnd - 1;
    }
    if (copied == 0)
        return json;
    return result.append(QStringView(json).sliced(copied));
}
