#pragma once

#include <QByteArray>
#include <QStringView>

#include <cstdio>

// posctl's standard output or error, written as UTF-8 a piece at a time, so that a large
// answer is never held a second time as the text to print. Every piece is written whole,
// whatever it holds (NUL included), and flushed at the end. A write that fails (a closed
// pipe, a full disk) is remembered, and finish() tells.
class Output
{
public:
    explicit Output(FILE *stream)
        : m_stream(stream)
    {}
    ~Output() { finish(); }

    // Flushes; 0 when everything was written, else the first error number.
    int finish();
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    Output &operator<<(QStringView text);
    Output &operator<<(char16_t c) { return *this << QStringView(&c, 1); }
    // The character count times, written a block at a time.
    void repeat(QChar c, qsizetype count);
    // The text as a JSON string, quotes included, escaped exactly as QJsonDocument writes it.
    void jsonString(QStringView text);

    // Pieces of a text that never split a surrogate pair.
    static constexpr qsizetype pieceSize = 64 * 1024;
    static qsizetype pieceEnd(QStringView text, qsizetype from);

private:
    void write(const QByteArray &bytes);

    FILE *m_stream;
    int m_error = 0;
};
