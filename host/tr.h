#pragma once

#include "zelnorhost_global.h"

#include <QString>

namespace tr {

// Identifier of every message whose text comes from outside the program (a payment client).
ZELNORHOST_EXPORT extern const QString undefined;

// A message for the cashier: an identifier that the host translates by, and its Russian text.
class ZELNORHOST_EXPORT Tr
{
public:
    Tr();
    Tr(const QString &id, const QString &ru);
    Tr(const Tr &other);
    Tr(Tr &&other) noexcept;
    Tr &operator=(const Tr &other);
    Tr &operator=(Tr &&other) noexcept;
    virtual ~Tr();

    // True when the record carries no text.
    bool isEmpty() const;
    QString id() const { return m_id; }
    QString ru() const { return m_ru; }

    bool operator==(const Tr &other) const { return m_id == other.m_id && m_ru == other.m_ru; }
    bool operator!=(const Tr &other) const { return !(*this == other); }

private:
    QString m_id;
    QString m_ru;
};

} // namespace tr
