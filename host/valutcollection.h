#pragma once

#include "valut.h"
#include "zelnorhost_global.h"

#include <QMap>

// The till's currencies by code. An unknown code gives a currency with no options.
class ZELNORHOST_EXPORT ValutCollection
{
public:
    ValutCollection();
    virtual ~ValutCollection();

    virtual Valut getValut(qint32 code) const;
    void addValut(const Valut &valut);

private:
    QMap<qint32, Valut> m_valuts;
};
