#include "cardmask.h"

#include "escape.h"

#include <QChar>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qsizetype shortestCard = 13;
constexpr qsizetype longestCard = 19;
constexpr qsizetype visibleHead = 6;
constexpr qsizetype visibleTail = 4;
constexpr qsizetype longestSeparatorRun = 3;
// Track data names its number by its form, so a shorter number counts there.
constexpr qsizetype shortestTrackNumber = 12;
constexpr qsizetype shortestExpiry = 4;
constexpr qsizetype longestTrack1 = 79;
constexpr int mostGroups = 5; // 4-4-4-4-3

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

constexpr std::array<bool, 128> asciiSeparators = [] {
    std::array<bool, 128> table{};
    for (int c = 0; c < 0x20; ++c)
        table[size_t(c)] = true;
    table[0x7f] = true;
    for (const char c : std::string_view(" !\"#%&'()*,-./:;?@[\\]_{}"))
        table[size_t(c)] = true;
    return table;
}();

// Blanks (any Unicode space), control and format characters, and punctuation: what may stand
// between the groups of a card number.
bool isSeparator(char16_t c)
{
    if (c < 128)
        return asciiSeparators[c];
    const QChar ch(c);
    if (ch.isSpace() || ch.isPunct() || c == 0xfffd)
        return true;
    // A surrogate stands in for a byte that was not UTF-8 (RecordedText), a no-break space of
    // cp1251 or cp866 perhaps; the replacement character for one the plug-in could not read.
    const QChar::Category category = ch.category();
    return category == QChar::Other_Control || category == QChar::Other_Format ||
           category == QChar::Other_Surrogate;
}

// Digits written together, between separators. Its digits are kept as they were read, since
// masking may already have starred them in the text.
struct Group
{
    qsizetype start;
    qsizetype length;
    char digits[longestCard];
};

// One pass over a text: stars are written in place (the text is detached only when one is
// needed); track data, which goes whole, is collected and cut out at the end.
class Scanner
{
public:
    Scanner(QString &text, qsizetype from, CardMask::Ending ending)
        : m_text(text)
        , m_read(reinterpret_cast<const char16_t *>(text.constData()))
        , m_from(from)
        , m_size(text.size())
        , m_ending(ending)
    {}

    void run();

private:
    char16_t at(qsizetype i) const { return m_read[i]; }
    bool isTag(qsizetype i, char16_t second) const;
    void star(qsizetype i);
    qsizetype scanRun(qsizetype start);
    qsizetype maskCandidates(Group *window, int groups);
    qsizetype inForm(qsizetype start, qsizetype end);
    qsizetype panTag(qsizetype start, qsizetype end);
    qsizetype track2(qsizetype start, qsizetype end, bool grouped);
    qsizetype track1(qsizetype start, qsizetype end);
    void removeTrack(qsizetype from, qsizetype to, qsizetype numberStart, qsizetype numberEnd);
    void maskCut(qsizetype end);

    struct Removal
    {
        qsizetype from;
        qsizetype to;
        QString with;
    };

    QString &m_text;
    const char16_t *m_read;
    QChar *m_write = nullptr;
    const qsizetype m_from; // nothing before it is read or written
    const qsizetype m_size;
    const CardMask::Ending m_ending;
    std::vector<Removal> m_removals;
};

void Scanner::star(qsizetype i)
{
    if (!m_write) {
        m_write = m_text.data();
        m_read = reinterpret_cast<const char16_t *>(m_write);
    }
    m_write[i] = u'*';
}

// Whether an EMV tag 5<second> (57 or 5A) is written at i, in either case.
bool Scanner::isTag(qsizetype i, char16_t second) const
{
    return i >= m_from && i + 1 < m_size && at(i) == u'5' && QChar::toUpper(at(i + 1)) == second;
}

void Scanner::run()
{
    qsizetype i = m_from;
    while (i < m_size) {
        // Text without digits, the most of it, is passed over four characters at a time.
        for (quint64 units; i + 4 <= m_size; i += 4) {
            std::memcpy(&units, m_read + i, sizeof units);
            if (hasDigit(units))
                break;
        }
        if (i >= m_size)
            break;
        if (!isDigit(at(i))) {
            ++i;
            continue;
        }
        i = scanRun(i);
    }
    if (m_removals.empty())
        return;
    QString out;
    out.reserve(m_size);
    qsizetype from = 0;
    for (const Removal &removal : m_removals) {
        out.append(QStringView(m_read + from, removal.from - from)).append(removal.with);
        from = removal.to;
    }
    out.append(QStringView(m_read + from, m_size - from));
    m_text = out;
}

// A run of groups from start: each group is tried as the end of a card number in each layout,
// with the groups before it; a group in a track or TLV form ends the run.
qsizetype Scanner::scanRun(qsizetype start)
{
    Group window[mostGroups];
    int groups = 0;
    qsizetype pos = start;
    for (;;) {
        const qsizetype groupStart = pos;
        while (pos < m_size && isDigit(at(pos)))
            ++pos;
        const qsizetype groupEnd = pos;
        if (const qsizetype resume = inForm(groupStart, groupEnd); resume >= 0)
            return resume;
        const qsizetype length = groupEnd - groupStart;
        if (length > longestCard) {
            groups = 0; // an identifier: no card number holds it
        } else {
            if (groups == mostGroups) {
                std::move(window + 1, window + groups, window);
                --groups;
            }
            Group &group = window[groups++];
            group.start = groupStart;
            group.length = length;
            for (qsizetype k = 0; k < length; ++k)
                group.digits[k] = char(at(groupStart + k) - u'0');
            // A number written in groups may still be the start of track data.
            const qsizetype numberStart = maskCandidates(window, groups);
            if (numberStart >= 0 && numberStart < groupStart && groupEnd < m_size) {
                const char16_t next = at(groupEnd);
                const qsizetype resume = next == u'^' ? track1(numberStart, groupEnd)
                                                      : track2(numberStart, groupEnd, true);
                if (resume >= 0)
                    return resume;
            }
        }
        qsizetype separators = 0;
        while (pos < m_size && separators <= longestSeparatorRun && isSeparator(at(pos))) {
            ++pos;
            ++separators;
        }
        if (separators > longestSeparatorRun)
            return pos;
        if (separators > 0 && pos < m_size && isDigit(at(pos)))
            continue;
        if (pos == m_size && m_ending == CardMask::Ending::MayBeCut)
            maskCut(groupEnd);
        return pos;
    }
}

// Stars the card numbers that end with the last group of the window; returns where the
// longest of them starts, or -1.
qsizetype Scanner::maskCandidates(Group *window, int groups)
{
    qsizetype found = -1;
    const auto length = [&](int back) { return window[groups - 1 - back].length; };
    const auto tryLast = [&](int count) {
        char digits[longestCard];
        qsizetype n = 0;
        for (int g = groups - count; g < groups; ++g) {
            std::memcpy(digits + n, window[g].digits, size_t(window[g].length));
            n += window[g].length;
        }
        if (n < shortestCard || n > longestCard || digits[0] == 0 ||
            !CardMask::passesLuhn(digits, n))
            return;
        found = found < 0 ? window[groups - count].start
                          : std::min(found, window[groups - count].start);
        qsizetype left = n - visibleTail;
        for (int g = groups - count; g < groups && left > 0; ++g)
            for (qsizetype d = 0; d < window[g].length && left > 0; ++d, --left)
                star(window[g].start + d);
    };
    if (length(0) >= shortestCard)
        tryLast(1);
    if (groups >= 3 && (length(0) == 4 || length(0) == 5) && length(1) == 6 && length(2) == 4)
        tryLast(3);
    if (groups >= 4 && length(0) <= 4 && length(1) == 4 && length(2) == 4 && length(3) == 4)
        tryLast(4);
    if (groups >= 5 && length(0) <= 3 && length(1) == 4 && length(2) == 4 && length(3) == 4 &&
        length(4) == 4)
        tryLast(5);
    return found;
}

// The group [start, end) as part of a form that names a card number by its structure: where
// scanning goes on after it, or -1 when it is none.
qsizetype Scanner::inForm(qsizetype start, qsizetype end)
{
    if (const qsizetype resume = panTag(start, end); resume >= 0)
        return resume;
    if (end >= m_size)
        return -1;
    const char16_t next = at(end);
    if (next == u'=' || next == u'D' || next == u'd')
        return track2(start, end, false);
    if (next == u'^')
        return track1(start, end);
    return -1;
}

// EMV tag 5A in hex, the card number: "5A", its length in bytes, the digits padded with "F".
qsizetype Scanner::panTag(qsizetype start, qsizetype end)
{
    int bytes = -1;
    qsizetype valueStart = start;
    if (isTag(start - 2, u'A') && end - start >= 2) { // a length of two digits, read with the group
        bytes = Escape::hexDigit(at(start)) * 16 + Escape::hexDigit(at(start + 1));
        valueStart = start + 2;
    } else if (isTag(start - 4, u'A') && Escape::hexDigit(at(start - 2)) >= 0 &&
               Escape::hexDigit(at(start - 1)) >= 0) {
        bytes = Escape::hexDigit(at(start - 2)) * 16 + Escape::hexDigit(at(start - 1));
    }
    if (bytes < shortestTrackNumber / 2 || bytes > (longestCard + 1) / 2)
        return -1;
    const qsizetype valueEnd = valueStart + 2 * bytes;
    if (valueEnd > m_size)
        return -1;
    qsizetype digits = 0;
    while (valueStart + digits < valueEnd && isDigit(at(valueStart + digits)))
        ++digits;
    const qsizetype padding = valueEnd - valueStart - digits;
    if (digits < shortestTrackNumber || padding > 1 ||
        (padding == 1 && QChar::toUpper(at(valueEnd - 1)) != u'F'))
        return -1;
    for (qsizetype k = 0; k < digits - visibleTail; ++k)
        star(valueStart + k);
    return valueEnd;
}

// Track 2 data, as text (";N=YYMM...?") or in hex ("NDYYMM...F", the value of EMV tag 57).
// The number is [start, end), written unbroken or, when grouped, already found as a card
// number.
qsizetype Scanner::track2(qsizetype start, qsizetype end, bool grouped)
{
    const bool hex = QChar::toUpper(at(end)) == u'D';
    if (end - start < shortestTrackNumber || (!hex && at(end) != u'='))
        return -1;
    qsizetype after = end + 1;
    while (after < m_size && isDigit(at(after)))
        ++after;
    const bool cut = m_ending == CardMask::Ending::MayBeCut && after == m_size;
    if (after - end - 1 < shortestExpiry && !cut)
        return -1;

    // Where the number starts: inside a longer run of digits, after the tag 57 and its length
    // when they are there, else as far back as a card number reaches; the tag's length then
    // says where the value ends.
    qsizetype numberStart = start;
    qsizetype valueEnd = -1;
    const auto tagLength = [&](qsizetype tag) {
        const int high = Escape::hexDigit(at(tag + 2));
        const int low = Escape::hexDigit(at(tag + 3));
        return high < 0 || low < 0 ? -1 : 2 * (high * 16 + low);
    };
    if (!grouped && end - start >= 4 + shortestTrackNumber) {
        for (qsizetype tag = std::max(start, end - 4 - longestCard);
             tag <= end - 4 - shortestTrackNumber; ++tag) {
            const qsizetype nibbles = tagLength(tag);
            if (isTag(tag, u'7') && nibbles >= end - tag - 4 + 1 + shortestExpiry) {
                numberStart = tag + 4;
                valueEnd = numberStart + nibbles;
                break;
            }
        }
        if (valueEnd < 0 && end - start > longestCard)
            numberStart = end - longestCard;
    } else if (!grouped && isTag(start - 4, u'7') && tagLength(start - 4) > 0) {
        valueEnd = start + tagLength(start - 4);
    }

    qsizetype to = after;
    if (valueEnd >= end + 1 + shortestExpiry && valueEnd <= after + 1 && valueEnd <= m_size)
        to = valueEnd;
    else if (after < m_size && (at(after) == u'?' || (hex && QChar::toUpper(at(after)) == u'F')))
        to = after + 1;
    const qsizetype from =
        numberStart > m_from && at(numberStart - 1) == u';' ? numberStart - 1 : numberStart;
    removeTrack(from, to, numberStart, end);
    return to;
}

// Track 1 data: "%B", the number, "^", the name, "^", expiry, service code and discretionary
// data up to the end sentinel "?".
qsizetype Scanner::track1(qsizetype start, qsizetype end)
{
    if (end - start < shortestTrackNumber || start - 1 < m_from ||
        QChar::toUpper(at(start - 1)) != u'B')
        return -1;
    qsizetype from = start - 1;
    if (from > m_from && at(from - 1) == u'%')
        --from;
    const qsizetype limit = std::min(m_size, from + longestTrack1);
    qsizetype to = end + 1;
    while (to < limit && at(to) != u'?' && at(to) >= 0x20)
        ++to;
    if (to < limit && at(to) == u'?')
        ++to;
    removeTrack(from, to, start, end);
    return to;
}

void Scanner::removeTrack(qsizetype from, qsizetype to, qsizetype numberStart, qsizetype numberEnd)
{
    // The marker shows the number as a card number is shown: stars and its last four digits,
    // which are never starred, whatever layout found it.
    qsizetype digits = 0;
    QString tail;
    for (qsizetype i = numberEnd - 1; i >= numberStart && digits < longestCard; --i) {
        if (!isDigit(at(i)) && at(i) != u'*')
            continue;
        if (++digits <= visibleTail)
            tail.prepend(QChar(at(i)));
    }
    if (!m_removals.empty())
        from = std::max(from, m_removals.back().to);
    m_removals.push_back(
        {from, to, u"<track "_s + QString(digits - visibleTail, u'*') + tail + u'>'});
}

// The text ends in a run of digits that may have gone on: its last digits, as many as a card
// number has, are starred, since any of them may belong to one.
void Scanner::maskCut(qsizetype end)
{
    qsizetype starred = 0;
    for (qsizetype i = end - 1; i >= m_from && starred < longestCard; --i) {
        if (isDigit(at(i))) {
            star(i);
            ++starred;
        } else if (!isSeparator(at(i))) {
            break;
        }
    }
}

} // namespace

bool CardMask::passesLuhn(const char *digits, qsizetype count)
{
    int sum = 0;
    for (qsizetype k = 0; k < count; ++k) {
        const int digit = digits[count - 1 - k];
        sum += k % 2 == 0 ? digit : (digit * 2 > 9 ? digit * 2 - 9 : digit * 2);
    }
    return sum % 10 == 0;
}

QString CardMask::text(QString text, Ending ending)
{
    Scanner(text, 0, ending).run();
    return text;
}

void CardMask::maskTail(QString &text, qsizetype from, Ending ending)
{
    Scanner(text, from, ending).run();
}

QString CardMask::pan(QString pan, Ending ending)
{
    qsizetype count = 0;
    for (const QChar c : std::as_const(pan))
        count += isDigit(c.unicode());
    if (count <= visibleHead + visibleTail && ending == Ending::Whole)
        return pan;
    const qsizetype lastHidden = ending == Ending::Whole ? count - visibleTail : count;
    qsizetype seen = 0;
    for (qsizetype i = 0; i < pan.size(); ++i) {
        if (!isDigit(pan.at(i).unicode()))
            continue;
        if (seen >= visibleHead && seen < lastHidden)
            pan[i] = u'*';
        ++seen;
    }
    return pan;
}
