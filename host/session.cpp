#include "session.h"

Session::Session() = default;
Session::~Session() = default;

ProgressIndicator *Session::progress()
{
    return &m_progress;
}
