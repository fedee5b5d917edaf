#include "plugin/inpaspaymentprocessing.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// An empty field must still reach the client as an empty argument, never as an option
// without a value.
QVariant textValue(const QString &text)
{
    return text.isNull() ? QVariant(u""_s) : QVariant(text);
}

} // namespace

InpasPaymentProcessing::Arguments
InpasPaymentProcessing::getArguments(const PaymentProcessingRequest &request,
                                     const QString &customerQrCode) const
{
    Arguments arguments;
    arguments.insert(u"-a"_s, QVariant::fromValue<qint64>(request.amount));
    arguments.insert(u"-e"_s, 0);
    arguments.insert(u"-o"_s, 0);
    arguments.insert(u"-r"_s, textValue(request.referenceNumber));
    arguments.insert(u"-c"_s, textValue(request.authorizationCode));
    arguments.insert(u"-t"_s, textValue(request.merchantId));
    if (!customerQrCode.isEmpty())
        arguments.insert(u"-d"_s, generateQrData(customerQrCode.toLatin1()).toBase64());
    return arguments;
}
