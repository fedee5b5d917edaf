#pragma once

#include "tr.h"
#include "zelnorhost_global.h"

#include <stdexcept>

// The host's exception: a failure that carries a message for the cashier.
class ZELNORHOST_EXPORT BasicException : public std::runtime_error
{
public:
    explicit BasicException(const tr::Tr &message);
    ~BasicException() override;

    tr::Tr tr() const { return m_tr; }

private:
    tr::Tr m_tr;
};
