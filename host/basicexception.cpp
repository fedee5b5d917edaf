#include "basicexception.h"

BasicException::BasicException(const tr::Tr &message)
    : std::runtime_error(message.ru().toStdString())
    , m_tr(message)
{}

BasicException::~BasicException() = default;
