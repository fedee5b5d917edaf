#include "logger.h"

#include <QDebug>

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
        QMessageLogger().debug(m_category).noquote() << message;
}

void Logger::info(const QString &message) const
{
    if (m_category.isInfoEnabled())
        QMessageLogger().info(m_category).noquote() << message;
}

void Logger::warn(const QString &message) const
{
    if (m_category.isWarningEnabled())
        QMessageLogger().warning(m_category).noquote() << message;
}

} // namespace Log4Qt
