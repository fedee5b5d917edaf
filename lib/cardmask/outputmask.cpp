#include "outputmask.h"

#include "escape.h"

using namespace Qt::Literals::StringLiterals;

namespace {

bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

bool isNumberCharacter(QChar c)
{
    return (c >= u'0' && c <= u'9') || c == u'-' || c == u'+' || c == u'.' || c == u'e' ||
           c == u'E';
}

// A writer that follows the JSON grammar as far as the output keeps to it.
class Writer
{
public:
    Writer(QString &out, QStringView in, CardMask::Ending ending)
        : m_in(in)
        , m_ending(ending)
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
    void string(ValueKind kind, QString *key);
    bool number(ValueKind kind);
    bool literal(QStringView word);

    QStringView m_in;
    qsizetype m_pos = 0;
    int m_depth = 0;
    CardMask::Ending m_ending;
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

// Each member's value is masked by the kind of its key.
bool Writer::object()
{
    return list(u'{', u'}', [this] {
        skipBlanks();
        if (!peek(u'"'))
            return false;
        QString key;
        string(ValueKind::ClientText, &key);
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
    return list(u'[', u']', [this, kind] { return value(kind); });
}

// A string, decoded, masked by its kind and written escaped. One that does not end runs to the
// end of the output, which may have been cut inside it.
void Writer::string(ValueKind kind, QString *key)
{
    const qsizetype begin = ++m_pos;
    // Qt's searches are vectorised; a backslash makes the next character plain, so a quote
    // right after one is searched past.
    qsizetype end = m_in.indexOf(u'"', begin);
    qsizetype slash = m_in.indexOf(u'\\', begin);
    const bool escapes = slash >= 0 && (end < 0 || slash < end);
    while (slash >= 0 && (end < 0 || slash < end)) {
        if (end == slash + 1)
            end = m_in.indexOf(u'"', slash + 2);
        slash = m_in.indexOf(u'\\', slash + 2);
    }
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
    OutputMask::maskTail(kind, m_out, value, closed ? CardMask::Ending::Whole : m_ending);
    Escape::escapeTail(m_out, value, Escape::Quotes::Escaped);
    if (closed)
        m_out += u'"';
    m_pos = closed ? end + 1 : m_in.size();
}

bool Writer::number(ValueKind kind)
{
    const qsizetype begin = m_pos;
    while (m_pos < m_in.size() && isNumberCharacter(m_in.at(m_pos)))
        ++m_pos;
    if (m_pos == begin)
        return false;
    const qsizetype value = m_out.size();
    m_out.append(m_in.sliced(begin, m_pos - begin));
    OutputMask::maskTail(kind, m_out, value,
                         m_pos == m_in.size() ? m_ending : CardMask::Ending::Whole);
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

} // namespace

void OutputMask::maskTail(ValueKind kind, QString &text, qsizetype from, CardMask::Ending ending)
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
        CardMask::maskTail(text, from, ending);
        return;
    }
}

void OutputMask::appendMasked(QString &out, QStringView output, CardMask::Ending ending)
{
    Writer writer(out, output, ending);
    if (writer.value(ValueKind::ClientText)) {
        writer.skipBlanks();
        if (writer.atEnd())
            return;
    }
    // What does not parse: text, with any escapes it holds decoded before masking.
    const qsizetype rest = out.size();
    Escape::appendDecoded(out, output.sliced(writer.position()));
    CardMask::maskTail(out, rest, ending);
    Escape::escapeTail(out, rest);
}

QString OutputMask::masked(QStringView output, CardMask::Ending ending)
{
    QString out;
    appendMasked(out, output, ending);
    return out;
}
