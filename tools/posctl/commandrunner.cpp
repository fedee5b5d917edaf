#include "commandrunner.h"

#include "clientwatch.h"
#include "directorycheck.h"
#include "progressbar.h"

#include <basicpaymentprocessing.h>
#include <externalprocessthread.h>
#include <session.h>
#include <singleton.h>

#include <QFileInfo>

#include <cstring>

using namespace Qt::Literals::StringLiterals;

namespace {

bool isSbp(const QString &command)
{
    return command.startsWith("sbp-"_L1);
}

} // namespace

CommandRunner::CommandRunner(ClientWatch &watch)
    : m_watch(watch)
{}

bool CommandRunner::runsClient(const QString &command)
{
    return command != "options"_L1 && command != "scan-params"_L1 && command != "check"_L1 &&
           command != "recorder"_L1 && command != "recordings"_L1;
}

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
                          isSbp(invocation.command) ? ProgressBar::Sbp
                                                    : ProgressBar::CardOrService);

    const QString &command = invocation.command;
    if (command == "sale"_L1)
        return processor.payment(request(invocation, PaymentProcessingRequest::Sale));
    if (command == "refund"_L1)
        return processor.payment(request(invocation, PaymentProcessingRequest::Refund));
    if (command == "cancel"_L1)
        return processor.cancel(request(invocation, PaymentProcessingRequest::Sale));
    if (command == "sbp-pay"_L1)
        return processor.paymentByQRCodeOnPinPad(
            request(invocation, PaymentProcessingRequest::Sale));
    if (command == "sbp-refund"_L1)
        return processor.cancelByQRCodeOnPinPad(
            request(invocation, PaymentProcessingRequest::Return));
    if (command == "reconcile"_L1)
        return invocation.merchant ? processor.checkTotalsByMerchantId(*invocation.merchant)
                                   : processor.checkTotals(0);
    if (command == "report"_L1)
        return invocation.merchant ? processor.printReportByMerchantId(*invocation.merchant)
                                   : processor.printReport();
    if (command == "short-report"_L1)
        return processor.printShortReport();
    if (command == "copy"_L1)
        return processor.printCopy(0);
    Q_ASSERT(command == "balance"_L1);
    return processor.balance(QString());
}

CommandRunner::Outcome CommandRunner::answerOutcome(PaymentProcessingAnswer answer,
                                                    const Invocation &invocation) const
{
    Outcome outcome;
    Formatter::AnswerContext &context = outcome.context;
    if (CommandLine::takesAmount(invocation.command))
        context.amount = invocation.amount;
    context.sbpPayment = invocation.command == "sbp-pay"_L1;
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
        outcome.hint = DirectoryCheck::startHint(failure->directory, failure->reason);

    switch (answer.result) {
    case PaymentProcessingAnswer::Success:
        outcome.exitCode = 0;
        break;
    case PaymentProcessingAnswer::NotEnoughBalance:
        outcome.exitCode = 3;
        break;
    default:
        outcome.exitCode = 1;
        break;
    }
    // A client that did not end by itself may have completed its operation first: the answer
    // stays what the plug-in made of it, but a till must not take it for a failure to retry.
    if (const std::optional<ProcessEnd> abnormal = m_watch.abnormalEnd()) {
        outcome.exitCode = unknownOutcome;
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
    if (invocation.command == "options"_L1)
        return {{}, {}, Formatter::optionsJson(processor), Formatter::optionsText(processor),
                {}, 0};
    if (invocation.command == "scan-params"_L1) {
        const ScanQrParams params = processor.getScanQrParams();
        return {{}, {}, Formatter::scanParamsJson(params), Formatter::scanParamsText(params),
                {}, 0};
    }
    return answerOutcome(call(processor, invocation), invocation);
}
