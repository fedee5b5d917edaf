#include "maskinglogger.h"

#include <log4qt/logger.h>

MaskingLogger::MaskingLogger(Log4Qt::Logger *logger)
    : m_logger(logger)
{}

bool MaskingLogger::isDebugEnabled() const
{
    return m_logger->isDebugEnabled();
}

bool MaskingLogger::isInfoEnabled() const
{
    return m_logger->isInfoEnabled();
}

void MaskingLogger::debug(QStringView pattern, std::initializer_list<LogValue> values) const
{
    if (m_logger->isDebugEnabled())
        m_logger->debug(LogValue::format(pattern, values, m_code));
}

void MaskingLogger::info(QStringView pattern, std::initializer_list<LogValue> values) const
{
    if (m_logger->isInfoEnabled())
        m_logger->info(LogValue::format(pattern, values, m_code));
}

void MaskingLogger::warn(QStringView pattern, std::initializer_list<LogValue> values) const
{
    m_logger->warn(LogValue::format(pattern, values, m_code));
}

MaskingLogger::CustomerCodeScope::CustomerCodeScope(MaskingLogger &logger, const QString &sent)
    : m_logger(logger)
    , m_outer(logger.m_code)
{
    if (!sent.isEmpty())
        m_logger.m_code = CustomerCodeForms(sent);
}

MaskingLogger::CustomerCodeScope::~CustomerCodeScope()
{
    m_logger.m_code = m_outer;
}
