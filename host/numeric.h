#pragma once

#include "zelnorhost_global.h"

#include <QByteArray>

namespace numeric {

// Reads the bytes as an unsigned big-endian number, most significant byte first:
// 01 00 gives 256. An empty array gives 0; of more than eight bytes the low 64 bits are kept.
ZELNORHOST_EXPORT long beToLong(const QByteArray &bytes);

} // namespace numeric
