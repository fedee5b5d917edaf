#include "bertlv.h"

#include <numeric.h>

#include <limits>
#include <map>

namespace tlv {

namespace {

// Upper-case hexadecimal, two digits a byte, in one allocation.
QString hexText(const char *bytes, qsizetype count)
{
    static constexpr char16_t digits[] = u"0123456789ABCDEF";
    QString text(2 * count, Qt::Uninitialized);
    QChar *out = text.data();
    for (qsizetype i = 0; i < count; ++i) {
        const auto byte = static_cast<quint8>(bytes[i]);
        *out++ = QChar(digits[byte >> 4]);
        *out++ = QChar(digits[byte & 0xF]);
    }
    return text;
}

// The elements one after another, until the first one that does not lie wholly inside the
// input.
void parseElements(const QByteArray &data, std::map<QString, QByteArray> &elements)
{
    const qsizetype size = data.size();
    qsizetype p = 0;
    while (p < size) {
        const qsizetype tagStart = p;
        const auto b0 = static_cast<quint8>(data.at(p++));
        if ((b0 & 0x1F) == 0x1F) {
            quint8 b = 0;
            do {
                if (p >= size)
                    return;
                b = static_cast<quint8>(data.at(p++));
            } while (b & 0x80);
        }
        QString tag = hexText(data.constData() + tagStart, p - tagStart);

        if (p >= size)
            return;
        const auto lengthByte = static_cast<qint8>(data.at(p++));
        qint64 length = lengthByte;
        if (lengthByte < 0) {
            const qsizetype k = lengthByte & 0x7F;
            if (k > size - p)
                return;
            length = numeric::beToLong(data.sliced(p, k));
            p += k;
        }

        const auto length32 = static_cast<qint32>(static_cast<quint32>(length));
        if (length32 < 0 || length32 > size - p)
            return;
        // At the end without a search when tags come in ascending order, as they mostly do;
        // elsewhere in its place otherwise. A repeated tag takes the new value.
        elements.insert_or_assign(elements.end(), std::move(tag), data.sliced(p, length32));
        p += length32;
    }
}

} // namespace

QMap<QString, QByteArray> parseBerTlv(const QByteArray &data)
{
    std::map<QString, QByteArray> elements;
    parseElements(data, elements);
    return QMap<QString, QByteArray>(std::move(elements));
}

bool isComplex(const QString &tag)
{
    if (tag.size() < 2)
        return false;
    bool ok = false;
    const uint first = tag.left(2).toUInt(&ok, 16);
    return ok && (first & 0x20);
}

QByteArray generateBerTlvTag(const QString &tag, const QByteArray &value)
{
    if (value.size() > std::numeric_limits<qint32>::max())
        return {};

    QByteArray element = QByteArray::fromHex(tag.toLatin1());
    auto n = static_cast<quint32>(value.size());
    if (n <= 127) {
        element.append(static_cast<char>(n));
    } else {
        QByteArray length;
        length.reserve(5);
        while (n != 0) {
            length.prepend(static_cast<char>(n & 0xFF));
            n >>= 8;
        }
        length.prepend(static_cast<char>(0x80 + length.size()));
        element.append(length);
    }
    element.append(value);
    return element;
}

} // namespace tlv
