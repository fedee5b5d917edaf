#include "basicpaymentprocessing.h"

#include <thread>

using namespace Qt::Literals::StringLiterals;

BasicPaymentProcessing::BasicPaymentProcessing() = default;
BasicPaymentProcessing::~BasicPaymentProcessing() = default;

PaymentProcessingAnswer BasicPaymentProcessing::notSupported()
{
    PaymentProcessingAnswer answer;
    answer.message = tr::Tr(u"paymentProcessingNotSupportedError"_s,
                            u"Операция не поддерживается платежной системой"_s);
    return answer;
}

void BasicPaymentProcessing::init(const PaymentProcessingContext &context)
{
    m_context = context;
}

bool BasicPaymentProcessing::isPaymentEnable(PaymentProcessingRequest::Type) const
{
    return false;
}

bool BasicPaymentProcessing::isPaymentEnable(const QSharedPointer<AbstractDocument> &) const
{
    return true;
}

bool BasicPaymentProcessing::isCancelEnable(PaymentProcessingRequest::Type) const
{
    return false;
}

bool BasicPaymentProcessing::isUsePaymentAsDiscount() const
{
    return false;
}

PaymentProcessingAnswer BasicPaymentProcessing::payment(const PaymentProcessingRequest &)
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::change(const PaymentProcessingRequest &)
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::cancel(const PaymentProcessingRequest &)
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::checkTotals(int)
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::checkTotalsByMerchantId(const QString &)
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::printCopy(int)
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::printReport()
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::printReportByMerchantId(const QString &)
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::printShortReport()
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::balance(const QString &)
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::discountCard()
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::loyaltyCards(const QString &)
{
    return notSupported();
}

bool BasicPaymentProcessing::checkOption(EPaymentProcessingOption::Option option) const
{
    const quint32 bits = option;
    return bits != 0 && (m_paymentOptions & bits) == bits;
}

bool BasicPaymentProcessing::checkOption(processing::Option option) const
{
    return m_processingOptions.contains(option);
}

void BasicPaymentProcessing::setOption(EPaymentProcessingOption::Option option, bool on)
{
    if (on)
        m_paymentOptions |= option;
    else
        m_paymentOptions &= ~quint32(option);
}

void BasicPaymentProcessing::setOption(processing::Option option, bool on)
{
    if (on)
        m_processingOptions.insert(option);
    else
        m_processingOptions.remove(option);
}

void BasicPaymentProcessing::cancelCardRequest() {}

ScanQrParams BasicPaymentProcessing::getScanQrParams() const
{
    return {};
}

bool BasicPaymentProcessing::testConnection()
{
    return true;
}

PaymentProcessingAnswer BasicPaymentProcessing::demandPinCode()
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::demandQRCode(const PaymentProcessingRequest &)
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::getPaymentByQRCodeStatus(const QString &)
{
    return notSupported();
}

int BasicPaymentProcessing::getWaitPaymentByQRCodeDuration() const
{
    return 120;
}

int BasicPaymentProcessing::getWaitPaymentStatusDuration() const
{
    return 60;
}

int BasicPaymentProcessing::getStatusRequestsInterval() const
{
    return 3;
}

int BasicPaymentProcessing::getStatusRequestDelay() const
{
    return 0;
}

bool BasicPaymentProcessing::cancelPaymentByQRCodeInQueue(const PaymentProcessingRequest &) const
{
    return false;
}

PaymentProcessingAnswer
BasicPaymentProcessing::paymentByQRCodeOnPinPad(const PaymentProcessingRequest &)
{
    return notSupported();
}

PaymentProcessingAnswer
BasicPaymentProcessing::cancelByQRCodeOnPinPad(const PaymentProcessingRequest &)
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::paymentByBiometry(const PaymentProcessingRequest &)
{
    return notSupported();
}

PaymentProcessingAnswer BasicPaymentProcessing::cancelByBiometry(const PaymentProcessingRequest &)
{
    return notSupported();
}

PaymentProcessingAnswer
BasicPaymentProcessing::paymentByElectronicCertificate(const PaymentProcessingRequest &)
{
    return notSupported();
}

PaymentProcessingAnswer
BasicPaymentProcessing::paymentWithCashAdvance(const PaymentProcessingRequest &)
{
    return notSupported();
}

void BasicPaymentProcessing::setProcessingDirectory(const QString &directory)
{
    processingDirectory = directory;
}

bool BasicPaymentProcessing::interruptPayment()
{
    return false;
}

QString BasicPaymentProcessing::getPar()
{
    return {};
}

int BasicPaymentProcessing::getValutCodeForGetHashedCardNumber() const
{
    return 0;
}

QString BasicPaymentProcessing::getHashedCardNumber()
{
    return {};
}

bool BasicPaymentProcessing::sendEnqueuedMessage(const QMap<QString, QVariant> &)
{
    return false;
}

bool BasicPaymentProcessing::useTerminal() const
{
    return true;
}

double BasicPaymentProcessing::correctSum(double sum) const
{
    return sum;
}

bool BasicPaymentProcessing::confirmSumCorrectionParams(double, double) const
{
    return true;
}

void BasicPaymentProcessing::afterCard(const QSharedPointer<DocumentCardRecord> &) const {}

QVariant BasicPaymentProcessing::getOptionParameter(EPaymentProcessingOption::Option) const
{
    return {};
}

PaymentProcessingContext BasicPaymentProcessing::getContext() const
{
    return m_context;
}

void BasicPaymentProcessing::waitBeforeNextOperation(int intervalSeconds) const
{
    if (!m_lastOperationTime || intervalSeconds <= 0)
        return;
    std::this_thread::sleep_until(*m_lastOperationTime + std::chrono::seconds(intervalSeconds));
}

void BasicPaymentProcessing::setLastOperationTime()
{
    m_lastOperationTime = std::chrono::steady_clock::now();
}
