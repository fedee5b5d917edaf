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
    // What a command came to: the host's answer with what posctl knows around it, or, for
    // the information commands, their output already formatted both ways.
    struct Outcome
    {
        std::optional<PaymentProcessingAnswer> answer;
        Formatter::AnswerContext context;
        QString json;
        QString text;
        // For stderr: why the client could not be started, or why the outcome is unknown, and
        // what to do.
        QString hint;
        int exitCode = 0;
    };

    // The exit status of an operation whose client did not end by itself.
    static constexpr int unknownOutcome = 4;

    explicit CommandRunner(ClientWatch &watch);

    Outcome run(AbstractPaymentProcessing &processor, const Invocation &invocation);
    // Whether the command makes a host call that runs the payment client.
    static bool runsClient(const QString &command);

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
