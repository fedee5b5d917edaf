#include "plugin/inpaspaymentprocessing.h"

#include <operationcodes.h>

using namespace Qt::Literals::StringLiterals;

PaymentProcessingAnswer
InpasPaymentProcessing::cancelByQRCodeOnPinPad(const PaymentProcessingRequest &request)
{
    const ClientInterruption::Operation operation(interruption);
    const QString id = formId(request);
    Arguments arguments = getArguments(request, QString());
    arguments.insert(u"-f"_s, QString::fromLatin1(operationcodes::returnSbp));
    arguments.insert(u"-r"_s, id);
    arguments.insert(u"-c"_s, request.referenceNumber);
    PaymentProcessingAnswer answer =
        waitAndExecuteOperation(operationcodes::Refund, arguments, nullptr);

    if (answer.status == 0) {
        PaymentProcessingRequest statusRequest = request;
        statusRequest.referenceNumber = id;
        statusRequest.authorizationCode = u""_s;
        answer = getCancelByQRCodeOnPinPadStatus(statusRequest);
    }
    addAdditionalData(answer, u"SbpPinPad"_s);
    return answer;
}

PaymentProcessingAnswer
InpasPaymentProcessing::getCancelByQRCodeOnPinPadStatus(const PaymentProcessingRequest &request)
{
    Arguments arguments = getArguments(request, QString());
    arguments.insert(u"-f"_s, QString::fromLatin1(operationcodes::returnStatusSbp));

    bool retry = true;
    PaymentProcessingAnswer answer;
    do {
        answer = waitAndExecuteOperation(operationcodes::Refund, arguments, &retry);
        // A configured code ends the refund as done, whatever the retry flag says.
        if (answer.status != 0 && answer.status != 1 &&
            settings.returnStatusSbpSuccessCodes.contains(answer.status)) {
            answer.result = PaymentProcessingAnswer::Success;
            break;
        }
    } while (retry);
    return answer;
}
