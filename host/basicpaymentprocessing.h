#pragma once

#include "abstractpaymentprocessing.h"
#include "zelnorhost_global.h"

#include <QSet>

#include <chrono>
#include <optional>

// The host's base for processors: plain answers for every operation, the option storage and
// the pacing clock. A processor overrides what its device can do.
class ZELNORHOST_EXPORT BasicPaymentProcessing : public AbstractPaymentProcessing
{
public:
    BasicPaymentProcessing();
    ~BasicPaymentProcessing() override;

    void init(const PaymentProcessingContext &context) override;
    bool isPaymentEnable(PaymentProcessingRequest::Type type) const override;
    bool isPaymentEnable(const QSharedPointer<AbstractDocument> &document) const override;
    bool isCancelEnable(PaymentProcessingRequest::Type type) const override;
    bool isUsePaymentAsDiscount() const override;
    PaymentProcessingAnswer payment(const PaymentProcessingRequest &request) override;
    PaymentProcessingAnswer change(const PaymentProcessingRequest &request) override;
    PaymentProcessingAnswer cancel(const PaymentProcessingRequest &request) override;
    PaymentProcessingAnswer checkTotals(int mode) override;
    PaymentProcessingAnswer checkTotalsByMerchantId(const QString &merchantId) override;
    PaymentProcessingAnswer printCopy(int number) override;
    PaymentProcessingAnswer printReport() override;
    PaymentProcessingAnswer printReportByMerchantId(const QString &merchantId) override;
    PaymentProcessingAnswer printShortReport() override;
    PaymentProcessingAnswer balance(const QString &account) override;
    PaymentProcessingAnswer discountCard() override;
    PaymentProcessingAnswer loyaltyCards(const QString &cardNumber) override;
    bool checkOption(EPaymentProcessingOption::Option option) const override;
    bool checkOption(processing::Option option) const override;
    void setOption(EPaymentProcessingOption::Option option, bool on) override;
    void setOption(processing::Option option, bool on) override;
    void cancelCardRequest() override;
    ScanQrParams getScanQrParams() const override;
    bool testConnection() override;
    PaymentProcessingAnswer demandPinCode() override;
    PaymentProcessingAnswer demandQRCode(const PaymentProcessingRequest &request) override;
    PaymentProcessingAnswer getPaymentByQRCodeStatus(const QString &id) override;
    int getWaitPaymentByQRCodeDuration() const override;
    int getWaitPaymentStatusDuration() const override;
    int getStatusRequestsInterval() const override;
    int getStatusRequestDelay() const override;
    bool cancelPaymentByQRCodeInQueue(const PaymentProcessingRequest &request) const override;
    PaymentProcessingAnswer paymentByQRCodeOnPinPad(const PaymentProcessingRequest &r) override;
    PaymentProcessingAnswer cancelByQRCodeOnPinPad(const PaymentProcessingRequest &r) override;
    PaymentProcessingAnswer paymentByBiometry(const PaymentProcessingRequest &r) override;
    PaymentProcessingAnswer cancelByBiometry(const PaymentProcessingRequest &r) override;
    PaymentProcessingAnswer
    paymentByElectronicCertificate(const PaymentProcessingRequest &r) override;
    PaymentProcessingAnswer paymentWithCashAdvance(const PaymentProcessingRequest &r) override;
    void setProcessingDirectory(const QString &directory) override;
    bool interruptPayment() override;
    QString getPar() override;
    int getValutCodeForGetHashedCardNumber() const override;
    QString getHashedCardNumber() override;
    bool sendEnqueuedMessage(const QMap<QString, QVariant> &message) override;
    bool useTerminal() const override;
    double correctSum(double sum) const override;
    bool confirmSumCorrectionParams(double oldSum, double newSum) const override;
    void afterCard(const QSharedPointer<DocumentCardRecord> &card) const override;
    QVariant getOptionParameter(EPaymentProcessingOption::Option option) const override;
    PaymentProcessingContext getContext() const override;

    QString getProcessingDirectory() const { return processingDirectory; }

protected:
    // Blocks until at least intervalSeconds have passed since the last setLastOperationTime().
    // Returns at once when no time has been recorded yet or the interval is not positive.
    void waitBeforeNextOperation(int intervalSeconds) const;
    // Records now as the time of the last operation.
    void setLastOperationTime();

    QString processingDirectory;

private:
    static PaymentProcessingAnswer notSupported();

    quint32 m_paymentOptions = 0;
    QSet<qint32> m_processingOptions;
    PaymentProcessingContext m_context;
    std::optional<std::chrono::steady_clock::time_point> m_lastOperationTime;
};
