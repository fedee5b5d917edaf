#include "escape.h"

#include <algorithm>
#include <cstring>

namespace {

using escapeblock::needsEscape;

// The letter of a short escape, or 0 for one written as \uXXXX.
char16_t shortEscape(char16_t c)
{
    switch (c) {
    case u'\n':
        return u'n';
    case u'\r':
        return u'r';
    case u'\t':
        return u't';
    case u'\b':
        return u'b';
    case u'\f':
        return u'f';
    case u'\\':
    case u'"':
        return c;
    default:
        return 0;
    }
}

// How many characters escaping adds: 1 for a short escape, 5 for \uXXXX.
qsizetype extraLength(const char16_t *text, qsizetype size, Escape::Quotes quotes)
{
    qsizetype extra = 0;
    qsizetype i = 0;
    for (; i + 8 <= size; i += 8) {
        if (!escapeblock::any(text + i, quotes))
            continue;
        for (qsizetype k = i; k < i + 8; ++k)
            if (needsEscape(text[k], quotes))
                extra += shortEscape(text[k]) ? 1 : 5;
    }
    for (; i < size; ++i)
        if (needsEscape(text[i], quotes))
            extra += shortEscape(text[i]) ? 1 : 5;
    return extra;
}

} // namespace

void Escape::escapeTail(QString &text, qsizetype from, Quotes quotes)
{
    const qsizetype size = text.size();
    const qsizetype extra = extraLength(reinterpret_cast<const char16_t *>(text.constData()) + from,
                                        size - from, quotes);
    if (extra == 0)
        return;
    // Widened in place and filled from the back, the runs between escapes moved whole.
    text.resize(size + extra);
    char16_t *data = reinterpret_cast<char16_t *>(text.data());
    qsizetype end = size; // what is not placed yet is [from, end)
    qsizetype to = size + extra;
    while (to > end) {
        qsizetype at = end - 1;
        while (at >= from + 8 && !escapeblock::any(data + at - 7, quotes))
            at -= 8;
        while (!needsEscape(data[at], quotes))
            --at;
        const qsizetype run = end - 1 - at;
        to -= run;
        std::memmove(data + to, data + at + 1, size_t(run) * sizeof(char16_t));
        const char16_t c = data[at];
        if (const char16_t letter = shortEscape(c)) {
            data[--to] = letter;
        } else {
            static constexpr char16_t hex[] = u"0123456789abcdef";
            for (int shift = 0; shift < 16; shift += 4)
                data[--to] = hex[(c >> shift) & 0xf];
            data[--to] = u'u';
        }
        data[--to] = u'\\';
        end = at;
    }
}

QString Escape::escaped(QStringView text, Quotes quotes)
{
    QString out = text.toString();
    escapeTail(out, 0, quotes);
    return out;
}

void Escape::appendDecoded(QString &out, QStringView text)
{
    // Decoding only shrinks: room for the whole text, filled forward, cut to what was written.
    const qsizetype start = out.size();
    out.resize(start + text.size());
    char16_t *to = reinterpret_cast<char16_t *>(out.data()) + start;
    const char16_t *read = reinterpret_cast<const char16_t *>(text.data());
    const qsizetype size = text.size();
    qsizetype from = 0;
    for (qsizetype slash = text.indexOf(u'\\'); slash >= 0 && slash + 1 < size;
         slash = text.indexOf(u'\\', from)) {
        std::copy(read + from, read + slash, to);
        to += slash - from;
        const char16_t c = read[slash + 1];
        from = slash + 2;
        char16_t decoded = 0;
        switch (c) {
        case u'n':
            decoded = u'\n';
            break;
        case u'r':
            decoded = u'\r';
            break;
        case u't':
            decoded = u'\t';
            break;
        case u'b':
            decoded = u'\b';
            break;
        case u'f':
            decoded = u'\f';
            break;
        case u'"':
        case u'\\':
        case u'/':
            decoded = c;
            break;
        case u'u':
            if (slash + 6 <= size) {
                int value = 0;
                for (qsizetype k = slash + 2; k < slash + 6 && value >= 0; ++k) {
                    const int digit = hexDigit(read[k]);
                    value = digit < 0 ? -1 : value * 16 + digit;
                }
                if (value >= 0) {
                    *to++ = char16_t(value);
                    from = slash + 6;
                    continue;
                }
            }
            break;
        default:
            break;
        }
        if (decoded) {
            *to++ = decoded;
        } else {
            *to++ = u'\\'; // no escape: the backslash and what follows stay
            from = slash + 1;
        }
    }
    std::copy(read + from, read + size, to);
    to += size - from;
    out.truncate(to - reinterpret_cast<char16_t *>(out.data()));
}

QString Escape::decoded(QStringView text)
{
    QString out;
    out.reserve(text.size());
    appendDecoded(out, text);
    return out;
}

int Escape::hexDigit(char16_t c)
{
    if (c >= u'0' && c <= u'9')
        return c - u'0';
    if (c >= u'a' && c <= u'f')
        return c - u'a' + 10;
    if (c >= u'A' && c <= u'F')
        return c - u'A' + 10;
    return -1;
}
