#pragma once

#include "paymentprocessinganswer.h"
#include "paymentprocessingoptions.h"
#include "paymentprocessingrequest.h"
#include "scanqrparams.h"

#include <QMap>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QVariant>

class AbstractDocument;
class DocumentCardRecord;

// What the host tells a processor when it starts using it.
struct PaymentProcessingContext
{
    QString deviceName;
    qint32 cashNumber = 0;
};

// The host's payment-processing interface. The virtual operations are in the host's slot
// order; a processor usually derives from BasicPaymentProcessing and overrides a few.
class AbstractPaymentProcessing
{
public:
    virtual ~AbstractPaymentProcessing() = default;

    virtual void init(const PaymentProcessingContext &context) = 0;
    virtual bool isPaymentEnable(PaymentProcessingRequest::Type type) const = 0;
    virtual bool isPaymentEnable(const QSharedPointer<AbstractDocument> &document) const = 0;
    virtual bool isCancelEnable(PaymentProcessingRequest::Type type) const = 0;
    virtual bool isUsePaymentAsDiscount() const = 0;
    virtual PaymentProcessingAnswer payment(const PaymentProcessingRequest &request) = 0;
    virtual PaymentProcessingAnswer change(const PaymentProcessingRequest &request) = 0;
    virtual PaymentProcessingAnswer cancel(const PaymentProcessingRequest &request) = 0;
    virtual PaymentProcessingAnswer checkTotals(int mode) = 0;
    virtual PaymentProcessingAnswer checkTotalsByMerchantId(const QString &merchantId) = 0;
    virtual PaymentProcessingAnswer printCopy(int number) = 0;
    virtual PaymentProcessingAnswer printReport() = 0;
    virtual PaymentProcessingAnswer printReportByMerchantId(const QString &merchantId) = 0;
    virtual PaymentProcessingAnswer printShortReport() = 0;
    virtual PaymentProcessingAnswer balance(const QString &account) = 0;
    virtual PaymentProcessingAnswer discountCard() = 0;
    virtual PaymentProcessingAnswer loyaltyCards(const QString &cardNumber) = 0;
    virtual bool checkOption(EPaymentProcessingOption::Option option) const = 0;
    virtual bool checkOption(processing::Option option) const = 0;
    virtual void setOption(EPaymentProcessingOption::Option option, bool on) = 0;
    virtual void setOption(processing::Option option, bool on) = 0;
    virtual void cancelCardRequest() = 0;
    virtual ScanQrParams getScanQrParams() const = 0;
    virtual bool testConnection() = 0;
    virtual PaymentProcessingAnswer demandPinCode() = 0;
    virtual PaymentProcessingAnswer demandQRCode(const PaymentProcessingRequest &request) = 0;
    virtual PaymentProcessingAnswer getPaymentByQRCodeStatus(const QString &id) = 0;
    virtual int getWaitPaymentByQRCodeDuration() const = 0;
    virtual int getWaitPaymentStatusDuration() const = 0;
    virtual int getStatusRequestsInterval() const = 0;
    virtual int getStatusRequestDelay() const = 0;
    virtual bool cancelPaymentByQRCodeInQueue(const PaymentProcessingRequest &request) const = 0;
    virtual PaymentProcessingAnswer paymentByQRCodeOnPinPad(const PaymentProcessingRequest &r) = 0;
    virtual PaymentProcessingAnswer cancelByQRCodeOnPinPad(const PaymentProcessingRequest &r) = 0;
    virtual PaymentProcessingAnswer paymentByBiometry(const PaymentProcessingRequest &r) = 0;
    virtual PaymentProcessingAnswer cancelByBiometry(const PaymentProcessingRequest &r) = 0;
    virtual PaymentProcessingAnswer
    paymentByElectronicCertificate(const PaymentProcessingRequest &r) = 0;
    virtual PaymentProcessingAnswer paymentWithCashAdvance(const PaymentProcessingRequest &r) = 0;
    virtual void setProcessingDirectory(const QString &directory) = 0;
    virtual bool interruptPayment() = 0;
    virtual QString getPar() = 0;
    virtual int getValutCodeForGetHashedCardNumber() const = 0;
    virtual QString getHashedCardNumber() = 0;
    virtual bool sendEnqueuedMessage(const QMap<QString, QVariant> &message) = 0;
    virtual bool useTerminal() const = 0;
    virtual double correctSum(double sum) const = 0;
    virtual bool confirmSumCorrectionParams(double oldSum, double newSum) const = 0;
    virtual void afterCard(const QSharedPointer<DocumentCardRecord> &card) const = 0;
    virtual QVariant getOptionParameter(EPaymentProcessingOption::Option option) const = 0;
    virtual PaymentProcessingContext getContext() const = 0;
};

#define AbstractPaymentProcessing_iid "ZelnorPaymentProcessing/1.0"
Q_DECLARE_INTERFACE(AbstractPaymentProcessing, AbstractPaymentProcessing_iid)
