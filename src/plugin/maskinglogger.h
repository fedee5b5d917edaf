#pragma once

#include <logvalue.h>

#include <QStringView>

#include <initializer_list>

namespace Log4Qt {
class Logger;
}

// The processor's log: Log4Qt's logger "inpas". A line is a pattern of ours with %1 to %9
// and the values that fill it, each with its kind (LogValue), so that no card data reaches
// the log and no value can start a line of its own, while the host's own values (merchant
// ids, amounts, the directory) are shown as they are. A line of a level that is off is not
// formatted at all.
class MaskingLogger
{
public:
    explicit MaskingLogger(Log4Qt::Logger *logger);

    // Callers ask before building a value that costs something, such as a large output.
    bool isDebugEnabled() const;
    bool isInfoEnabled() const;

    void debug(QStringView pattern, std::initializer_list<LogValue> values = {}) const;
    void info(QStringView pattern, std::initializer_list<LogValue> values = {}) const;
    void warn(QStringView pattern, std::initializer_list<LogValue> values = {}) const;

    // While one lives, the customer's code sent as "-d" is found by its value in every line
    // (CustomerCodeForms): for the run of a client that was sent one and the reading of its
    // answer. Scopes nest; the outer one's code comes back when the inner one ends.
    class CustomerCodeScope
    {
    public:
        CustomerCodeScope(MaskingLogger &logger, const QString &sent);
        ~CustomerCodeScope();
        CustomerCodeScope(const CustomerCodeScope &) = delete;
        CustomerCodeScope &operator=(const CustomerCodeScope &) = delete;

    private:
        MaskingLogger &m_logger;
        CustomerCodeForms m_outer;
    };

private:
    Log4Qt::Logger *m_logger;
    CustomerCodeForms m_code;
};
