#pragma once

#include <QString>

namespace Log4Qt {
class Logger;
}

// The processor's log: Log4Qt's logger "inpas", with every line passed through
// CardMask::text() first, so that no card number reaches the log whatever a caller formats
// into a line. A line of a level that is off costs no masking.
class MaskingLogger
{
public:
    explicit MaskingLogger(Log4Qt::Logger *logger);

    // Callers ask before formatting a line that costs something to build.
    bool isDebugEnabled() const;
    bool isInfoEnabled() const;

    // By value: a line formatted for the call is masked where it lies, without a copy.
    void debug(QString message) const;
    void info(QString message) const;
    void warn(QString message) const;

private:
    Log4Qt::Logger *m_logger;
};
