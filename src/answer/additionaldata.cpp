#include "plugin/inpaspaymentprocessing.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::Literals::StringLiterals;

void InpasPaymentProcessing::addAdditionalData(PaymentProcessingAnswer &answer,
                                               const QString &paymentMethod) const
{
    if (paymentMethod.isEmpty())
        return;
    const QJsonObject data{{u"paymentMethod"_s, paymentMethod}};
    answer.additionalData = QString::fromUtf8(QJsonDocument(data).toJson(QJsonDocument::Compact));
}
