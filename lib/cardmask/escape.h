#pragma once

#include "escapeblock.h"

#include <QString>
#include <QStringView>

// Writing a value so that it can never start a line of its own, and reading escapes back.
// Each works at the end of a string that is being built, so that a large value is held once.
class Escape
{
public:
    using Quotes = escapeblock::Quotes;

    // Writes the text from position from to the end with every control character as an escape
    // ("\n", "\t", "\u0012"), the line and paragraph separators too, and each backslash
    // doubled, so that what is written reads back unambiguously; with Quotes::Escaped also
    // '"', as inside a JSON string.
    static void escapeTail(QString &text, qsizetype from, Quotes quotes = Quotes::Kept);
    static QString escaped(QStringView text, Quotes quotes = Quotes::Kept);

    // Appends the text with the escapes of a JSON string ("\n", "\"", "\u0034") decoded
    // wherever they stand; a backslash that starts no escape stays as it is.
    static void appendDecoded(QString &out, QStringView text);
    static QString decoded(QStringView text);

    // The value of a hexadecimal digit of either case, or -1.
    static int hexDigit(char16_t c);
};
