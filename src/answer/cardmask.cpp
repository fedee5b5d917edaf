#include "cardmask.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cstring>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qsizetype shortestCard = 13;
constexpr qsizetype longestCard = 19;
constexpr qsizetype visibleTail = 4;
constexpr qsizetype visibleHead = 6;

bool isDigit(char16_t c)
{
    return c >= u'0' && c <= u'9';
}

// Whether any of the four UTF-16 code units in a word is an ASCII digit: the classic test
// for a value between two bounds in every lane at once, here 0x2F < unit < 0x3A.
bool hasDigit(quint64 units)
{
    constexpr quint64 lanes = 0x0001000100010001;
    constexpr quint64 low = lanes * 0x7FFF;
    return ((lanes * (0x7FFF + 0x3A) - (units & low)) & ~units &
            ((units & low) + lanes * (0x7FFF - 0x2F)) & (lanes * 0x8000)) != 0;
}

bool isSeparator(char16_t c)
{
    return c == u' ' || c == u'-' || c == u'.';
}

// A text's characters, written only once masking needs it: a text that needs no star is
// never detached.
class Characters
{
public:
    explicit Characters(QString &text)
        : m_text(text)
        , m_read(reinterpret_cast<const char16_t *>(text.constData()))
    {}
    char16_t operator[](qsizetype i) const { return m_read[i]; }
    void star(qsizetype i)
    {
        if (!m_write) {
            m_write = m_text.data();
            m_read = reinterpret_cast<const char16_t *>(m_write);
        }
        m_write[i] = u'*';
    }

private:
    QString &m_text;
    const char16_t *m_read;
    QChar *m_write = nullptr;
};

// Where the run of groups that starts at i ends, and how many digits it has.
qsizetype runEnd(const Characters &c, qsizetype i, qsizetype size, qsizetype &digits)
{
    digits = 0;
    for (;;) {
        while (i < size && isDigit(c[i])) {
            ++i;
            ++digits;
        }
        if (i + 1 < size && isSeparator(c[i]) && isDigit(c[i + 1]))
            ++i;
        else
            return i;
    }
}

// A group of a run: digits written together, between separators. Its digits are kept as they
// were read, since masking may already have starred them in the text.
struct Group
{
    qsizetype start;
    qsizetype length;
    char digits[longestCard];
};

// Masks the card numbers of the run of groups that starts at from and ends at to: every
// sequence of whole groups that holds 13 to 19 digits and passes Luhn keeps its last four
// digits. Groups are taken one at a time, and each is tried as the end of a card number
// together with the groups before it, as far back as 19 digits reach; the check digit is
// added up from the right as the sequence grows to the left. No storage beyond those groups.
void maskRun(Characters &c, qsizetype from, qsizetype to)
{
    Group window[longestCard];
    qsizetype groups = 0;
    qsizetype windowDigits = 0;
    qsizetype i = from;
    while (i < to) {
        Group group{i, 0, {}};
        while (i < to && isDigit(c[i])) {
            if (i - group.start < longestCard)
                group.digits[i - group.start] = char(c[i] - u'0');
            ++i;
        }
        group.length = i - group.start;
        ++i;                              // the separator
        if (group.length > longestCard) { // no card number holds this group
            groups = 0;
            windowDigits = 0;
            continue;
        }
        while (groups > 0 && windowDigits + group.length > longestCard) {
            windowDigits -= window[0].length;
            std::move(window + 1, window + groups, window);
            --groups;
        }
        window[groups++] = group;
        windowDigits += group.length;

        int sum = 0;
        qsizetype digits = 0;
        for (qsizetype g = groups - 1; g >= 0; --g) {
            for (qsizetype d = window[g].length - 1; d >= 0; --d) {
                const int digit = window[g].digits[d];
                sum += digits++ % 2 == 0 ? digit : (digit * 2 > 9 ? digit * 2 - 9 : digit * 2);
            }
            if (digits < shortestCard || sum % 10 != 0)
                continue;
            // A card number from group g to this one: all but its last four digits.
            qsizetype left = digits - visibleTail;
            for (qsizetype k = g; k < groups && left > 0; ++k)
                for (qsizetype d = 0; d < window[k].length && left > 0; ++d, --left)
                    c.star(window[k].start + d);
        }
    }
}

// The PAN rule on the digits of [from, to).
void maskPanDigits(Characters &c, qsizetype from, qsizetype to)
{
    qsizetype count = 0;
    for (qsizetype i = from; i < to; ++i)
        count += isDigit(c[i]);
    if (count <= visibleHead + visibleTail)
        return;
    qsizetype seen = 0;
    for (qsizetype i = from; i < to; ++i) {
        if (!isDigit(c[i]))
            continue;
        if (seen >= visibleHead && seen < count - visibleTail)
            c.star(i);
        ++seen;
    }
}

// Where a JSON string that starts with the quote at begin ends (the index after its closing
// quote), or -1 when it does not end.
qsizetype stringEnd(QStringView json, qsizetype begin)
{
    // Qt's search for the next quote is vectorised; a quote after an odd number of
    // backslashes is escaped and the search goes on.
    for (qsizetype quote = json.indexOf(u'"', begin + 1); quote >= 0;
         quote = json.indexOf(u'"', quote + 1)) {
        qsizetype backslashes = 0;
        while (json.at(quote - 1 - backslashes) == u'\\')
            ++backslashes;
        if (backslashes % 2 == 0)
            return quote + 1;
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

qsizetype skipBlanks(QStringView json, qsizetype i)
{
    while (i < json.size() && (json.at(i) == u' ' || json.at(i) == u'\t' || json.at(i) == u'\n' ||
                               json.at(i) == u'\r'))
        ++i;
    return i;
}

} // namespace

QString CardMask::text(QString text)
{
    Characters c(text);
    const qsizetype size = text.size();
    qsizetype i = 0;
    while (i < size) {
        // Text without digits, the most of it, is passed over four characters at a time.
        for (quint64 units; i + 4 <= size; i += 4) {
            std::memcpy(&units, text.constData() + i, sizeof units);
            if (hasDigit(units))
                break;
        }
        if (i >= size)
            break;
        if (!isDigit(c[i])) {
            ++i;
            continue;
        }
        // Most runs are dates, times and amounts: counted, and left, in one pass.
        qsizetype digits = 0;
        const qsizetype end = runEnd(c, i, size, digits);
        if (digits >= shortestCard)
            maskRun(c, i, end);
        i = end;
    }
    return text;
}

QString CardMask::pan(QString pan)
{
    Characters c(pan);
    maskPanDigits(c, 0, pan.size());
    return pan;
}

QString CardMask::panMembers(QString json)
{
    // Only a member named "PAN" matters, so text without that name is not tokenised at all.
    if (!json.contains("PAN"_L1) && !json.contains(u'\\'))
        return json;
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
        if (valueStart < json.size() && json.at(valueStart) == u'"') {
            valueEnd = stringEnd(json, valueStart);
            if (valueEnd < 0)
                break;
            const QStringView token = QStringView(json).sliced(valueStart, valueEnd - valueStart);
            if (token.contains(u'\\')) {
                // Escapes may hide digits: decoded, masked and written again.
                const QString masked = jsonString(pan(decodedString(token)));
                json.replace(valueStart, token.size(), masked);
                valueEnd = valueStart + masked.size();
            } else {
                Characters c(json);
                maskPanDigits(c, valueStart, valueEnd);
            }
        } else {
            while (valueEnd < json.size() &&
                   (isDigit(json.at(valueEnd).unicode()) || json.at(valueEnd) == u'-' ||
                    json.at(valueEnd) == u'.'))
                ++valueEnd;
            Characters c(json);
            maskPanDigits(c, valueStart, valueEnd);
        }
        i = valueEnd - 1;
    }
    return json;
}
