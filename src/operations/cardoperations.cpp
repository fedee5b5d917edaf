#include "plugin/inpaspaymentprocessing.h"

#include <operationcodes.h>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int customerQrPaymentMode = 2;

} // namespace

PaymentProcessingAnswer InpasPaymentProcessing::payment(const PaymentProcessingRequest &request)
{
    const ClientInterruption::Operation operation(interruption);
    logger.info(u"Оплата/возврат");
    PaymentProcessingAnswer answer;
    const QString qrCode = customerQr(request);
    const Arguments arguments = getArguments(request, qrCode);

    switch (request.type) {
    case PaymentProcessingRequest::Sale:
        answer = waitAndExecuteOperation(operationcodes::Sale, arguments, nullptr);
        break;
    case PaymentProcessingRequest::Refund:
    case PaymentProcessingRequest::Return:
        answer = waitAndExecuteOperation(operationcodes::Refund, arguments, nullptr);
        break;
    default:
        // Not a type this processor serves: no client run, a failure without a message.
        break;
    }

    if (!qrCode.isEmpty())
        answer.paymentMode = customerQrPaymentMode;
    return answer;
}

PaymentProcessingAnswer InpasPaymentProcessing::cancel(const PaymentProcessingRequest &request)
{
    const ClientInterruption::Operation operation(interruption);
    logger.info(u"Отмена операции");
    const Arguments arguments = getArguments(request, customerQr(request));
    return waitAndExecuteOperation(operationcodes::Cancel, arguments, nullptr);
}
