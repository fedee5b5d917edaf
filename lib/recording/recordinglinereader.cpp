#include "recordinglinereader.h"

#include <cstring>

namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// A walk over JSON text that says where each value ends, checking it as JSON as it goes.
class Walk
{
public:
    explicit Walk(QByteArrayView text)
        : m_text(text)
    {}

    void blanks()
    {
        while (m_pos < m_text.size() && isBlank(m_text[m_pos]))
            ++m_pos;
    }
    bool take(char c)
    {
        blanks();
        if (m_pos >= m_text.size() || m_text[m_pos] != c)
            return false;
        ++m_pos;
        return true;
    }
    bool peek(char c)
    {
        blanks();
        return m_pos < m_text.size() && m_text[m_pos] == c;
    }
    qsizetype position() const { return m_pos; }
    bool atEnd()
    {
        blanks();
        return m_pos >= m_text.size();
    }

    // A string, its quotes included; escapes checked, control characters refused.
    bool string()
    {
        if (!take('"'))
            return false;
        while (m_pos < m_text.size()) {
            const auto c = static_cast<unsigned char>(m_text[m_pos++]);
            if (c == '"')
                return true;
            if (c < 0x20)
                return false;
            if (c != '\\')
                continue;
            if (m_pos >= m_text.size())
                return false;
            const char e = m_text[m_pos++];
            if (e == 'u') {
                for (int k = 0; k < 4; ++k)
                    if (m_pos >= m_text.size() || hexValue(m_text[m_pos++]) < 0)
                        return false;
            } else if (!std::strchr("\"\\/bfnrt", e)) {
                return false;
            }
        }
        return false;
    }

    bool number()
    {
        blanks();
        const qsizetype start = m_pos;
        const auto digits = [this] {
            const qsizetype from = m_pos;
            while (m_pos < m_text.size() && m_text[m_pos] >= '0' && m_text[m_pos] <= '9')
                ++m_pos;
            return m_pos > from;
        };
        if (m_pos < m_text.size() && m_text[m_pos] == '-')
            ++m_pos;
        if (!digits())
            return false;
        if (m_pos < m_text.size() && m_text[m_pos] == '.') {
            ++m_pos;
            if (!digits())
                return false;
        }
        if (m_pos < m_text.size() && (m_text[m_pos] == 'e' || m_text[m_pos] == 'E')) {
            ++m_pos;
            if (m_pos < m_text.size() && (m_text[m_pos] == '+' || m_text[m_pos] == '-'))
                ++m_pos;
            if (!digits())
                return false;
        }
        return m_pos > start;
    }

    bool word(const char *literal)
    {
        const qsizetype length = qsizetype(std::strlen(literal));
        if (m_text.sliced(m_pos).first(std::min(length, m_text.size() - m_pos)) !=
            QByteArrayView(literal, length))
            return false;
        m_pos += length;
        return true;
    }

    // Any value, nested ones to a depth that our lines never reach.
    bool value(int depth = 0)
    {
        blanks();
        if (m_pos >= m_text.size() || depth > 16)
            return false;
        switch (m_text[m_pos]) {
        case '"':
            return string();
        case '{':
        case '[': {
            const char close = m_text[m_pos] == '{' ? '}' : ']';
            ++m_pos;
            if (take(close))
                return true;
            do {
                if (close == '}' && (!string() || !take(':')))
                    return false;
                if (!value(depth + 1))
                    return false;
            } while (take(','));
            return take(close);
        }
        case 't':
            return word("true");
        case 'f':
            return word("false");
        case 'n':
            return word("null");
        default:
            return number();
        }
    }

private:
    QByteArrayView m_text;
    qsizetype m_pos = 0;
};

// A JSON string's text, escapes decoded; the view holds the quotes.
QString decode(QByteArrayView quoted)
{
    const QByteArrayView body = quoted.sliced(1, quoted.size() - 2);
    if (!body.contains('\\'))
        return QString::fromUtf8(body);
    QByteArray bytes;
    bytes.reserve(body.size());
    QString out;
    const auto flush = [&] {
        out += QString::fromUtf8(bytes);
        bytes.clear();
    };
    for (qsizetype i = 0; i < body.size(); ++i) {
        const char c = body[i];
        if (c != '\\') {
            bytes += c;
            continue;
        }
        const char e = body[++i];
        switch (e) {
        case 'b':
            bytes += '\b';
            break;
        case 'f':
            bytes += '\f';
            break;
        case 'n':
            bytes += '\n';
            break;
        case 'r':
            bytes += '\r';
            break;
        case 't':
            bytes += '\t';
            break;
        case 'u': {
            char16_t unit = 0;
            for (int k = 1; k <= 4; ++k)
                unit = char16_t(unit * 16 + hexValue(body[i + k]));
            i += 4;
            flush();
            out += QChar(unit);
            break;
        }
        default:
            bytes += e;
        }
    }
    flush();
    return out;
}

} // namespace

bool RecordingLineReader::read(QByteArrayView text)
{
    m_count = 0;
    Walk walk(text);
    if (!walk.take('{'))
        return false;
    if (!walk.peek('}')) {
        do {
            walk.blanks();
            const qsizetype keyStart = walk.position();
            if (!walk.string())
                return false;
            const QByteArrayView key = text.sliced(keyStart + 1, walk.position() - keyStart - 2);
            if (!walk.take(':'))
                return false;
            walk.blanks();
            const qsizetype valueStart = walk.position();
            if (!walk.value() || m_count >= mostMembers)
                return false;
            const QByteArrayView value = text.sliced(valueStart, walk.position() - valueStart);
            const char first = value.front();
            const Kind kind = first == '"'                   ? Kind::String
                              : first == '{'                 ? Kind::Object
                              : first == '['                 ? Kind::Array
                              : first == 't' || first == 'f' ? Kind::Bool
                              : first == 'n'                 ? Kind::Null
                                                             : Kind::Number;
            m_members[m_count++] = {key, value, kind};
        } while (walk.take(','));
    }
    return walk.take('}') && walk.atEnd();
}

const RecordingLineReader::Member *RecordingLineReader::find(const char *key) const
{
    const QByteArrayView wanted(key);
    // The last of a key that came twice, as a JSON reader keeps it.
    for (int i = m_count - 1; i >= 0; --i)
        if (m_members[i].key == wanted)
            return &m_members[i];
    return nullptr;
}

QByteArrayView RecordingLineReader::raw(const char *key) const
{
    const Member *member = find(key);
    return member && member->kind == Kind::String
               ? member->value.sliced(1, member->value.size() - 2)
               : QByteArrayView();
}

QString RecordingLineReader::text(const char *key) const
{
    const Member *member = find(key);
    return member && member->kind == Kind::String ? decode(member->value) : QString();
}

std::optional<qint64> RecordingLineReader::integer(const char *key) const
{
    const Member *member = find(key);
    if (!member || member->kind != Kind::Number)
        return std::nullopt;
    bool ok = false;
    const qint64 value = member->value.toByteArray().toLongLong(&ok);
    if (ok)
        return value;
    const double number = member->value.toByteArray().toDouble(&ok);
    return ok ? std::optional<qint64>(qint64(number)) : std::nullopt;
}

std::optional<bool> RecordingLineReader::boolean(const char *key) const
{
    const Member *member = find(key);
    if (!member || member->kind != Kind::Bool)
        return std::nullopt;
    return member->value.front() == 't';
}

QStringList RecordingLineReader::texts(const char *key) const
{
    const Member *member = find(key);
    QStringList list;
    if (!member || member->kind != Kind::Array)
        return list;
    Walk walk(member->value);
    walk.take('[');
    while (walk.peek('"')) {
        const qsizetype start = walk.position();
        walk.string();
        list.append(decode(member->value.sliced(start, walk.position() - start)));
        if (!walk.take(','))
            break;
    }
    return list;
}

QList<qint64> RecordingLineReader::integers(const char *key) const
{
    const Member *member = find(key);
    QList<qint64> list;
    if (!member)
        return list;
    if (member->kind == Kind::Number) {
        list.append(member->value.toByteArray().toLongLong());
        return list;
    }
    if (member->kind != Kind::Array)
        return list;
    Walk walk(member->value);
    walk.take('[');
    walk.blanks();
    for (qsizetype start = walk.position(); walk.number(); start = walk.position()) {
        list.append(member->value.sliced(start, walk.position() - start)
                        .trimmed()
                        .toByteArray()
                        .toLongLong());
        if (!walk.take(','))
            break;
        walk.blanks();
    }
    return list;
}

QByteArrayView RecordingLineReader::object(const char *key) const
{
    const Member *member = find(key);
    return member && member->kind == Kind::Object ? member->value : QByteArrayView();
}
