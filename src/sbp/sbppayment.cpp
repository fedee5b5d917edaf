#include "plugin/inpaspaymentprocessing.h"

#include <operationcodes.h>

using namespace Qt::Literals::StringLiterals;

QString InpasPaymentProcessing::formId(const PaymentProcessingRequest &request) const
{
    // Each part is formatted on its own: a "%" in the text part must stay text.
    return u"%1%2%3%4"_s.arg(request.formIdText.rightJustified(2, u'0'),
                             u"%1"_s.arg(request.formIdNumber, 4, 10, QChar(u'0')),
                             u"%1"_s.arg(request.formIdSequence, 7, 10, QChar(u'0')),
                             request.formIdTime.toString(u"ddMMyyhhmmss"_s));
}

PaymentProcessingAnswer
InpasPaymentProcessing::paymentByQRCodeOnPinPad(const PaymentProcessingRequest &request)
{
    // Held across the status queries, so that an interrupt between two of them is kept.
    const ClientInterruption::Operation operation(interruption);
    PaymentProcessingAnswer answer;
    switch (request.type) {
    case PaymentProcessingRequest::Return:
        return cancelByQRCodeOnPinPad(request);
    case PaymentProcessingRequest::Refund:
        answer.message =
            tr::Tr(u"inpasPaymentProcessingNotSupportedError"_s, u"Не поддерживается"_s);
        return answer;
    case PaymentProcessingRequest::Sale:
        break;
    default:
        return answer;
    }

    const QString id = formId(request);
    Arguments arguments = getArguments(request, QString());
    arguments.insert(u"-f"_s, QString::fromLatin1(operationcodes::paymentSbp));
    arguments.insert(u"-r"_s, id);
    answer = waitAndExecuteOperation(operationcodes::Sale, arguments, nullptr);

    // Status 0: the payment is open on the PIN pad; ask until it has an outcome.
    if (answer.status == 0) {
        PaymentProcessingRequest statusRequest = request;
        statusRequest.authorizationCode = id;
        answer = getPaymentByQRCodeOnPinPadStatus(statusRequest);
    }
    if (answer.result == PaymentProcessingAnswer::Success)
        answer.authorizationCode = id;
    addAdditionalData(answer, u"SbpPinPad"_s);
    return answer;
}

PaymentProcessingAnswer
InpasPaymentProcessing::getPaymentByQRCodeOnPinPadStatus(const PaymentProcessingRequest &request)
{
    Arguments arguments = getArguments(request, QString());
    arguments.insert(u"-f"_s, QString::fromLatin1(operationcodes::paymentStatusSbp));

    bool retry = true;
    PaymentProcessingAnswer answer;
    do {
        answer = waitAndExecuteOperation(operationcodes::Sale, arguments, &retry);
    } while (retry);

    if (answer.result == PaymentProcessingAnswer::Success)
        answer.referenceNumber = answer.authorizationCode;
    return answer;
}
