#pragma once

#include "tr.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QVariant>

// The host's answer record. A fresh record is a failure (result 1) with no message.
struct PaymentProcessingAnswer
{
    enum Result : qint32 {
        Success = 0,
        Failure = 1,
        NotEnoughBalance = 3,
    };

    qint32 status = 0;
    qint32 result = Failure;
    tr::Tr message;
    QList<QString> slips;
    qint32 slipCopies = 0;
    QString cardType;
    QString pan;
    QString authorizationCode;
    QString referenceNumber;
    double amount = 0.0;
    QString terminalId;
    double accountBalance = 0.0;
    QString cardHash;
    QList<QString> loyaltyCards;
    QString bankName;
    qint32 cardEntryMode = 0;
    QString transactionDate;
    qint32 paymentMode = 0;
    QMap<QString, QVariant> extra;
    QString par;
    QString additionalData;
    QString receiptText;
};
