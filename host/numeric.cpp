#include "numeric.h"

namespace numeric {

long beToLong(const QByteArray &bytes)
{
    quint64 value = 0;
    for (const char byte : bytes)
        value = (value << 8) | static_cast<quint8>(byte);
    return static_cast<long>(value);
}

} // namespace numeric
