#include "inpaspaymentprocessing.h"

#include <log4qt/logmanager.h>

using namespace Qt::Literals::StringLiterals;

InpasPaymentProcessing::InpasPaymentProcessing(QObject *parent)
    : QObject(parent)
    , logger(Log4Qt::LogManager::logger(u"inpas"_s))
{
    setOption(EPaymentProcessingOption::Refund, true);
    setOption(EPaymentProcessingOption::Cancel, true);
    setOption(EPaymentProcessingOption::PaymentByQrCodeOnPinPad, true);
    setOption(processing::ShowProgress, true);
    setOption(EPaymentProcessingOption::CustomerQrCode, true);
    setOption(EPaymentProcessingOption::CancelByQrCodeOnPinPad, true);
    setProcessingDirectory(QString());
}

InpasPaymentProcessing::~InpasPaymentProcessing() = default;

bool InpasPaymentProcessing::isPaymentEnable(PaymentProcessingRequest::Type type) const
{
    return type == PaymentProcessingRequest::Sale || type == PaymentProcessingRequest::Refund ||
           type == PaymentProcessingRequest::Return;
}

bool InpasPaymentProcessing::isCancelEnable(PaymentProcessingRequest::Type type) const
{
    return type == PaymentProcessingRequest::Sale;
}

bool InpasPaymentProcessing::interruptPayment()
{
    interruption.interrupt();
    return true;
}
