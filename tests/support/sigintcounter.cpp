#include "sigintcounter.h"

namespace {

volatile sig_atomic_t received = 0;

void countInterrupt(int)
{
    received = received + 1;
}

} // namespace

SigintCounter::SigintCounter()
{
    received = 0;
    struct sigaction action = {};
    action.sa_handler = countInterrupt;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, &m_previous);
}

SigintCounter::~SigintCounter()
{
    ::sigaction(SIGINT, &m_previous, nullptr);
}

int SigintCounter::count() const
{
    return received;
}
