#include "bertlv.h"

#include <numeric.h>

#include <limits>

namespace tlv {

namespace {

QString hexByte(quint8 byte)
{
    return QString::number(byte, 16).toUpper().rightJustified(2, u'0');
}

} // namespace

QMap<QString, QByteArray> parseBerTlv(const QByteArray &data)
{
    QMap<QString, QByteArray> result;
    const qsizetype size = data.size();
    qsizetype p = 0;
    while (p < size) {
        const auto b0 = static_cast<quint8>(data.at(p++));
        QString tag = hexByte(b0);
        if ((b0 & 0x1F) == 0x1F) {
            quint8 b = 0;
            do {
                if (p >= size)
                    return result;
                b = static_cast<quint8>(data.at(p++));
                tag += hexByte(b);
            } while (b & 0x80);
        }

        if (p >= size)
            return result;
        const auto lengthByte = static_cast<qint8>(data.at(p++));
        qint64 length = lengthByte;
        if (lengthByte < 0) {
            const qsizetype k = lengthByte & 0x7F;
            if (k > size - p)
                return result;
            length = numeric::beToLong(data.sliced(p, k));
            p += k;
        }

        const auto length32 = static_cast<qint32>(static_cast<quint32>(length));
        if (length32 < 0 || length32 > size - p)
            return result;
        result.insert(tag, data.sliced(p, length32));
        p += length32;
    }
    return result;
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
