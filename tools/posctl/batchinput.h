#pragma once

#include <QByteArray>
#include <QList>

#include <optional>

// The lines of a batch, read from standard input as they come. A reader waiting for input
// also wakes when the stop descriptor becomes readable, so that a signal stops a batch that
// waits at a terminal.
class BatchInput
{
public:
    explicit BatchInput(int stopDescriptor);

    // The next line without its line end, or nullopt at the end of input or on a stop.
    std::optional<QByteArray> next();
    // The number of the line that next() returned last, from 1.
    int lineNumber() const { return m_lineNumber; }
    // The lines that are already available and not read yet, without waiting for more; for
    // telling which lines of a stopped batch did not run.
    QList<QByteArray> available();

private:
    bool fill(bool wait);
    std::optional<QByteArray> takeLine(bool atEnd);

    int m_stopDescriptor;
    QByteArray m_buffer;
    bool m_atEnd = false;
    int m_lineNumber = 0;
};
