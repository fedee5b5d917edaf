#pragma once

#include "cardmask.h"
#include "customercodeforms.h"
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
// and number treated by the kind of the member it belongs to (FieldKinds), a key as a value
// nothing is known of. A string is decoded first, so that escapes cannot hide a digit or a
// separator; escapes it still holds are decoded again, and a string that is a JSON document
// itself is written as one, to nestedDepth levels. The strings of an array of text are masked
// together, as the lines of a slip they are, so that a number split across two of them is
// found. A number that masking changes is written as a string, so that the output stays JSON;
// one in exponent form is read by its digits. Output that stops parsing is written as far as it
// parses; a string that does not end is masked as text that may have been cut, and the rest is
// decoded, masked as the client's text and escaped. Nothing written holds a raw control
// character. The customer's code, when one was sent, is found by its value first.
// Linear in the output; nesting deeper than maxDepth is treated as text.
class OutputMask
{
public:
    static constexpr int maxDepth = 256;
    static constexpr int nestedDepth = 3;

    // ending: whether the output may have been cut at a size limit, which matters only where
    // it stops parsing. appendMasked() writes it at the end of out, where a log line holds it.
    static QString masked(QStringView output, CardMask::Ending ending,
                          const CustomerCodeForms &code = {});
    static void appendMasked(QString &out, QStringView output, CardMask::Ending ending,
                             const CustomerCodeForms &code = {});

    // One value of a kind, decoded already and written from position from to the end of text:
    // masked in place as its kind says, not yet escaped.
    static void maskTail(ValueKind kind, QString &text, qsizetype from,
                         CardMask::Ending ending = CardMask::Ending::Whole,
                         const CustomerCodeForms &code = {});

    // Text of the client's that nothing says the kind of (its standard error), decoded and
    // masked as an unknown member is.
    static QString maskedUnknownText(QStringView text, CardMask::Ending ending,
                                     const CustomerCodeForms &code = {});
};
