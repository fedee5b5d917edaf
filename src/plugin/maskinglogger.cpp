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

bool MaskingLogger::isInfoEnabled() const
{
    return m_logger->isInfoEnabled();
}

void MaskingLogger::debug(QString message) const
{
    if (m_logger->isDebugEnabled())
        m_logger->debug(CardMask::text(std::move(message)));
}

void MaskingLogger::info(QString message) const
{
    if (m_logger->isInfoEnabled())
        m_logger->info(CardMask::text(std::move(message)));
}

void MaskingLogger::warn(QString message) const
{
    m_logger->warn(CardMask::text(std::move(message)));
}
