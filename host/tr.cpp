#include "tr.h"

namespace tr {

const QString undefined = QStringLiteral("undefined");

Tr::Tr() = default;
Tr::Tr(const QString &id, const QString &ru)
    : m_id(id)
    , m_ru(ru)
{}
Tr::Tr(const Tr &other) = default;
Tr::Tr(Tr &&other) noexcept = default;
Tr &Tr::operator=(const Tr &other) = default;
Tr &Tr::operator=(Tr &&other) noexcept = default;
Tr::~Tr() = default;

bool Tr::isEmpty() const
{
    return m_ru.isEmpty();
}

} // namespace tr
