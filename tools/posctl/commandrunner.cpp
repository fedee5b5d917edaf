#include "commandrunner.h"

#include "clientwatch.h"
#include "directorycheck.h"
#include "exitstatus.h"
#include "progressbar.h"

#include <basicpaymentprocessing.h>
#include <externalprocessthread.h>
#include <hostinstance.h>
#include <session.h>

#include <QFileInfo>

#include <cstring>

using namespace Qt::Literals::StringLiterals;

CommandRunner::CommandRunner(ClientWatch &watch)
    : m_watch(watch)
{}

PaymentProcessingRequest CommandRunner::request(const Invocation &invocation, int defaultType)
{
    PaymentProcessingRequest r;
    r.type = static_cast<PaymentProcessingRequest::Type>(invocation.type.value_or(defaultType));
    r.amount = invocation.amount;
    r.merchantId = invocation.merchant.value_or(QString());
    r.referenceNumber = invocation.rrn;
    r.authorizationCode = invocation.auth;
    r.customerQrCode = invocation.customerQr;
    r.currencyCode = invocation.currency;
    r.formIdText = invocation.formText;
    r.formIdNumber = invocation.formNumber;
    r.formIdSequence = invocation.formSequence;
    r.formIdTime = invocation.formTime.value_or(QDateTime::currentDateTime());
    return r;
}

QString CommandRunner::processingDirectory(const AbstractPaymentProcessing &processor)
{
    const auto *basic = dynamic_cast<const BasicPaymentProcessing *>(&processor);
    return basic ? basic->getProcessingDirectory() : QString();
}

PaymentProcessingAnswer CommandRunner::call(AbstractPaymentProcessing &processor,
                                            const Invocation &invocation)
{
    m_watch.beginOperation();
    const ProgressBar bar(hostInstance<Session>().progress(), m_watch,
                          invocation.spec->progress == CommandTable::Progress::Sbp
                              ? ProgressBar::Sbp
                              : ProgressBar::CardOrService);
    return invocation.spec->hostCall(processor, invocation);
}

CommandRunner::Outcome CommandRunner::answerOutcome(PaymentProcessingAnswer answer,
                                                    const Invocation &invocation) const
{
    Outcome outcome;
    Formatter::AnswerContext &context = outcome.context;
    if (invocation.spec->argument == CommandTable::Argument::Amount)
        context.amount = invocation.amount;
    context.sbpPayment = invocation.spec->codes == CommandTable::Codes::SbpPayment;
    context.clientRuns = m_watch.runsInOperation();

    // A failed run: the answer's message is the client's standard error, which may say nothing.
    const std::optional<ProcessEnd> end = m_watch.lastEnd();
    if (answer.status == -1 && answer.message.id() == tr::undefined && end && end->error < 0 &&
        end->exitCode != 0) {
        context.clientNote =
            end->standardErrorBytes == 0
                ? u"the payment client ended with status %1 and wrote nothing"_s.arg(end->exitCode)
                : u"the payment client ended with status %1; the message is "
                  u"what it wrote on its standard error"_s.arg(end->exitCode);
    }
    if (const auto failure = m_watch.lastStartFailure();
        failure && answer.message.id() == "inpasPaymentProcessingStartError"_L1)
        outcome.hint = DirectoryCheck::startHint(failure->directory, failure->failure);

    switch (answer.result) {
    case PaymentProcessingAnswer::Success:
        outcome.exitCode = ExitStatus::Success;
        break;
    case PaymentProcessingAnswer::NotEnoughBalance:
        outcome.exitCode = ExitStatus::NotEnoughBalance;
        break;
    default:
        outcome.exitCode = ExitStatus::Failure;
        break;
    }
    // A client that did not end by itself may have completed its operation first: the answer
    // stays what the plug-in made of it, but a till must not take it for a failure to retry.
    if (const std::optional<ProcessEnd> abnormal = m_watch.abnormalEnd()) {
        outcome.exitCode = ExitStatus::UnknownOutcome;
        outcome.hint =
            unknownOutcomeNote(*abnormal, answer, CustomerCodeForms(invocation.customerQr));
    }
    outcome.answer = std::move(answer);
    return outcome;
}

QString CommandRunner::unknownOutcomeNote(const ProcessEnd &end,
                                          const PaymentProcessingAnswer &answer,
                                          const CustomerCodeForms &code) const
{
    QString how;
    if (end.error == ExternalProcessThread::Timedout)
        how = u"ran past its time-out and was killed"_s;
    else if (end.signal != 0)
        how = u"was ended by signal %1 (SIG%2)"_s.arg(end.signal)
                  .arg(QString::fromLatin1(::sigabbrev_np(end.signal)));
    else
        how = u"ended in a way that could not be learnt"_s;
    QString directory;
    for (const ClientWatch::Client &client : m_watch.operationClients())
        if (client.processId == end.processId)
            directory = QFileInfo(client.directory).absoluteFilePath();
    return u"the payment client (process %1) %2 before it said how its operation ended, so the "
           u"outcome is unknown: the terminal may have completed it. The plug-in answered: %3. "
           u"Before you repeat the operation, check the terminal's screen or print its last "
           u"slip with: posctl --dir %4 copy"_s.arg(end.processId)
               .arg(how, Formatter::gist(answer, code), directory);
}

CommandRunner::Outcome CommandRunner::run(AbstractPaymentProcessing &processor,
                                          const Invocation &invocation)
{
    return answerOutcome(call(processor, invocation), invocation);
}
