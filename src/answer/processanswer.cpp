#include "answer/receiptrecord.h"
#include "plugin/inpaspaymentprocessing.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace {

// The cashier's message for a failed status when the client sent no text of its own.
tr::Tr statusMessage(int status)
{
    switch (status) {
    case 0:
        return tr::Tr(u"inpasPaymentProcessingTransactionError"_s, u"Транзакция не выполнена"_s);
    case 16:
        return tr::Tr(u"inpasPaymentProcessingRejectedError"_s, u"Отказ"_s);
    case 34:
        return tr::Tr(u"inpasPaymentProcessingNoConnectionError"_s, u"Нет соединения"_s);
    case 53:
        return tr::Tr(u"inpasPaymentProcessingInterruptedError"_s, u"Операция прервана"_s);
    default:
        return tr::Tr(u"inpasPaymentProcessingUndefinedError"_s, u"Неопределенная ошибка"_s);
    }
}

// Whole numbers that fit 32 bits; anything else, strings included, reads as 0.
qint32 intField(const QJsonObject &object, QLatin1StringView key)
{
    return object.value(key).toInt(0);
}

QString textField(const QJsonObject &object, QLatin1StringView key)
{
    return object.value(key).toString();
}

} // namespace

PaymentProcessingAnswer InpasPaymentProcessing::processAnswer(const QByteArray &output,
                                                              bool *retry) const
{
    PaymentProcessingAnswer answer;
    qint32 hostCode = 0;
    QString textResponse;
    std::optional<QString> receiptData;
    {
        // The document lives only while the fields are read: on a large answer it is the
        // largest thing here, and the receipt is scanned after it is gone.
        const QJsonDocument document = QJsonDocument::fromJson(output);
        const QJsonObject object = document.isObject() ? document.object() : QJsonObject();

        const qint32 status = intField(object, "Status"_L1);
        answer.result =
            status == 1 ? PaymentProcessingAnswer::Success : PaymentProcessingAnswer::Failure;

        hostCode = intField(object, "ResponseCodeHost"_L1);
        if (hostCode == settings.notEnoughtBalanceCode)
            answer.result = PaymentProcessingAnswer::NotEnoughBalance;

        answer.authorizationCode = textField(object, "AuthorizationCode"_L1);
        answer.referenceNumber = textField(object, "ReferenceNumber"_L1);
        answer.status = status;
        textResponse = textField(object, "TextResponse"_L1);
        answer.message = tr::Tr(tr::undefined, textResponse);
        answer.cardType = textField(object, "CardType"_L1);
        answer.pan = textField(object, "PAN"_L1);
        answer.accountBalance = object.value("balance"_L1).toDouble(0.0);
        if (object.contains("ReceiptData"_L1))
            receiptData = textField(object, "ReceiptData"_L1);
    }

    if (answer.result == PaymentProcessingAnswer::Failure && answer.message.isEmpty())
        answer.message = statusMessage(answer.status);

    const auto client = [](const QString &text) { return LogValue(ValueKind::ClientText, text); };
    logger.info(u"Операция выполнена. Статус='%1', Сообщение='%2', Тип карты='%3', "
                u"Номер карты='%4' ID операции='%5', Код авторизации='%6', Код ответа='%7'",
                {LogValue::host(answer.status), client(answer.message.ru()),
                 client(answer.cardType), LogValue(ValueKind::Pan, answer.pan),
                 client(answer.referenceNumber), client(answer.authorizationCode),
                 LogValue::host(hostCode)});

    if (receiptData) {
        QString receipt = std::move(*receiptData);
        logger.debug(u"Слипы: %1", {client(receipt)});
        if (!receipt.endsWith(u'~')) {
            receipt.append(u'~');
            logger.warn(u"Нет завершающего символа '~'! Добавление '~' в конце поля.");
        }
        QList<QString> slips;
        for (const ReceiptRecord &record : scanReceiptRecords(receipt)) {
            if (record.tag == "0xDF"_L1 || record.tag == "0xDA"_L1) {
                slips.append(record.text);
                logger.info(u"Получен слип: '%1'", {client(record.text)});
            } else if (record.tag == "0xDE"_L1 && answer.cardType.isEmpty()) {
                answer.cardType = record.text;
            }
        }
        answer.slips = slips;
    }

    // An approval counts only with one of the configured texts, when any are configured.
    if (answer.result == PaymentProcessingAnswer::Success) {
        const QString text = textResponse.trimmed().toUpper();
        if (!text.isEmpty() && !settings.successTextResponses.isEmpty() &&
            !settings.successTextResponses.contains(text))
            answer.result = PaymentProcessingAnswer::Failure;
    }

    if (!retry)
        return answer;
    *retry = answer.status == 0;
    if (answer.status == 0 && !settings.hostCodesResponseToRetry.isEmpty())
        *retry = settings.hostCodesResponseToRetry.contains(QString::number(hostCode));
    return answer;
}
