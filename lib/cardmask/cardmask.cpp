#include "cardmask.h"

#include "escape.h"
#include "tlvview.h"

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
// A number wrapped at the end of a slip's line: its line break with the padding around it.
constexpr qsizetype longestWrap = 48;
// Track data names its number by its form, so a shorter number counts there.
constexpr qsizetype shortestTrackNumber = 12;
constexpr qsizetype shortestExpiry = 4;
constexpr qsizetype longestTrack1 = 79;
constexpr int mostGroups = 5; // 4-4-4-4-3
// The strict reading: this many digits in a row (whatever splits them) could be a number.
constexpr qsizetype strictDigits = 12;
// The strict reading: hex and Base64 long enough to hold an EMV element or a QR payload.
constexpr qsizetype shortestHex = 16;
constexpr qsizetype shortestBase64 = 40;
// Encoded data inside encoded data is read to this depth; deeper values keep only their length.
constexpr int deepestEncoding = 3;

bool isDigit(char16_t c)
{
    return c >= u'0' && c <= u'9';
}

bool isLetter(char16_t c)
{
    return QChar::isLetter(c);
}

// Whether any of the four UTF-16 code units in a word is between two bounds (below < unit <
// above): the classic test in every lane at once.
template<quint64 below, quint64 above>
bool hasBetween(quint64 units)
{
    constexpr quint64 lanes = 0x0001000100010001;
    constexpr quint64 low = lanes * 0x7FFF;
    return ((lanes * (0x7FFF + above) - (units & low)) & ~units &
            ((units & low) + lanes * (0x7FFF - below)) & (lanes * 0x8000)) != 0;
}

// An ASCII digit.
bool hasDigit(quint64 units)
{
    return hasBetween<0x2F, 0x3A>(units);
}

// What the strict reading looks at: ASCII digits and letters, and "/" ("+" is found from the
// letters beside it).
bool hasEncodable(quint64 units)
{
    return hasBetween<0x2E, 0x3A>(units) || hasBetween<0x40, 0x7B>(units);
}

constexpr std::array<bool, 128> asciiSeparators = [] {
    std::array<bool, 128> table{};
    for (int c = 0; c < 0x20; ++c)
        table[size_t(c)] = true;
    table[0x7f] = true;
    for (const char c : std::string_view(" !\"#%&'()*,-./:;?@[\\]_{}|+~<>"))
        table[size_t(c)] = true;
    return table;
}();

// Blanks (any Unicode space), control and format characters, punctuation, the signs of
// arithmetic (a minus sign, a vertical bar) and "№": what may stand between the groups of a card
// number, or between a label and its value.
bool isSeparator(char16_t c)
{
    if (c < 128)
        return asciiSeparators[c];
    const QChar ch(c);
    if (ch.isSpace() || ch.isPunct() || c == 0xfffd || c == u'№')
        return true;
    // A surrogate stands in for a byte that was not UTF-8 (RecordedText), a no-break space of
    // cp1251 or cp866 perhaps; the replacement character for one the plug-in could not read.
    const QChar::Category category = ch.category();
    return category == QChar::Other_Control || category == QChar::Other_Format ||
           category == QChar::Other_Surrogate || category == QChar::Symbol_Math;
}

bool isLineBreak(char16_t c)
{
    return c == u'\n' || c == u'\r' || c == 0x1e || c == 0x2028 || c == 0x2029;
}

bool isBlank(char16_t c)
{
    return c == u' ' || c == u'\t' || c == 0xa0;
}

bool isHex(char16_t c)
{
    return (c >= u'0' && c <= u'9') || ((c | 0x20) >= u'a' && (c | 0x20) <= u'f');
}

bool isBase64(char16_t c)
{
    return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || isDigit(c) || c == u'+' ||
           c == u'/';
}

// What a word before a value says it is.
enum class Label {
    None,
    Sensitive, // the value is sensitive authentication data: never kept, whatever it looks like
    Fiscal,    // the value is a fiscal register's number: never a card's
};

struct LabelRow
{
    std::u16string_view text; // upper case
    Label label;
};

// The labels, longest first where one ends another.
constexpr LabelRow labels[] = {
    {u"PIN BLOCK", Label::Sensitive}, {u"PIN-BLOCK", Label::Sensitive},
    {u"PINBLOCK", Label::Sensitive},  {u"ПИН-БЛОК", Label::Sensitive},
    {u"ПИН БЛОК", Label::Sensitive},  {u"ПИНБЛОК", Label::Sensitive},
    {u"CVV2", Label::Sensitive},      {u"CVC2", Label::Sensitive},
    {u"CAV2", Label::Sensitive},      {u"CVV", Label::Sensitive},
    {u"CVC", Label::Sensitive},       {u"CVN", Label::Sensitive},
    {u"CID", Label::Sensitive},       {u"CAV", Label::Sensitive},
    {u"PIN", Label::Sensitive},       {u"ПИН", Label::Sensitive},
    {u"ЗН ККТ", Label::Fiscal},       {u"РН ККТ", Label::Fiscal},
    {u"ФПД", Label::Fiscal},          {u"ФН", Label::Fiscal},
    {u"ФД", Label::Fiscal},           {u"ФП", Label::Fiscal},
    {u"ИНН", Label::Fiscal},          {u"ЗН", Label::Fiscal},
    {u"РН", Label::Fiscal},
};

bool isLastOfALabel(char16_t upper)
{
    for (const LabelRow &row : labels)
        if (row.text.back() == upper)
            return true;
    return false;
}

// Whether a label can end with this character: most words cannot, and are passed over at once.
bool endsLabel(char16_t c)
{
    static constexpr std::array<bool, 128> ascii = [] {
        std::array<bool, 128> table{};
        for (const LabelRow &row : labels) {
            const char16_t last = row.text.back();
            if (last < 128) {
                table[last] = true;
                if (last >= u'A' && last <= u'Z')
                    table[last + 0x20] = true;
            }
        }
        return table;
    }();
    return c < 128 ? ascii[c] : isLastOfALabel(QChar::toUpper(c));
}

// A date and time written as YYYYMMDDhhmmss: the shape of a slip's time stamp, never a card's.
bool isTimestamp(const char *digits, qsizetype count)
{
    if (count != 14)
        return false;
    const auto at = [digits](int from, int length) {
        int n = 0;
        for (int k = from; k < from + length; ++k)
            n = n * 10 + digits[k];
        return n;
    };
    const int year = at(0, 4), month = at(4, 2), day = at(6, 2);
    return year >= 2000 && year <= 2099 && month >= 1 && month <= 12 && day >= 1 && day <= 31 &&
           at(8, 2) <= 23 && at(10, 2) <= 59 && at(12, 2) <= 59;
}

// The shapes a date and time are written in, field by field, longest first: D day, M month,
// Y year of four digits, y of two, h hour, m minute, s second, f milliseconds.
constexpr std::string_view dateTimeShapes[] = {"YMDhmsf", "DMYhmsf", "YMDhms", "DMYhms", "hmsDMY",
                                               "DMyhms",  "hmsDMy",  "YMDhm",  "DMYhm",  "hmDMY"};

// A group of digits as a field of a date or time reads it.
struct Field
{
    int value;
    qsizetype length;
};

// How many groups from the first of these are a date and time, or 0.
int dateTimeAt(const Field *fields, qsizetype count)
{
    for (const std::string_view shape : dateTimeShapes) {
        if (qsizetype(shape.size()) > count)
            continue;
        bool fits = true;
        for (size_t k = 0; k < shape.size() && fits; ++k) {
            const int v = fields[k].value;
            const qsizetype n = fields[k].length;
            switch (shape[k]) {
            case 'D':
                fits = n == 2 && v >= 1 && v <= 31;
                break;
            case 'M':
                fits = n == 2 && v >= 1 && v <= 12;
                break;
            case 'Y':
                fits = n == 4 && v >= 1900 && v <= 2099;
                break;
            case 'y':
                fits = n == 2;
                break;
            case 'h':
                fits = n == 2 && v <= 23;
                break;
            case 'm':
            case 's':
                fits = n == 2 && v <= 59;
                break;
            default:
                fits = n == 3;
                break;
            }
        }
        if (fits)
            return int(shape.size());
    }
    return 0;
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
// needed); what goes whole (track data, encoded data) is collected and replaced at the end.
class Scanner
{
public:
    Scanner(QString &text, qsizetype from, CardMask::Ending ending, CardMask::Reading reading,
            int depth = 0)
        : m_text(text)
        , m_read(reinterpret_cast<const char16_t *>(text.constData()))
        , m_from(from)
        , m_size(text.size())
        , m_ending(ending)
        , m_strict(reading == CardMask::Reading::Strict)
        , m_depth(depth)
    {}

    void run();

private:
    char16_t at(qsizetype i) const { return m_read[i]; }
    bool isTag(qsizetype i, char16_t second) const;
    void star(qsizetype i);
    Label labelBefore(qsizetype pos) const;
    qsizetype sensitiveValue(qsizetype digit);
    qsizetype encodedRun(qsizetype digit);
    qsizetype separatorRun(qsizetype pos) const;
    qsizetype scanRun(qsizetype start);
    bool isCard(const char *digits, qsizetype count, qsizetype start) const;
    qsizetype maskCandidates(Group *window, int groups);
    void maskStrict();
    void maskGluedExpiry(qsizetype start, qsizetype length);
    bool isTimestampAt(qsizetype start) const;
    qsizetype inForm(qsizetype start, qsizetype end);
    qsizetype panTag(qsizetype start, qsizetype end);
    qsizetype track2(qsizetype start, qsizetype end, bool grouped);
    qsizetype track1(qsizetype start, qsizetype end);
    void remove(qsizetype from, qsizetype to, const QString &with);
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
    const bool m_strict;
    const int m_depth;        // how deep inside encoded data the text is
    qsizetype m_examined = 0; // encoded runs before this were looked at already
    std::vector<Removal> m_removals;
    struct Span
    {
        qsizetype start;
        qsizetype length;
    };
    std::vector<Span> m_run;     // the strict reading's groups of the run at hand
    std::vector<Field> m_fields; // and their values, for the dates among them
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
    if (i < m_from || i + 1 >= m_size || at(i) != u'5')
        return false;
    const char16_t c = at(i + 1);
    return (c >= u'a' && c <= u'f' ? char16_t(c - 0x20) : c) == second;
}

// The label a value at pos follows, a few separators away: "CVV2: 123", "ФН 9282...".
Label Scanner::labelBefore(qsizetype pos) const
{
    qsizetype end = pos;
    for (int k = 0; k < 4 && end > m_from && isSeparator(at(end - 1)) && !isLineBreak(at(end - 1));
         ++k)
        --end;
    if (end == pos || end == m_from || !endsLabel(at(end - 1)))
        return Label::None; // glued to a word, or no word that a label ends with there
    for (const LabelRow &row : labels) {
        const qsizetype size = qsizetype(row.text.size());
        const qsizetype wordStart = end - size;
        if (wordStart < m_from || (wordStart > m_from && isLetter(at(wordStart - 1))))
            continue;
        bool same = true;
        for (qsizetype k = 0; k < size && same; ++k)
            same = QChar::toUpper(at(wordStart + k)) == row.text[size_t(k)];
        if (same)
            return row.label;
    }
    return Label::None;
}

// Sensitive authentication data after its label (CVV2, PIN block, ...): the value, digits and
// hex letters, starred whole. Returns where scanning goes on, or -1 when the digit at hand
// follows no such label.
qsizetype Scanner::sensitiveValue(qsizetype digit)
{
    qsizetype start = digit;
    while (start > m_from && isHex(at(start - 1)) && !isDigit(at(start - 1)))
        --start;
    if (labelBefore(start) != Label::Sensitive)
        return -1;
    qsizetype end = digit;
    while (end < m_size && isHex(at(end)))
        ++end;
    // A PIN block may be written in groups split by blanks ("0412 AC89 ..."); a word that
    // follows is not one of them.
    while (end - start < 32 && end + 1 < m_size && isBlank(at(end)) && isHex(at(end + 1))) {
        qsizetype next = end + 1;
        while (next < m_size && isHex(at(next)))
            ++next;
        if (next < m_size && isLetter(at(next)))
            break;
        end = next;
    }
    for (qsizetype i = start; i < end; ++i)
        if (!isBlank(at(i)))
            star(i);
    return end;
}

// Hex or Base64 around the character at hand (a digit; in the strict reading, any), long enough to
// hold an EMV element or a QR payload: when it is BER-TLV, each element by its tag, the values of
// those that carry card data starred; otherwise, in the strict reading, only its length. Returns
// where scanning goes on, or -1 when there is none.
qsizetype Scanner::encodedRun(qsizetype digit)
{
    // A digit inside a run already looked at and found to be no such thing: each run is looked
    // at once, however many digits it holds.
    if (digit < m_examined)
        return -1;
    // Hex, its bytes perhaps split by single blanks or colons: "5A 08 42 76 ...".
    const auto hexSplit = [this](qsizetype i) {
        return (at(i) == u' ' || at(i) == u':') && i > m_from && i + 1 < m_size &&
               isHex(at(i - 1)) && isHex(at(i + 1));
    };
    qsizetype start = digit;
    while (start > m_from && (isHex(at(start - 1)) || hexSplit(start - 1)))
        --start;
    qsizetype end = digit;
    while (end < m_size && (isHex(at(end)) || hexSplit(end)))
        ++end;
    m_examined = end;
    const auto alone = [this](qsizetype from, qsizetype to) {
        return (from == m_from || !(isLetter(at(from - 1)) || isDigit(at(from - 1)))) &&
               (to == m_size || !(isLetter(at(to)) || isDigit(at(to))));
    };
    qsizetype nibbles = 0;
    bool letters = false;
    for (qsizetype i = start; i < end; ++i) {
        if (isHex(at(i))) {
            ++nibbles;
            letters |= !isDigit(at(i));
        }
    }
    QByteArray data;
    qsizetype from = start, to = end;
    QString kind = u"hex"_s;
    // The run read as hex holds the character it was asked about, so that scanning goes on.
    if (isHex(at(digit)) && letters && nibbles >= shortestHex && nibbles % 2 == 0 &&
        alone(start, end)) {
        QByteArray hex;
        hex.reserve(nibbles);
        for (qsizetype i = start; i < end; ++i)
            if (isHex(at(i)))
                hex += char(at(i));
        data = QByteArray::fromHex(hex);
    } else {
        from = digit;
        while (from > m_from && isBase64(at(from - 1)))
            --from;
        to = digit;
        while (to < m_size && isBase64(at(to)))
            ++to;
        for (int padding = 0; padding < 2 && to < m_size && at(to) == u'='; ++padding)
            ++to;
        m_examined = std::max(end, to);
        if (to - from < shortestBase64 || (to - from) % 4 != 0 || !alone(from, to))
            return -1;
        bool upper = false, lower = false;
        for (qsizetype i = from; i < to; ++i) {
            upper |= at(i) >= u'A' && at(i) <= u'Z';
            lower |= at(i) >= u'a' && at(i) <= u'z';
        }
        if (!upper || !lower)
            return -1;
        data = QByteArray::fromBase64(QStringView(m_read + from, to - from).toLatin1(),
                                      QByteArray::AbortOnBase64DecodingErrors);
        if (data.isEmpty())
            return -1;
        kind = u"base64"_s;
    }
    QList<TlvView::Element> elements;
    // One element of a tag that says nothing may be any data that reads as BER-TLV by chance.
    if (TlvView::read(data, elements) && (elements.size() > 1 || elements.front().constructed ||
                                          TlvView::carriesCardData(elements.front().tag))) {
        QString shown = u'<' + kind + u" tlv"_s;
        for (const TlvView::Element &element : std::as_const(elements)) {
            if (element.constructed)
                continue;
            QString value;
            if (TlvView::carriesCardData(element.tag)) {
                // The number's last four digits, as a card number is shown; nothing else.
                value = QString::fromLatin1(element.value.toHex().toUpper());
                const bool number = element.tag == QByteArray::fromHex("5A");
                for (qsizetype i = 0; i < value.size() - (number ? visibleTail : 0); ++i)
                    value[i] = u'*';
            } else if (m_depth >= deepestEncoding) {
                value = u"<%1 bytes>"_s.arg(element.value.size());
            } else {
                // Any other value read the same way, as text when it is text: a proprietary tag
                // may hold a number, a text value may be encoded data again.
                const bool text =
                    std::all_of(element.value.begin(), element.value.end(),
                                [](char c) { return c >= 0x20 && c < 0x7f && c != '"'; });
                value = text ? u'"' + QString::fromLatin1(element.value) + u'"'
                             : QString::fromLatin1(element.value.toHex().toUpper());
                Scanner(value, 0, CardMask::Ending::Whole,
                        m_strict ? CardMask::Reading::Strict : CardMask::Reading::Readable,
                        m_depth + 1)
                    .run();
            }
            shown += u' ' + QString::fromLatin1(element.tag.toHex().toUpper()) + u'=' + value;
        }
        remove(from, to, shown + u'>');
        return to;
    }
    if (!m_strict)
        return -1;
    remove(from, to, u"<%1 %2 bytes>"_s.arg(kind).arg(data.size()));
    return to;
}

void Scanner::run()
{
    qsizetype i = m_from;
    while (i < m_size) {
        // Text without digits, the most of it, is passed over four characters at a time; the
        // strict reading looks at letters too, for encoded data that holds no digit.
        for (quint64 units; i + 4 <= m_size; i += 4) {
            std::memcpy(&units, m_read + i, sizeof units);
            if (m_strict ? hasEncodable(units) : hasDigit(units))
                break;
        }
        if (i >= m_size)
            break;
        if (!isDigit(at(i))) {
            if (m_strict && i >= m_examined && isBase64(at(i))) {
                // Always forward: a run that ended before i must not hold the scan in place.
                if (const qsizetype resume = encodedRun(i); resume > i) {
                    i = resume;
                    continue;
                }
            }
            ++i;
            continue;
        }
        if (const qsizetype resume = sensitiveValue(i); resume >= 0) {
            i = resume;
            continue;
        }
        if (const qsizetype resume = encodedRun(i); resume >= 0) {
            i = resume;
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

// The separators from pos on that still join two groups of a number: one to three, or a line
// break with the padding of a slip's line around it. Returns their count, or -1.
qsizetype Scanner::separatorRun(qsizetype pos) const
{
    qsizetype count = 0;
    int breaks = 0;
    bool padding = true;
    while (pos + count < m_size && count <= longestWrap && isSeparator(at(pos + count))) {
        const char16_t c = at(pos + count);
        if (isLineBreak(c) && !(c == u'\n' && count > 0 && at(pos + count - 1) == u'\r'))
            ++breaks;
        else if (!isLineBreak(c) && !isBlank(c))
            padding = false;
        ++count;
    }
    if (count <= longestSeparatorRun || (breaks == 1 && padding && count <= longestWrap))
        return count;
    return -1;
}

// A run of groups from start: each group is tried as the end of a card number in each layout,
// with the groups before it; a group in a track or TLV form ends the run.
qsizetype Scanner::scanRun(qsizetype start)
{
    Group window[mostGroups];
    int groups = 0;
    qsizetype pos = start;
    m_run.clear(); // for the strict reading
    for (;;) {
        const qsizetype groupStart = pos;
        while (pos < m_size && isDigit(at(pos)))
            ++pos;
        const qsizetype groupEnd = pos;
        if (const qsizetype resume = inForm(groupStart, groupEnd); resume >= 0) {
            // What the form leaves of the run (digits before its number) is still read
            // strictly.
            if (m_strict) {
                m_run.push_back({groupStart, groupEnd - groupStart});
                maskStrict();
            }
            return resume;
        }
        const qsizetype length = groupEnd - groupStart;
        if (m_strict)
            m_run.push_back({groupStart, length});
        if (length > longestCard) {
            groups = 0; // an identifier: no card number holds it, unless glued to its expiry
            if (!m_strict)
                maskGluedExpiry(groupStart, length);
        } else if (!m_strict) {
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
        const qsizetype separators = separatorRun(pos);
        // A label that ends in a digit ("CVV2: 123") ends the run: its value is read on its own.
        const bool joined = separators > 0 && pos + separators < m_size &&
                            isDigit(at(pos + separators)) &&
                            labelBefore(pos + separators) != Label::Sensitive;
        if (joined) {
            pos += separators;
            continue;
        }
        if (m_strict)
            maskStrict();
        if (separators < 0)
            return pos + 1;
        pos += separators;
        if (pos == m_size && m_ending == CardMask::Ending::MayBeCut)
            maskCut(groupEnd);
        return pos;
    }
}

// A card number run together with its expiry (YYMM) and nothing else, as a slip may print it:
// the number by its check digit, its first digit one that the card networks use.
void Scanner::maskGluedExpiry(qsizetype start, qsizetype length)
{
    const qsizetype number = length - shortestExpiry;
    if (number < shortestCard || number > longestCard)
        return;
    char digits[longestCard];
    for (qsizetype k = 0; k < number; ++k)
        digits[k] = char(at(start + k) - u'0');
    const int month = (at(start + number + 2) - u'0') * 10 + (at(start + number + 3) - u'0');
    if (digits[0] < 2 || digits[0] > 6 || month < 1 || month > 12 ||
        !CardMask::passesLuhn(digits, number) || labelBefore(start) == Label::Fiscal)
        return;
    for (qsizetype k = 0; k < number - visibleTail; ++k)
        star(start + k);
    for (qsizetype k = number; k < length; ++k)
        star(start + k);
}

// Whether the fourteen digits from start read as YYYYMMDDhhmmss.
bool Scanner::isTimestampAt(qsizetype start) const
{
    char digits[14];
    for (int k = 0; k < 14; ++k) {
        if (start + k >= m_size || !isDigit(at(start + k)))
            return false;
        digits[k] = char(at(start + k) - u'0');
    }
    return (start + 14 == m_size || !isDigit(at(start + 14))) && isTimestamp(digits, 14);
}

// The strict reading of a run of groups: the dates and times in it are what they are; each
// stretch of the other groups with strictDigits or more, whatever its layout, keeps only its
// last four digits, unless a fiscal label names it.
void Scanner::maskStrict()
{
    const qsizetype count = qsizetype(m_run.size());
    qsizetype total = 0;
    for (const Span &group : m_run)
        total += group.length;
    if (total < strictDigits)
        return; // most runs: an amount, a date, a code
    m_fields.resize(m_run.size());
    for (qsizetype g = 0; g < count; ++g) {
        int value = 0;
        for (qsizetype k = 0; k < std::min<qsizetype>(m_run[g].length, 4); ++k)
            value = value * 10 + (at(m_run[g].start + k) - u'0');
        m_fields[g] = {value, m_run[g].length};
    }
    const auto maskStretch = [this](qsizetype from, qsizetype to) {
        qsizetype digits = 0;
        for (qsizetype g = from; g < to; ++g)
            digits += m_run[g].length;
        const qsizetype start = m_run[from].start;
        if (digits < strictDigits || labelBefore(start) == Label::Fiscal ||
            (to - from == 1 && isTimestampAt(start)))
            return;
        qsizetype kept = 0;
        for (qsizetype g = to - 1; g >= from; --g) {
            for (qsizetype i = m_run[g].start + m_run[g].length - 1; i >= m_run[g].start; --i) {
                if (kept < visibleTail)
                    ++kept;
                else
                    star(i);
            }
        }
    };
    qsizetype stretch = 0;
    for (qsizetype g = 0; g < count;) {
        if (const int date = dateTimeAt(m_fields.data() + g, count - g)) {
            if (g > stretch)
                maskStretch(stretch, g);
            g += date;
            stretch = g;
        } else {
            ++g;
        }
    }
    if (count > stretch)
        maskStretch(stretch, count);
}

// Whether these digits, starting at start, are a card number: 13 to 19 digits (zeros padding
// them aside), an American Express prefix when there are 15, the check digit right, and no
// fiscal register's label or time stamp's shape to say otherwise.
bool Scanner::isCard(const char *digits, qsizetype count, qsizetype start) const
{
    qsizetype zeros = 0;
    while (zeros < count && digits[zeros] == 0)
        ++zeros;
    const char *number = digits + zeros;
    const qsizetype length = count - zeros;
    if (length < shortestCard || length > longestCard)
        return false;
    if (length == 15 && !(number[0] == 3 && (number[1] == 4 || number[1] == 7)))
        return false;
    if (!CardMask::passesLuhn(number, length) || isTimestamp(digits, count))
        return false;
    return labelBefore(start) != Label::Fiscal;
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
        if (n > longestCard || !isCard(digits, n, window[groups - count].start))
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
    // The layouts cards are printed in: 4-6-5 and 4-6-4, 6-10, 8-8 and 6-13, fours with a
    // shorter last group.
    if (groups >= 2 && ((length(1) == 6 && (length(0) == 10 || length(0) == 13)) ||
                        (length(1) == 8 && length(0) == 8)))
        tryLast(2);
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
    if (isTag(start - 2, u'A') && end - start >= 4 && at(start) == u'8' && at(start + 1) == u'1') {
        // The long form of a length, 81 and one byte, read with the group.
        bytes = Escape::hexDigit(at(start + 2)) * 16 + Escape::hexDigit(at(start + 3));
        valueStart = start + 4;
    } else if (isTag(start - 2, u'A') && end - start >= 2) { // two digits, read with the group
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
    // The tag's length and what follows the value may make the group a card number of its
    // own ("5A08" "4111...1111" "6F..."): that reading is masked too. Read before starring.
    const qsizetype length = end - start;
    bool groupIsCard = false;
    if (length >= shortestCard && length <= longestCard) {
        char group[longestCard];
        for (qsizetype k = 0; k < length; ++k)
            group[k] = char(at(start + k) - u'0');
        groupIsCard = isCard(group, length, start);
    }
    for (qsizetype k = 0; k < digits - visibleTail; ++k)
        star(valueStart + k);
    for (qsizetype k = 0; groupIsCard && k < length - visibleTail; ++k)
        star(start + k);
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

// Track 1 data: "%B" (or "%", or "%B " with a blank), the number, "^", the name, "^", expiry,
// service code and discretionary data up to the end sentinel "?".
qsizetype Scanner::track1(qsizetype start, qsizetype end)
{
    if (end - start < shortestTrackNumber || start - 1 < m_from)
        return -1;
    qsizetype from = start;
    if (from - 1 >= m_from && at(from - 1) == u' ' && from - 2 >= m_from &&
        QChar::toUpper(at(from - 2)) == u'B')
        --from;
    if (from - 1 >= m_from && QChar::toUpper(at(from - 1)) == u'B')
        --from;
    if (from - 1 >= m_from && at(from - 1) == u'%')
        --from;
    if (from == start)
        return -1; // neither the sentinel nor the format code: not track 1 by its form
    const qsizetype limit = std::min(m_size, from + longestTrack1);
    qsizetype to = end + 1;
    while (to < limit && at(to) != u'?' && at(to) >= 0x20)
        ++to;
    if (to < limit && at(to) == u'?')
        ++to;
    removeTrack(from, to, start, end);
    return to;
}

void Scanner::remove(qsizetype from, qsizetype to, const QString &with)
{
    if (!m_removals.empty())
        from = std::max(from, m_removals.back().to);
    m_removals.push_back({from, to, with});
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
    remove(from, to, u"<track "_s + QString(digits - visibleTail, u'*') + tail + u'>');
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

QString CardMask::text(QString text, Ending ending, Reading reading)
{
    Scanner(text, 0, ending, reading).run();
    return text;
}

void CardMask::maskTail(QString &text, qsizetype from, Ending ending, Reading reading)
{
    Scanner(text, from, ending, reading).run();
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
