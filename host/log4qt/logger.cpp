#include "logger.h"

#include <QtGlobal>

namespace Log4Qt {

Logger::Logger(const QString &name)
    : m_name(name)
    , m_categoryName(name.toUtf8())
    , m_category(m_categoryName.constData())
{}

Logger::~Logger() = default;

void Logger::debug(const QString &message) const
{
    if (m_category.isDebugEnabled())
        write(QtDebugMsg, message);
}

void Logger::info(const QString &message) const
{
    if (m_category.isInfoEnabled())
        write(QtInfoMsg, message);
}

void Logger::warn(const QString &message) const
{
    if (m_category.isWarningEnabled())
        write(QtWarningMsg, message);
}

// Straight to the message handler: a line of an answer's size is not copied once more into a
// QDebug stream on its way.
void Logger::write(QtMsgType type, const QString &message) const
{
    const QMessageLogContext context(nullptr, 0, nullptr, m_categoryName.constData());
    qt_message_output(type, context, message);
}

} // namespace Log4Qt
