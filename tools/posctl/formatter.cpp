#include "formatter.h"

#include "jsonwriter.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QtEndian>

using namespace Qt::Literals::StringLiterals;

namespace {

QString trJsonText(const tr::Tr &message)
{
    return JsonWriter().add(u"id"_s, message.id()).add(u"text"_s, message.ru()).toString();
}

struct OptionLists
{
    QJsonArray payment, processing, paymentEnable, cancelEnable;
};

OptionLists optionLists(const AbstractPaymentProcessing &processor)
{
    OptionLists lists;
    for (int bit = 0; bit <= 30; ++bit) {
        const auto option = static_cast<EPaymentProcessingOption::Option>(1u << bit);
        if (processor.checkOption(option))
            lists.payment.append(qint64(1) << bit);
    }
    for (int value = 0; value <= 31; ++value)
        if (processor.checkOption(static_cast<processing::Option>(value)))
            lists.processing.append(value);
    for (int type = -1; type <= 16; ++type) {
        const auto t = static_cast<PaymentProcessingRequest::Type>(type);
        if (processor.isPaymentEnable(t))
            lists.paymentEnable.append(type);
        if (processor.isCancelEnable(t))
            lists.cancelEnable.append(type);
    }
    return lists;
}

QString joined(const QJsonArray &array)
{
    QStringList items;
    for (const QJsonValue &v : array)
        items.append(QString::number(v.toInteger()));
    return items.isEmpty() ? u"none"_s : items.join(u", "_s);
}

struct ImageInfo
{
    bool readable = false;
    quint32 width = 0;
    quint32 height = 0;
};

// Reads the size from the PNG header, which is all posctl needs to know of the picture.
ImageInfo pngInfo(const QString &path)
{
    ImageInfo info;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return info;
    const QByteArray head = file.read(24);
    if (head.size() < 24 || !head.startsWith("\x89PNG\r\n\x1a\n") || head.mid(12, 4) != "IHDR")
        return info;
    info.readable = true;
    info.width = qFromBigEndian<quint32>(head.constData() + 16);
    info.height = qFromBigEndian<quint32>(head.constData() + 20);
    return info;
}

QString resultName(int result)
{
    switch (result) {
    case PaymentProcessingAnswer::Success:
        return u"success"_s;
    case PaymentProcessingAnswer::NotEnoughBalance:
        return u"not enough balance"_s;
    default:
        return u"failure"_s;
    }
}

} // namespace

QString Formatter::answerJson(const PaymentProcessingAnswer &answer)
{
    return JsonWriter()
        .add(u"status"_s, answer.status)
        .add(u"result"_s, answer.result)
        .addRaw(u"message"_s, trJsonText(answer.message))
        .add(u"slips"_s, QJsonArray::fromStringList(answer.slips))
        .add(u"cardType"_s, answer.cardType)
        .add(u"pan"_s, answer.pan)
        .add(u"authorizationCode"_s, answer.authorizationCode)
        .add(u"referenceNumber"_s, answer.referenceNumber)
        .add(u"accountBalance"_s, answer.accountBalance)
        .add(u"paymentMode"_s, answer.paymentMode)
        .add(u"additionalData"_s, answer.additionalData)
        .toString();
}

QString Formatter::framed(const QString &text)
{
    const QStringList lines = text.split(u'\n');
    qsizetype width = 0;
    for (const QString &line : lines)
        width = std::max(width, line.size());
    QString out = u"┌"_s + QString(width + 2, u'─') + u"┐\n"_s;
    for (const QString &line : lines)
        out += u"│ "_s + line.leftJustified(width) + u" │\n"_s;
    out += u"└"_s + QString(width + 2, u'─') + u"┘\n"_s;
    return out;
}

QString Formatter::answerText(const PaymentProcessingAnswer &answer)
{
    QString out;
    out += (answer.message.isEmpty() ? u"(no message)"_s : answer.message.ru()) + u'\n';
    out += u"  status %1, result %2 (%3)\n"_s.arg(
        QString::number(answer.status), QString::number(answer.result), resultName(answer.result));
    if (!answer.cardType.isEmpty() || !answer.pan.isEmpty())
        out += u"  card:               %1\n"_s.arg(
            QString(answer.cardType + u' ' + answer.pan).trimmed());
    if (!answer.authorizationCode.isEmpty())
        out += u"  authorization code: %1\n"_s.arg(answer.authorizationCode);
    if (!answer.referenceNumber.isEmpty())
        out += u"  reference number:   %1\n"_s.arg(answer.referenceNumber);
    if (answer.accountBalance != 0.0)
        out += u"  account balance:    %1\n"_s.arg(answer.accountBalance, 0, 'f', 2);
    if (answer.paymentMode != 0)
        out += u"  payment mode:       %1\n"_s.arg(answer.paymentMode);
    for (qsizetype i = 0; i < answer.slips.size(); ++i)
        out +=
            u"\nslip %1 of %2\n"_s.arg(i + 1).arg(answer.slips.size()) + framed(answer.slips.at(i));
    if (!answer.additionalData.isEmpty())
        out += u"\nadditional data: %1\n"_s.arg(answer.additionalData);
    return out;
}

QString Formatter::optionsJson(const AbstractPaymentProcessing &processor)
{
    const OptionLists lists = optionLists(processor);
    return JsonWriter()
        .add(u"payment"_s, lists.payment)
        .add(u"processing"_s, lists.processing)
        .add(u"paymentEnable"_s, lists.paymentEnable)
        .add(u"cancelEnable"_s, lists.cancelEnable)
        .toString();
}

QString Formatter::optionsText(const AbstractPaymentProcessing &processor)
{
    const OptionLists lists = optionLists(processor);
    return u"payment options:    %1\n"
           u"processing options: %2\n"
           u"payment types:      %3\n"
           u"cancellable types:  %4\n"_s.arg(joined(lists.payment), joined(lists.processing),
                                             joined(lists.paymentEnable),
                                             joined(lists.cancelEnable));
}

QString Formatter::scanParamsJson(const ScanQrParams &p)
{
    QJsonArray patterns;
    for (const QRegularExpression &pattern : p.patterns)
        patterns.append(pattern.pattern());
    QJsonObject replacements;
    for (auto it = p.replacements.cbegin(); it != p.replacements.cend(); ++it)
        replacements.insert(it.key(), it.value());
    const ImageInfo image = pngInfo(p.imagePath);
    const QString imageJson = JsonWriter()
                                  .add(u"readable"_s, image.readable)
                                  .add(u"width"_s, qint64(image.width))
                                  .add(u"height"_s, qint64(image.height))
                                  .toString();
    return JsonWriter()
        .add(u"manualInput"_s, p.manualInput)
        .add(u"hideInput"_s, p.hideInput)
        .addRaw(u"title"_s, trJsonText(p.title))
        .addRaw(u"message"_s, trJsonText(p.message))
        .addRaw(u"errorMessage"_s, trJsonText(p.errorMessage))
        .add(u"patterns"_s, patterns)
        .add(u"imagePath"_s, p.imagePath)
        .addRaw(u"image"_s, imageJson)
        .add(u"showOkButton"_s, p.showOkButton)
        .addRaw(u"okButton"_s, trJsonText(p.okButton))
        .addRaw(u"cancelButtonText"_s, trJsonText(p.cancelButtonText))
        .add(u"repeatOnError"_s, p.repeatOnError)
        .add(u"maxAttempts"_s, p.maxAttempts)
        .add(u"timeoutSeconds"_s, p.timeoutSeconds)
        .add(u"replacements"_s, replacements)
        .add(u"modal"_s, p.modal)
        .add(u"fullScreen"_s, p.fullScreen)
        .add(u"styleSheet"_s, p.styleSheet)
        .add(u"showCancelButton"_s, p.showCancelButton)
        .addRaw(u"hint"_s, trJsonText(p.hint))
        .toString();
}

QString Formatter::scanParamsText(const ScanQrParams &p)
{
    QStringList patterns;
    for (const QRegularExpression &pattern : p.patterns)
        patterns.append(pattern.pattern());
    const ImageInfo image = pngInfo(p.imagePath);
    const QString picture =
        image.readable ? u"%1 (%2 x %3)"_s.arg(p.imagePath).arg(image.width).arg(image.height)
                       : u"%1 (cannot be read)"_s.arg(p.imagePath);
    return u"title:    %1\nmessage:  %2\nerror:    %3\npatterns: %4\npicture:  %5\n"
           u"buttons:  %6 / %7\nstyle:    %8\n"_s.arg(
               p.title.ru(), p.message.ru(), QString(p.errorMessage.ru()).replace(u'\n', u" / "_s),
               patterns.join(u", "_s), picture, p.okButton.ru(), p.cancelButtonText.ru(),
               p.styleSheet);
}
