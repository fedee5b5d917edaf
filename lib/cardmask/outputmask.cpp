#include "outputmask.h"

#include "escape.h"

#include <QVarLengthArray>

using namespace Qt::Literals::StringLiterals;

namespace {

// Joins the strings of an array of text while they are masked: a line break to the card rule.
constexpr char16_t lineJoint = 0x1e;
// Exponent form is expanded only as far as a number of digits could still be a card's.
constexpr int longestExpansion = 64;

bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

bool isNumberCharacter(QChar c)
{
    return (c >= u'0' && c <= u'9') || c == u'-' || c == u'+' || c == u'.' || c == u'e' ||
           c == u'E';
}

bool isText(ValueKind kind)
{
    return kind == ValueKind::ClientText || kind == ValueKind::Unknown;
}

// The closing quote of a JSON string whose text starts at begin, or -1; escapes tells whether
// the text holds any. Qt's searches are vectorised; a backslash makes the next character
// plain, so a quote right after one is searched past.
qsizetype stringEnd(QStringView in, qsizetype begin, bool *escapes)
{
    qsizetype end = in.indexOf(u'"', begin);
    qsizetype slash = in.indexOf(u'\\', begin);
    *escapes = slash >= 0 && (end < 0 || slash < end);
    while (slash >= 0 && (end < 0 || slash < end)) {
        if (end == slash + 1)
            end = in.indexOf(u'"', slash + 2);
        slash = in.indexOf(u'\\', slash + 2);
    }
    return end;
}

// A JSON number's digits as a card rule reads them: as written, or, in exponent form, the
// whole number it stands for ("4.111e3" is "4111"), or its digits when it is no whole number.
QString numberDigits(QStringView token)
{
    const qsizetype e = std::max(token.indexOf(u'e'), token.indexOf(u'E'));
    if (e < 0)
        return token.toString();
    bool ok = false;
    const int exponent = token.sliced(e + 1).toInt(&ok);
    if (!ok || exponent > longestExpansion || exponent < -longestExpansion)
        return token.toString();
    QStringView mantissa = token.first(e);
    QString sign;
    if (mantissa.startsWith(u'-') || mantissa.startsWith(u'+')) {
        sign = mantissa.first(1).toString();
        mantissa = mantissa.sliced(1);
    }
    const qsizetype point = mantissa.indexOf(u'.');
    QString digits = mantissa.toString();
    if (point >= 0)
        digits.remove(point, 1);
    int shift = exponent - int(point < 0 ? 0 : mantissa.size() - point - 1);
    while (digits.size() > 1 && digits.startsWith(u'0'))
        digits.remove(0, 1);
    if (shift >= 0)
        return sign + digits + QString(shift, u'0');
    while (shift < 0 && digits.endsWith(u'0')) {
        digits.chop(1);
        ++shift;
    }
    return sign + digits;
}

void maskValue(ValueKind kind, QString &text, qsizetype from, CardMask::Ending ending,
               const CustomerCodeForms &code, int nesting);

// Escapes a decoded text still holds, from position from on, decoded again as far as the
// nesting allows: a JSON document inside a string inside another. Returns whether any was.
bool decodeFurther(QString &text, qsizetype from, int nesting)
{
    bool decoded = false;
    for (int level = nesting; level < OutputMask::nestedDepth && text.indexOf(u'\\', from) >= 0;
         ++level) {
        const QString encoded = text.sliced(from);
        text.truncate(from);
        Escape::appendDecoded(text, encoded);
        decoded = true;
    }
    return decoded;
}

// A writer that follows the JSON grammar as far as the output keeps to it.
class Writer
{
public:
    Writer(QString &out, QStringView in, CardMask::Ending ending, const CustomerCodeForms &code,
           int nesting)
        : m_in(in)
        , m_ending(ending)
        , m_code(code)
        , m_nesting(nesting)
        , m_out(out)
    {
        m_out.reserve(m_out.size() + in.size());
    }

    bool value(ValueKind kind);
    void skipBlanks()
    {
        while (m_pos < m_in.size() && isBlank(m_in.at(m_pos)))
            ++m_pos;
    }
    bool atEnd() const { return m_pos >= m_in.size(); }
    qsizetype position() const { return m_pos; }

private:
    bool peek(char16_t c) const { return m_pos < m_in.size() && m_in.at(m_pos) == c; }
    template<typename Element>
    bool list(char16_t open, char16_t close, Element element);
    bool object();
    bool array(ValueKind kind);
    bool textArray(ValueKind kind);
    void string(ValueKind kind, QString *key);
    bool number(ValueKind kind);
    bool literal(QStringView word);

    QStringView m_in;
    qsizetype m_pos = 0;
    int m_depth = 0;
    CardMask::Ending m_ending;
    const CustomerCodeForms &m_code;
    const int m_nesting; // how many times the output was a string inside another
    QString &m_out;
};

bool Writer::value(ValueKind kind)
{
    skipBlanks();
    if (atEnd())
        return false;
    switch (m_in.at(m_pos).unicode()) {
    case u'{':
        return object();
    case u'[':
        return array(kind);
    case u'"':
        string(kind, nullptr);
        return true;
    case u't':
        return literal(u"true");
    case u'f':
        return literal(u"false");
    case u'n':
        return literal(u"null");
    default:
        return number(kind);
    }
}

// Elements between brackets, split by commas: an object's members or an array's values.
template<typename Element>
bool Writer::list(char16_t open, char16_t close, Element element)
{
    if (++m_depth > OutputMask::maxDepth)
        return false;
    m_out += QChar(open);
    ++m_pos;
    skipBlanks();
    if (!peek(close)) {
        for (;;) {
            if (!element())
                return false;
            skipBlanks();
            if (!peek(u','))
                break;
            m_out += u',';
            ++m_pos;
        }
    }
    if (!peek(close))
        return false;
    m_out += QChar(close);
    ++m_pos;
    --m_depth;
    return true;
}

// Each member's value is masked by the kind of its key; the key itself is a text nothing is
// known of.
bool Writer::object()
{
    return list(u'{', u'}', [this] {
        skipBlanks();
        if (!peek(u'"'))
            return false;
        QString key;
        string(ValueKind::Unknown, &key);
        skipBlanks();
        if (!peek(u':'))
            return false;
        m_out += u':';
        ++m_pos;
        return value(FieldKinds::ofAnswerField(u16(key)));
    });
}

// An array's values are of the kind of the member that holds it.
bool Writer::array(ValueKind kind)
{
    if (isText(kind) && textArray(kind))
        return true;
    return list(u'[', u']', [this, kind] { return value(kind); });
}

// An array of two strings or more, all ending, as the lines of a slip: masked as one text, each
// string a line of it, and written back string by string.
bool Writer::textArray(ValueKind kind)
{
    struct Span
    {
        qsizetype begin;
        qsizetype end;
        bool escapes;
    };
    QVarLengthArray<Span, 16> spans;
    qsizetype p = m_pos + 1;
    const auto blanks = [&] {
        while (p < m_in.size() && isBlank(m_in.at(p)))
            ++p;
    };
    for (blanks();;) {
        if (p >= m_in.size() || m_in.at(p) != u'"')
            return false;
        bool escapes = false;
        const qsizetype end = stringEnd(m_in, p + 1, &escapes);
        if (end < 0)
            return false;
        spans.append({p + 1, end, escapes});
        p = end + 1;
        blanks();
        if (p < m_in.size() && m_in.at(p) == u',') {
            ++p;
            blanks();
            continue;
        }
        if (p < m_in.size() && m_in.at(p) == u']')
            break;
        return false;
    }
    if (spans.size() < 2)
        return false;

    QString joined;
    QVarLengthArray<qsizetype, 16> joints; // of each string, the joints it holds itself
    for (const Span &span : spans) {
        if (&span != spans.begin())
            joined += QChar(lineJoint);
        const qsizetype start = joined.size();
        const QStringView raw = m_in.sliced(span.begin, span.end - span.begin);
        if (span.escapes)
            Escape::appendDecoded(joined, raw);
        else
            joined.append(raw);
        decodeFurther(joined, start, m_nesting);
        joints.append(QStringView(joined).sliced(start).count(QChar(lineJoint)));
    }
    maskValue(kind, joined, 0, CardMask::Ending::Whole, m_code, OutputMask::nestedDepth);

    // Masking keeps every joint (it never removes a control character), so the strings are
    // the same pieces again.
    const QList<QStringView> pieces = QStringView(joined).split(QChar(lineJoint));
    qsizetype expected = spans.size();
    for (const qsizetype count : joints)
        expected += count;
    if (pieces.size() != expected)
        return false;
    m_out += u'[';
    qsizetype piece = 0;
    for (qsizetype k = 0; k < spans.size(); ++k) {
        m_out += k == 0 ? u"\""_s : u",\""_s;
        const qsizetype value = m_out.size();
        for (qsizetype j = 0; j <= joints[k]; ++j) {
            if (j > 0)
                m_out += QChar(lineJoint);
            m_out += pieces[piece++];
        }
        Escape::escapeTail(m_out, value, Escape::Quotes::Escaped);
        m_out += u'"';
    }
    m_out += u']';
    m_pos = p + 1;
    return true;
}

// A string, decoded, masked by its kind and written escaped. One that does not end runs to the
// end of the output, which may have been cut inside it.
void Writer::string(ValueKind kind, QString *key)
{
    const qsizetype begin = ++m_pos;
    bool escapes = false;
    const qsizetype end = stringEnd(m_in, begin, &escapes);
    const bool closed = end >= 0;
    const QStringView raw = m_in.sliced(begin, (closed ? end : m_in.size()) - begin);
    // Written once, where it stays: decoded, masked and escaped in place.
    m_out += u'"';
    const qsizetype value = m_out.size();
    if (escapes)
        Escape::appendDecoded(m_out, raw);
    else
        m_out.append(raw);
    if (key)
        *key = QStringView(m_out).sliced(value).toString();
    maskValue(kind, m_out, value, closed ? CardMask::Ending::Whole : m_ending, m_code, m_nesting);
    Escape::escapeTail(m_out, value, Escape::Quotes::Escaped);
    if (closed)
        m_out += u'"';
    m_pos = closed ? end + 1 : m_in.size();
}

// A number is read by its digits; one that masking changes is written as a string of what is
// left of it.
bool Writer::number(ValueKind kind)
{
    const qsizetype begin = m_pos;
    while (m_pos < m_in.size() && isNumberCharacter(m_in.at(m_pos)))
        ++m_pos;
    if (m_pos == begin)
        return false;
    const QStringView token = m_in.sliced(begin, m_pos - begin);
    if (kind == ValueKind::Host) {
        m_out.append(token);
        return true;
    }
    const QString digits = numberDigits(token);
    const qsizetype value = m_out.size();
    m_out.append(digits);
    maskValue(kind, m_out, value, m_pos == m_in.size() ? m_ending : CardMask::Ending::Whole, m_code,
              m_nesting);
    if (QStringView(m_out).sliced(value) == digits) {
        m_out.truncate(value);
        m_out.append(token);
    } else {
        Escape::escapeTail(m_out, value, Escape::Quotes::Escaped);
        m_out.insert(value, u'"');
        m_out += u'"';
    }
    return true;
}

bool Writer::literal(QStringView word)
{
    if (!m_in.sliced(m_pos).startsWith(word))
        return false;
    m_out += word;
    m_pos += word.size();
    return true;
}

// Text of the client's from position from: a JSON document written as one, escapes it still
// holds decoded, then the customer's code by its value and the card rule by the kind's reading.
void maskText(ValueKind kind, QString &text, qsizetype from, CardMask::Ending ending,
              const CustomerCodeForms &code, int nesting)
{
    code.maskTail(text, from);
    if (nesting < OutputMask::nestedDepth) {
        qsizetype first = from;
        while (first < text.size() && isBlank(text.at(first)))
            ++first;
        if (first < text.size() && (text.at(first) == u'{' || text.at(first) == u'[')) {
            QString nested;
            Writer writer(nested, QStringView(text).sliced(first), ending, code, nesting + 1);
            if (writer.value(ValueKind::Unknown)) {
                writer.skipBlanks();
                if (writer.atEnd()) {
                    text.truncate(first);
                    text += nested;
                    return;
                }
            }
        }
    }
    if (decodeFurther(text, from, nesting))
        code.maskTail(text, from);
    CardMask::maskTail(text, from, ending,
                       kind == ValueKind::Unknown ? CardMask::Reading::Strict
                                                  : CardMask::Reading::Readable);
}

void maskValue(ValueKind kind, QString &text, qsizetype from, CardMask::Ending ending,
               const CustomerCodeForms &code, int nesting)
{
    switch (kind) {
    case ValueKind::Host:
        return;
    case ValueKind::Pan:
        text.replace(from, text.size() - from,
                     CardMask::pan(QStringView(text).sliced(from).toString(), ending));
        return;
    case ValueKind::CustomerQr:
        text.replace(from, text.size() - from, u"<QR %1 bytes>"_s.arg(text.size() - from));
        return;
    case ValueKind::ClientText:
    case ValueKind::Unknown:
        maskText(kind, text, from, ending, code, nesting);
        return;
    }
}

} // namespace

void OutputMask::maskTail(ValueKind kind, QString &text, qsizetype from, CardMask::Ending ending,
                          const CustomerCodeForms &code)
{
    maskValue(kind, text, from, ending, code, 0);
}

void OutputMask::appendMasked(QString &out, QStringView output, CardMask::Ending ending,
                              const CustomerCodeForms &code)
{
    // The code's forms in the output as it stands first, wherever they are: where the output
    // stops parsing, the value it stopped in is not cut in two.
    QString found;
    if (!code.isEmpty()) {
        found = output.toString();
        code.maskTail(found, 0);
        output = found;
    }
    Writer writer(out, output, ending, code, 0);
    if (writer.value(ValueKind::Unknown)) {
        writer.skipBlanks();
        if (writer.atEnd())
            return;
    }
    // What does not parse: the client's text, with any escapes it holds decoded before masking.
    const qsizetype rest = out.size();
    Escape::appendDecoded(out, output.sliced(writer.position()));
    maskText(ValueKind::ClientText, out, rest, ending, code, 1);
    Escape::escapeTail(out, rest);
}

QString OutputMask::masked(QStringView output, CardMask::Ending ending,
                           const CustomerCodeForms &code)
{
    QString out;
    appendMasked(out, output, ending, code);
    return out;
}

QString OutputMask::maskedUnknownText(QStringView text, CardMask::Ending ending,
                                      const CustomerCodeForms &code)
{
    QString out;
    Escape::appendDecoded(out, text);
    maskText(ValueKind::Unknown, out, 0, ending, code, 1);
    return out;
}
