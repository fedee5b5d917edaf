#pragma once

#include "../zelnorhost_global.h"

#include <QByteArray>
#include <QLoggingCategory>
#include <QString>

namespace Log4Qt {

// A named logger with Log4Qt's calls. Lines go to Qt's message handler under the logging
// category of the logger's name, so the host program decides where they are shown and tests
// can expect them with QTest::ignoreMessage. The text is passed on exactly as given.
class ZELNORHOST_EXPORT Logger
{
public:
    explicit Logger(const QString &name);
    ~Logger();
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    QString name() const { return m_name; }
    const QLoggingCategory &category() const { return m_category; }

    bool isDebugEnabled() const { return m_category.isDebugEnabled(); }
    bool isInfoEnabled() const { return m_category.isInfoEnabled(); }

    void debug(const QString &message) const;
    void info(const QString &message) const;
    void warn(const QString &message) const;

private:
    void write(QtMsgType type, const QString &message) const;

    QString m_name;
    QByteArray m_categoryName; // QLoggingCategory keeps only a pointer to it
    QLoggingCategory m_category;
};

} // namespace Log4Qt
