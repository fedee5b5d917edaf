#pragma once

#include "commandline.h"

#include <abstractpaymentprocessing.h>

#include <QString>

class Interrupter;

// Makes the one host call of a command on a processor and formats what came back.
class CommandRunner
{
public:
    struct Outcome
    {
        QString json;
        QString text;
        int exitCode = 0;
    };

    CommandRunner(Interrupter &interrupter, std::optional<int> interruptAfterMs);

    Outcome run(AbstractPaymentProcessing &processor, const Invocation &invocation);

    static PaymentProcessingRequest request(const Invocation &invocation, int defaultType);

private:
    Outcome answerOutcome(const PaymentProcessingAnswer &answer) const;
    PaymentProcessingAnswer call(AbstractPaymentProcessing &processor,
                                 const Invocation &invocation);

    Interrupter &m_interrupter;
    std::optional<int> m_interruptAfterMs;
};
