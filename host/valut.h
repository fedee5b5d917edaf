#pragma once

#include "zelnorhost_global.h"

#include <QFlags>
#include <QString>

// One currency (payment type) of the host, with the options the till configured for it.
class ZELNORHOST_EXPORT Valut
{
public:
    enum Option : quint32 {
        NoOption = 0,
        Cash = 0x1,
        BankCard = 0x2,
        PassCustomerQrCode = 0x4000,
    };
    Q_DECLARE_FLAGS(Options, Option)

    Valut() = default;
    Valut(qint32 code, const QString &name, Options options);

    qint32 code() const { return m_code; }
    QString name() const { return m_name; }
    Options options() const { return m_options; }
    bool checkOption(Option option) const;

private:
    qint32 m_code = 0;
    QString m_name;
    Options m_options;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(Valut::Options)
