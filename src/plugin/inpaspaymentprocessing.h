#pragma once

#include "client/clientinterruption.h"
#include "config/inpassettings.h"
#include "plugin/maskinglogger.h"

#include <basicpaymentprocessing.h>

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QString>
#include <QVariant>

#include <chrono>

// The Inpas processor: every payment and service operation runs the vendor's payment client
// "./zelnorinpas" in the processing directory and turns its JSON answer into the host's answer.
// Operations block the calling thread until the client has finished; interruptPayment() may be
// called from another thread meanwhile.
//
// Where each method lives (src/):
//   plugin/inpaspaymentprocessing.cpp   constructor, isPaymentEnable, isCancelEnable,
//                                       interruptPayment
//   config/processingdirectory.cpp      setProcessingDirectory (settings, options)
//   operations/cardoperations.cpp       payment, cancel
//   operations/serviceoperations.cpp    checkTotals[ByMerchantId], printReport[ByMerchantId],
//                                       printShortReport, printCopy, balance
//   sbp/sbppayment.cpp                  paymentByQRCodeOnPinPad, its status queries, formId
//   sbp/sbprefund.cpp                   cancelByQRCodeOnPinPad, its status queries
//   sbp/customerqr.cpp, scanqrparams.cpp customerQr, generateQrData; getScanQrParams
//   client/arguments.cpp                getArguments
//   client/operationpacing.cpp          waitAndExecuteOperation (pause, retries, exceptions)
//   client/executecommand.cpp           executeCommand (the client run)
//   answer/processanswer.cpp            processAnswer; answer/additionaldata.cpp addAdditionalData
class InpasPaymentProcessing : public QObject, public BasicPaymentProcessing
{
    Q_OBJECT
    Q_INTERFACES(AbstractPaymentProcessing)

public:
    using Arguments = QMap<QString, QVariant>;

    static const QString defaultProcessingDirectory;
    static constexpr std::chrono::seconds clientTimeout{300};

    explicit InpasPaymentProcessing(QObject *parent = nullptr);
    ~InpasPaymentProcessing() override;

    // Payment types 1 (sale), 2 and 3 (refunds); only a sale can be cancelled.
    bool isPaymentEnable(PaymentProcessingRequest::Type type) const override;
    using BasicPaymentProcessing::isPaymentEnable;
    bool isCancelEnable(PaymentProcessingRequest::Type type) const override;

    PaymentProcessingAnswer payment(const PaymentProcessingRequest &request) override;
    PaymentProcessingAnswer cancel(const PaymentProcessingRequest &request) override;
    PaymentProcessingAnswer checkTotals(int mode) override;
    PaymentProcessingAnswer checkTotalsByMerchantId(const QString &merchantId) override;
    PaymentProcessingAnswer printCopy(int number) override;
    PaymentProcessingAnswer printReport() override;
    PaymentProcessingAnswer printReportByMerchantId(const QString &merchantId) override;
    PaymentProcessingAnswer printShortReport() override;
    PaymentProcessingAnswer balance(const QString &account) override;
    ScanQrParams getScanQrParams() const override;
    PaymentProcessingAnswer
    paymentByQRCodeOnPinPad(const PaymentProcessingRequest &request) override;
    PaymentProcessingAnswer
    cancelByQRCodeOnPinPad(const PaymentProcessingRequest &request) override;

    // Points the processor at a client directory (empty: the default one) and reads the
    // settings of its zelnorinpas.conf on top of what earlier calls read.
    void setProcessingDirectory(const QString &directory) override;

    // Sends SIGINT to the client that is running now; while the operation has no client
    // running, keeps the interrupt for its next client (see ClientInterruption). Returns true.
    bool interruptPayment() override;

    // The standard argument map of a card operation; "-d" only with a customer code.
    Arguments getArguments(const PaymentProcessingRequest &request,
                           const QString &customerQrCode) const;
    // One run of the client: its standard output, or a BasicException with the cashier's
    // message when the run failed or the client exited with a non-zero status.
    QByteArray executeCommand(int operationCode, const Arguments &arguments,
                              std::chrono::seconds timeout);
    // The pause, the run, the answer and the stamp; failures come back as answers.
    PaymentProcessingAnswer waitAndExecuteOperation(int operationCode, const Arguments &arguments,
                                                    bool *retry);
    // The host's answer for the client's output; with retry, whether to ask again.
    PaymentProcessingAnswer processAnswer(const QByteArray &output, bool *retry) const;
    void addAdditionalData(PaymentProcessingAnswer &answer, const QString &paymentMethod) const;
    // The scanned customer code when the request's currency passes one on, else null.
    QString customerQr(const PaymentProcessingRequest &request) const;
    // The customer code wrapped for the client: tag D1 inside tag F6.
    QByteArray generateQrData(const QByteArray &code) const;
    // The SBP form identifier: text(2) number(4) sequence(7) ddMMyyhhmmss, zero-filled.
    QString formId(const PaymentProcessingRequest &request) const;
    PaymentProcessingAnswer
    getPaymentByQRCodeOnPinPadStatus(const PaymentProcessingRequest &request);
    PaymentProcessingAnswer
    getCancelByQRCodeOnPinPadStatus(const PaymentProcessingRequest &request);

    const InpasSettings &currentSettings() const { return settings; }

private:
    // The running client's process id and an interrupt kept for the operation's next client.
    ClientInterruption interruption;
    MaskingLogger logger;
    InpasSettings settings;
};
