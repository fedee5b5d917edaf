#include "plugin/inpaspaymentprocessing.h"

using namespace Qt::Literals::StringLiterals;

InpasPaymentProcessing::Arguments
InpasPaymentProcessing::getArguments(const PaymentProcessingRequest &request,
                                     const QString &customerQrCode) const
{
    Arguments arguments;
    arguments.insert(u"-a"_s, QVariant::fromValue<qint64>(request.amount));
    arguments.insert(u"-e"_s, 0);
    arguments.insert(u"-o"_s, 0);
    // A variant holding a text is never null, even for a null text, so an empty field still
    // reaches the client as an empty argument rather than as an option without a value.
    arguments.insert(u"-r"_s, request.referenceNumber);
    arguments.insert(u"-c"_s, request.authorizationCode);
    arguments.insert(u"-t"_s, request.merchantId);
    if (!customerQrCode.isEmpty())
        arguments.insert(u"-d"_s, generateQrData(customerQrCode.toLatin1()).toBase64());
    return arguments;
}
