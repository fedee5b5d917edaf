#include "maskinglogger.h"

#include "answer/cardmask.h"

#include <log4qt/logger.h>

MaskingLogger::MaskingLogger(Log4Qt::Logger *logger)
    : m_logger(logger)
{}

bool MaskingLogger::isDebugEnabled() const
{
    return m_logger->isDebugEnabled();
}

void MaskingLogger::debug(const QString &message) const
{
    if (m_logger->isDebugEnabled())
        m_logger->debug(CardMask::text(message));
}

void MaskingLogger::info(const QString &message) const
{
    if (m_logger->isInfoEnabled())
        m_logger->info(CardMask::text(message));
}

void MaskingLogger::warn(const QString &message) const
{
    m_logger->warn(CardMask::text(message));
}
