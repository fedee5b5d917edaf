#pragma once

#include "commandline.h"
#include "formatter.h"

#include <abstractpaymentprocessing.h>

#include <QString>

class ClientWatch;
struct ProcessEnd;

// Makes the one host call of a command on a processor and formats what came back.
class CommandRunner
{
public:
    // What an operation came to: the host's answer with what posctl knows around it.
    struct Outcome
    {
        PaymentProcessingAnswer answer;
        Formatter::AnswerContext context;
        // For stderr: why the client could not be started, or why the outcome is unknown, and
        // what to do.
        QString hint;
        int exitCode = 0;
    };

    explicit CommandRunner(ClientWatch &watch);

    // The host call of the invocation's command (its row's hostCall), guarded by nothing:
    // the caller guards it.
    Outcome run(AbstractPaymentProcessing &processor, const Invocation &invocation);

    static PaymentProcessingRequest request(const Invocation &invocation, int defaultType);
    // Where the processor runs its client.
    static QString processingDirectory(const AbstractPaymentProcessing &processor);

private:
    Outcome answerOutcome(PaymentProcessingAnswer answer, const Invocation &invocation) const;
    QString unknownOutcomeNote(const ProcessEnd &end, const PaymentProcessingAnswer &answer,
                               const CustomerCodeForms &code) const;
    PaymentProcessingAnswer call(AbstractPaymentProcessing &processor,
                                 const Invocation &invocation);

    ClientWatch &m_watch;
};
