// Whatever the bytes, the parser stays inside them, and what it returns re-encodes.

#include <tlv/bertlv.h>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // A copy of exactly the input, so that any read past its end is caught.
    const QByteArray input(reinterpret_cast<const char *>(data), qsizetype(size));
    const QMap<QString, QByteArray> map = tlv::parseBerTlv(input);
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        if (it.value().size() > input.size())
            std::abort();
        tlv::isComplex(it.key());
        const QByteArray element = tlv::generateBerTlvTag(it.key(), it.value());
        if (tlv::parseBerTlv(element).value(it.key()) != it.value())
            std::abort();
    }
    return 0;
}
