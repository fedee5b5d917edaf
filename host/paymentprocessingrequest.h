#pragma once

#include <QDateTime>
#include <QMap>
#include <QString>
#include <QVariant>

// The host's request record. The fields that payment plug-ins do not read are kept only so
// that the record has the host's shape; they are copied along with the rest.
struct PaymentProcessingRequest
{
    enum Type : qint32 {
        Undefined = 0,
        Sale = 1,
        Refund = 2,
        Return = 3,
    };

    Type type = Undefined;
    qint64 amount = 0;
    qint64 discountAmount = 0;
    qint32 documentNumber = 0;
    QString merchantId;
    QString authorizationCode;
    QString referenceNumber;
    QString customerQrCode;
    QString cardNumber;
    bool manualInput = false;
    QString formIdText;
    qint32 formIdNumber = 0;
    qint32 formIdSequence = 0;
    QDateTime formIdTime;
    QMap<QString, QVariant> extra;
    qint32 cashierCode = 0;
    qint32 currencyCode = 0;
    QString documentId;
    QString terminalId;
    bool fiscal = false;
    QString cardHash;
    QString loyaltyId;
    qint32 flags = 0;
};
