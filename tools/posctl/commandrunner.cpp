#include "commandrunner.h"

#include "formatter.h"
#include "interrupter.h"
#include "progressbar.h"

#include <session.h>
#include <singleton.h>

using namespace Qt::Literals::StringLiterals;

CommandRunner::CommandRunner(Interrupter &interrupter, std::optional<int> interruptAfterMs)
    : m_interrupter(interrupter)
    , m_interruptAfterMs(interruptAfterMs)
{}

PaymentProcessingRequest CommandRunner::request(const Invocation &invocation, int defaultType)
{
    PaymentProcessingRequest r;
    r.type = static_cast<PaymentProcessingRequest::Type>(invocation.type.value_or(defaultType));
    r.amount = invocation.positional.value(0).toLongLong();
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

PaymentProcessingAnswer CommandRunner::call(AbstractPaymentProcessing &processor,
                                            const Invocation &invocation)
{
    const ProgressBar bar(hostInstance<Session>().progress());
    const Interrupter::Operation operation(m_interrupter, &processor, m_interruptAfterMs);

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

CommandRunner::Outcome CommandRunner::answerOutcome(const PaymentProcessingAnswer &answer) const
{
    Outcome outcome;
    outcome.json = Formatter::answerJson(answer);
    outcome.text = Formatter::answerText(answer);
    if (answer.message.id() == "inpasPaymentProcessingStartError"_L1)
        outcome.text += u"hint: the processing directory has no runnable ./zelnorinpas; "
                        u"choose one with --dir DIR\n"_s;
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
    return outcome;
}

CommandRunner::Outcome CommandRunner::run(AbstractPaymentProcessing &processor,
                                          const Invocation &invocation)
{
    if (invocation.command == "options"_L1)
        return {Formatter::optionsJson(processor), Formatter::optionsText(processor), 0};
    if (invocation.command == "scan-params"_L1) {
        const ScanQrParams params = processor.getScanQrParams();
        return {Formatter::scanParamsJson(params), Formatter::scanParamsText(params), 0};
    }
    return answerOutcome(call(processor, invocation));
}
