#pragma once

#include <csignal>

// Counts the SIGINTs that reach this test process while it exists, so that a test can prove
// an interruption went to the client and nowhere else.
class SigintCounter
{
public:
    SigintCounter();
    ~SigintCounter();
    SigintCounter(const SigintCounter &) = delete;
    SigintCounter &operator=(const SigintCounter &) = delete;

    int count() const;

private:
    struct sigaction m_previous = {};
};
