#pragma once

#include <QStringList>

// Captures every log line of every category and level while it exists, instead of passing
// them to QTest's own handler; for tests about what the log as a whole shows.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // Every line so far, in order.
    QStringList lines() const;
};
