// generateBerTlvTag and parseBerTlv: an element built from a valid tag and any value parses
// back to that tag and value, with the length in its shortest form.
//
// Input: a byte k (1 to 4 tag bytes), k tag bytes, then the value.

#include <tlv/bertlv.h>

#include <cstdint>
#include <cstdlib>

namespace {

// Whether the bytes are one whole BER tag, as the parser reads tags.
bool isWholeTag(const QByteArray &tag)
{
    if (tag.isEmpty())
        return false;
    if ((quint8(tag.at(0)) & 0x1F) != 0x1F)
        return tag.size() == 1;
    if (tag.size() < 2)
        return false;
    for (qsizetype i = 1; i + 1 < tag.size(); ++i)
        if (!(quint8(tag.at(i)) & 0x80))
            return false;
    return !(quint8(tag.back()) & 0x80);
}

qsizetype lengthBytes(qsizetype size)
{
    qsizetype n = 1;
    for (qsizetype rest = size; size > 127 && rest > 0; rest >>= 8)
        ++n;
    return n;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const auto tagSize = qsizetype(1 + data[0] % 4);
    if (size_t(tagSize) + 1 > size)
        return 0;
    const QByteArray tag(reinterpret_cast<const char *>(data + 1), tagSize);
    const QByteArray value(reinterpret_cast<const char *>(data + 1 + tagSize),
                           qsizetype(size) - 1 - tagSize);
    const QString tagText = QString::fromLatin1(tag.toHex().toUpper());

    const QByteArray element = tlv::generateBerTlvTag(tagText, value);
    if (element.size() != tag.size() + lengthBytes(value.size()) + value.size())
        std::abort();
    const QMap<QString, QByteArray> parsed = tlv::parseBerTlv(element);
    if (isWholeTag(tag) && (parsed.size() != 1 || parsed.value(tagText) != value))
        std::abort();
    return 0;
}
