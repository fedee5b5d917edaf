#include "inpaspaymentprocessing.h"

#include <log4qt/logmanager.h>

#include <csignal>
#include <sys/types.h>

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
    const QMutexLocker lock(&clientMutex);
    // Zero and negative ids would signal whole process groups.
    if (clientProcessId > 0)
        ::kill(static_cast<pid_t>(clientProcessId), SIGINT);
    return true;
}

void InpasPaymentProcessing::setClientProcessId(qint64 pid)
{
    const QMutexLocker lock(&clientMutex);
    clientProcessId = pid;
}
