#include "recordedtext.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// The length of the UTF-8 sequence at bytes[i], or 0 when it is not a whole, shortest and
// allowed one (no surrogates, nothing above U+10FFFF).
qsizetype sequenceLength(const unsigned char *bytes, qsizetype i, qsizetype size)
{
    const unsigned char c = bytes[i];
    qsizetype length = 0;
    char32_t value = 0;
    if (c >= 0xc2 && c <= 0xdf) {
        length = 2;
        value = c & 0x1f;
    } else if (c >= 0xe0 && c <= 0xef) {
        length = 3;
        value = c & 0x0f;
    } else if (c >= 0xf0 && c <= 0xf4) {
        length = 4;
        value = c & 0x07;
    } else {
        return 0;
    }
    if (i + length > size)
        return 0;
    for (qsizetype k = 1; k < length; ++k) {
        if ((bytes[i + k] & 0xc0) != 0x80)
            return 0;
        value = value << 6 | (bytes[i + k] & 0x3f);
    }
    const bool shortest =
        (length == 3 && value >= 0x800) || (length == 4 && value >= 0x10000) || length == 2;
    if (!shortest || (value >= 0xd800 && value <= 0xdfff) || value > 0x10ffff)
        return 0;
    return length;
}

int hexValue(QChar c)
{
    const char16_t u = c.unicode();
    if (u >= u'0' && u <= u'9')
        return u - u'0';
    if (u >= u'A' && u <= u'F')
        return u - u'A' + 10;
    if (u >= u'a' && u <= u'f')
        return u - u'a' + 10;
    return -1;
}

} // namespace

QString RecordedText::fromBytes(const QByteArray &bytes, bool *clean)
{
    const auto *data = reinterpret_cast<const unsigned char *>(bytes.constData());
    const qsizetype size = bytes.size();
    QString text;
    text.reserve(size);
    bool allUtf8 = true;
    qsizetype run = 0; // the start of the run of good bytes not appended yet
    for (qsizetype i = 0; i < size;) {
        if (data[i] < 0x80) {
            ++i;
            continue;
        }
        if (const qsizetype length = sequenceLength(data, i, size)) {
            i += length;
            continue;
        }
        text += QString::fromUtf8(bytes.constData() + run, i - run);
        text += QChar(char16_t(0xdc00 + data[i]));
        allUtf8 = false;
        run = ++i;
    }
    text += QString::fromUtf8(bytes.constData() + run, size - run);
    if (clean)
        *clean = allUtf8;
    return text;
}

QString RecordedText::forLine(const QString &text, bool clean)
{
    if (clean)
        return text;
    QString out;
    out.reserve(text.size() + text.size() / 8);
    for (const QChar c : text) {
        if (isStandIn(c.unicode())) {
            static constexpr char hex[] = "0123456789ABCDEF";
            const int byte = c.unicode() - 0xdc00;
            out += u"\\x"_s;
            out += QLatin1Char(hex[byte >> 4]);
            out += QLatin1Char(hex[byte & 15]);
        } else if (c == u'\\') {
            out += u"\\\\"_s;
        } else {
            out += c;
        }
    }
    return out;
}

QByteArray RecordedText::toBytes(const QString &text, bool escaped)
{
    if (!escaped)
        return text.toUtf8();
    QByteArray bytes;
    bytes.reserve(text.size());
    qsizetype run = 0;
    const auto flush = [&](qsizetype end) {
        bytes += QStringView(text).sliced(run, end - run).toUtf8();
    };
    for (qsizetype i = 0; i + 1 < text.size(); ++i) {
        if (text.at(i) != u'\\')
            continue;
        if (text.at(i + 1) == u'\\') {
            flush(i);
            bytes += '\\';
            run = i + 2;
            ++i;
        } else if (text.at(i + 1) == u'x' && i + 3 < text.size() && hexValue(text.at(i + 2)) >= 0 &&
                   hexValue(text.at(i + 3)) >= 0) {
            flush(i);
            bytes += char(hexValue(text.at(i + 2)) * 16 + hexValue(text.at(i + 3)));
            run = i + 4;
            i += 3;
        }
    }
    flush(text.size());
    return bytes;
}
