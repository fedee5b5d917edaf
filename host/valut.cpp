#include "valut.h"

Valut::Valut(qint32 code, const QString &name, Options options)
    : m_code(code)
    , m_name(name)
    , m_options(options)
{}

bool Valut::checkOption(Option option) const
{
    return option != NoOption && m_options.testFlag(option);
}
