#include "valutcollection.h"

ValutCollection::ValutCollection() = default;
ValutCollection::~ValutCollection() = default;

Valut ValutCollection::getValut(qint32 code) const
{
    return m_valuts.value(code, Valut(code, QString(), Valut::NoOption));
}

void ValutCollection::addValut(const Valut &valut)
{
    m_valuts.insert(valut.code(), valut);
}
