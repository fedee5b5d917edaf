#pragma once

#include <QByteArray>
#include <QString>

// A stream of the client's as a recording keeps it, whatever bytes it held. The recordings are
// UTF-8 JSON, and a client may write bytes that are not UTF-8 (a cp1251 "№" on a slip, a cp866
// card type), so the text is decoded run by run: what is UTF-8 as itself, and each byte that is
// not as a stand-in of its own (U+DC00 plus the byte, a lone low surrogate, which no UTF-8 text
// can hold). The card rule reads a stand-in as a separator, which is what such a byte is between
// the digits of a number (a no-break space in cp1251 and cp866). In a recording's line, each
// stand-in is written "\xNN" and each backslash doubled, and the stream is marked as escaped, so
// that the very bytes read back.
class RecordedText
{
public:
    // The text of the bytes; clean tells whether they were all UTF-8.
    static QString fromBytes(const QByteArray &bytes, bool *clean = nullptr);
    // The text as a line holds it: the same when clean, else with its stand-ins and backslashes
    // escaped.
    static QString forLine(const QString &text, bool clean);
    // The bytes a line's text stands for.
    static QByteArray toBytes(const QString &text, bool escaped);

    static bool isStandIn(char16_t c) { return c >= 0xdc80 && c <= 0xdcff; }
};
