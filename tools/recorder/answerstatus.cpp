#include "answerstatus.h"

#include <cmath>
#include <cstdlib>

namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

class Reader
{
public:
    explicit Reader(const std::string &text)
        : m_text(text)
    {}

    bool take(char c)
    {
        while (m_pos < m_text.size() && isBlank(m_text[m_pos]))
            ++m_pos;
        if (m_pos >= m_text.size() || m_text[m_pos] != c)
            return false;
        ++m_pos;
        return true;
    }

    // A string, its escapes of ASCII characters decoded (enough for a key).
    bool string(std::string &out)
    {
        if (!take('"'))
            return false;
        while (m_pos < m_text.size()) {
            const char c = m_text[m_pos++];
            if (c == '"')
                return true;
            if (c != '\\') {
                out += c;
            } else if (m_pos < m_text.size() && m_text[m_pos] == 'u' &&
                       m_pos + 5 <= m_text.size()) {
                const long code = std::strtol(m_text.substr(m_pos + 1, 4).c_str(), nullptr, 16);
                out += code > 0 && code < 0x80 ? char(code) : '?';
                m_pos += 5;
            } else if (m_pos < m_text.size()) {
                out += m_text[m_pos++];
            }
        }
        return false;
    }

    // Any value, skipped whole: objects and arrays by their brackets, strings by their quotes.
    bool skipValue()
    {
        std::string ignored;
        if (take('"')) {
            --m_pos;
            return string(ignored);
        }
        int depth = 0;
        while (m_pos < m_text.size()) {
            const char c = m_text[m_pos];
            if (c == '"') {
                if (!string(ignored))
                    return false;
                continue;
            }
            if (depth == 0 && (c == ',' || c == '}' || c == ']'))
                return true;
            if (c == '{' || c == '[')
                ++depth;
            else if (c == '}' || c == ']')
                --depth;
            ++m_pos;
        }
        return depth == 0;
    }

    // A number, as the plug-in reads a status: a whole value, however it is written.
    std::optional<long long> wholeNumber()
    {
        while (m_pos < m_text.size() && isBlank(m_text[m_pos]))
            ++m_pos;
        const char *begin = m_text.c_str() + m_pos;
        char *end = nullptr;
        const double value = std::strtod(begin, &end);
        if (end == begin || (*begin != '-' && (*begin < '0' || *begin > '9')))
            return std::nullopt;
        m_pos += size_t(end - begin);
        if (value != std::floor(value) || std::fabs(value) > 9e15)
            return std::nullopt;
        return static_cast<long long>(value);
    }

    bool atEnd()
    {
        while (m_pos < m_text.size() && isBlank(m_text[m_pos]))
            ++m_pos;
        return m_pos >= m_text.size();
    }

private:
    const std::string &m_text;
    size_t m_pos = 0;
};

} // namespace

std::optional<long long> answerStatus(const std::string &output)
{
    Reader reader(output);
    if (!reader.take('{'))
        return std::nullopt;
    std::optional<long long> status;
    if (!reader.take('}')) {
        do {
            std::string key;
            if (!reader.string(key) || !reader.take(':'))
                return std::nullopt;
            if (key != "Status") {
                if (!reader.skipValue())
                    return std::nullopt;
            } else if (!(status = reader.wholeNumber())) {
                status = 0; // not a number: the plug-in reads 0
                if (!reader.skipValue())
                    return std::nullopt;
            }
        } while (reader.take(','));
        if (!reader.take('}'))
            return std::nullopt;
    }
    // The plug-in takes nothing from output that is not one JSON object.
    return reader.atEnd() ? status : std::nullopt;
}
