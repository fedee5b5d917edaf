#pragma once

#include "cardmask.h"
#include "fieldkinds.h"

#include <QString>
#include <QStringView>

#include <string_view>

// A Qt text as the plain table of field kinds reads it.
inline std::u16string_view u16(QStringView text)
{
    return {text.utf16(), size_t(text.size())};
}

// The client's standard output as a log or a recording may show it.
//
// Output that parses as JSON is written back in compact form, in its own order, each string
// and number treated by the kind of the member it belongs to (FieldKinds): decoded first, so
// that escapes cannot hide a digit or a separator, then masked, then written escaped again.
// Output that stops parsing is written as far as it parses; a string that does not end is
// masked as text that may have been cut, and the rest is decoded, masked as text and escaped.
// Nothing written holds a raw control character. Linear in the output; nesting deeper than
// maxDepth is treated as text.
class OutputMask
{
public:
    static constexpr int maxDepth = 256;

    // ending: whether the output may have been cut at a size limit, which matters only where
    // it stops parsing. appendMasked() writes it at the end of out, where a log line holds it.
    static QString masked(QStringView output, CardMask::Ending ending);
    static void appendMasked(QString &out, QStringView output, CardMask::Ending ending);

    // One value of a kind, decoded already and written from position from to the end of text:
    // masked in place as its kind says, not yet escaped.
    static void maskTail(ValueKind kind, QString &text, qsizetype from,
                         CardMask::Ending ending = CardMask::Ending::Whole);
};
