#pragma once

// BER-TLV helpers exported by the Inpas payment plug-in library for other programs. Link
// against the plug-in library and include this header; it needs only Qt Core.

#include <QByteArray>
#include <QMap>
#include <QString>

#define INPAS_TLV_EXPORT __attribute__((visibility("default")))

namespace tlv {

// Splits data into a flat map from tag text (upper-case hex, two digits a byte: "9F02") to
// value bytes. Constructed values are kept whole; pass one to parseBerTlv again to read
// inside it. A tag seen twice keeps its second value.
//
// Tags: a first byte whose low five bits are all set is followed by at least one more byte,
// and by further ones while the last has its top bit set. Lengths: one byte 00..7F, or 80+k
// followed by k big-endian bytes, of which the low 32 bits count.
//
// Broken input: parsing stops at the first element that does not lie wholly inside the data
// (tag, length or value cut short) or whose length is negative as a 32-bit number; the
// elements before it are returned and the rest is ignored. Nothing is ever read past the
// end of the data, and nothing is reported.
INPAS_TLV_EXPORT QMap<QString, QByteArray> parseBerTlv(const QByteArray &data);

// True when the first tag byte (the first two hex digits) has the constructed bit 0x20 set;
// false for texts shorter than two characters or not hexadecimal.
INPAS_TLV_EXPORT bool isComplex(const QString &tag);

// One element: the tag's bytes from its hex text (QByteArray::fromHex rules), the shortest
// length form, then the value. The tag is not checked. A value of 2^31 bytes or more cannot
// be described by the codec's lengths and gives an empty result.
INPAS_TLV_EXPORT QByteArray generateBerTlvTag(const QString &tag, const QByteArray &value);

} // namespace tlv
