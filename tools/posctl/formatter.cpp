#include "formatter.h"

#include "jsonwriter.h"
#include "output.h"

#include <cardmask.h>
#include <fieldkinds.h>
#include <outputmask.h>

#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QStringTokenizer>
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

// Numbers with the host's names for them, for people.
QString joined(const QJsonArray &array, const QHash<qint64, QString> &names)
{
    QStringList items;
    for (const QJsonValue &v : array) {
        const QString name = names.value(v.toInteger());
        items.append(QString::number(v.toInteger()) +
                     (name.isEmpty() ? QString() : u" ("_s + name + u')'));
    }
    return items.isEmpty() ? u"none"_s : items.join(u", "_s);
}

const QHash<qint64, QString> paymentOptionNames{
    {EPaymentProcessingOption::Refund, u"refund"_s},
    {EPaymentProcessingOption::Cancel, u"cancel"_s},
    {EPaymentProcessingOption::CustomerQrCode, u"customer QR code"_s},
    {EPaymentProcessingOption::PaymentByQrCodeOnPinPad, u"SBP payment on the PIN pad"_s},
    {EPaymentProcessingOption::CancelByQrCodeOnPinPad, u"SBP refund on the PIN pad"_s}};
const QHash<qint64, QString> processingOptionNames{
    {processing::AllowInterruptPayment, u"interruption allowed"_s},
    {processing::ScanTokenOnCancel, u"scan the customer's code on cancel"_s},
    {processing::ShowProgress, u"show progress"_s}};
const QHash<qint64, QString> requestTypeNames{{PaymentProcessingRequest::Sale, u"sale"_s},
                                              {PaymentProcessingRequest::Refund, u"refund"_s},
                                              {PaymentProcessingRequest::Return, u"return"_s}};

QString escaped(QChar c)
{
    switch (c.unicode()) {
    case 0:
        return u"\\0"_s;
    case '\r':
        return u"\\r"_s;
    case '\n':
        return u"\\n"_s;
    case '\t':
        return u"\\t"_s;
    case 0x1b:
        return u"\\e"_s;
    default:
        return c.unicode() < 0x100 ? u"\\x%1"_s.arg(uint(c.unicode()), 2, 16, QChar(u'0'))
                                   : u"\\u%1"_s.arg(uint(c.unicode()), 4, 16, QChar(u'0'));
    }
}

bool isControl(QChar c)
{
    return c.unicode() < 0x20 || (c.unicode() >= 0x7f && c.unicode() < 0xa0);
}

// The cashier's message for a person: the client's trailing line end dropped, and a message
// of many lines (a client's whole standard error) cut, saying how much was left out.
QString messageText(const tr::Tr &message)
{
    const QString whole = message.ru();
    QStringView text(whole);
    if (text.endsWith(u'\n'))
        text.chop(1);
    qsizetype end = 0;
    for (int line = 0; line < Formatter::messageLines && end < text.size(); ++line) {
        const qsizetype next = text.indexOf(u'\n', end);
        end = next < 0 ? text.size() : next + 1;
    }
    QStringView shown = text.left(end);
    if (shown.size() < text.size() && shown.endsWith(u'\n'))
        shown.chop(1);
    shown = shown.left(Formatter::messageCharacters);
    if (shown.size() == text.size())
        return Formatter::visible(text);
    return Formatter::visible(shown) +
           u"\n... (%1 more characters in %2 more lines not shown; --json shows all)"_s
               .arg(text.size() - shown.size())
               .arg(text.count(u'\n') - shown.count(u'\n'));
}

qsizetype visibleLength(QStringView text)
{
    qsizetype length = 0;
    for (const QChar c : text)
        length += isControl(c) && c != u'\t' ? escaped(c).size() : 1;
    return length;
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

void Formatter::writeAnswerJson(Output &out, const PaymentProcessingAnswer &answer)
{
    const auto key = [&](const char16_t *name) { out << QStringView(name); };
    key(u"{\"status\":");
    out << QString::number(answer.status);
    key(u",\"result\":");
    out << QString::number(answer.result);
    key(u",\"message\":{\"id\":");
    out.jsonString(answer.message.id());
    key(u",\"text\":");
    out.jsonString(answer.message.ru());
    key(u"},\"slips\":[");
    for (qsizetype i = 0; i < answer.slips.size(); ++i) {
        if (i > 0)
            out << u',';
        out.jsonString(answer.slips.at(i));
    }
    key(u"],\"cardType\":");
    out.jsonString(answer.cardType);
    key(u",\"pan\":");
    out.jsonString(answer.pan);
    key(u",\"authorizationCode\":");
    out.jsonString(answer.authorizationCode);
    key(u",\"referenceNumber\":");
    out.jsonString(answer.referenceNumber);
    key(u",\"accountBalance\":");
    out << JsonWriter::encode(answer.accountBalance);
    key(u",\"paymentMode\":");
    out << QString::number(answer.paymentMode);
    key(u",\"additionalData\":");
    out.jsonString(answer.additionalData);
    out << u'}';
}

void Formatter::writeFramed(Output &out, QStringView text)
{
    qsizetype width = 0;
    for (const QStringView line : QStringTokenizer(text, u'\n'))
        width = std::max(width, visibleLength(line));
    out << u"┌";
    out.repeat(u'─', width + 2);
    out << u"┐\n";
    for (const QStringView line : QStringTokenizer(text, u'\n')) {
        out << u"│ ";
        for (qsizetype from = 0; from < line.size();) {
            const qsizetype to = Output::pieceEnd(line, from);
            out << visible(line.sliced(from, to - from));
            from = to;
        }
        out.repeat(u' ', width - visibleLength(line));
        out << u" │\n";
    }
    out << u"└";
    out.repeat(u'─', width + 2);
    out << u"┘\n";
}

QString Formatter::visible(QStringView text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        if (isControl(c) && c != u'\n' && c != u'\t')
            out += escaped(c);
        else
            out += c;
    }
    return out;
}

QString Formatter::quoted(const QString &text, qsizetype limit, const CustomerCodeForms &code)
{
    QString shown = withoutCustomerCodes(text);
    code.maskTail(shown, 0);
    shown = CardMask::text(shown);
    QString out;
    for (const QChar c : QStringView(shown).left(limit))
        out += isControl(c) ? escaped(c) : QString(c);
    return u'"' + out + u'"' + (shown.size() > limit ? u"..."_s : QString());
}

QString Formatter::withoutCustomerCodes(const QString &text)
{
    QString out;
    qsizetype from = 0;
    bool valueOfOption = false;
    for (qsizetype i = 0; i < text.size();) {
        if (text.at(i).isSpace()) {
            ++i;
            continue;
        }
        // One word as a batch line has it: double quotes group, and may run to the end.
        const qsizetype start = i;
        QString word;
        for (bool inQuotes = false; i < text.size() && (inQuotes || !text.at(i).isSpace()); ++i) {
            if (text.at(i) == u'"')
                inQuotes = !inQuotes;
            else
                word += text.at(i);
        }
        static const QString option = u"--customer-qr"_s;
        qsizetype code = -1;
        if (valueOfOption || FieldKinds::isCustomerQr(u16(word)))
            code = start;
        else if (word.startsWith(option + u'='))
            code = start + option.size() + 1;
        valueOfOption = word == option;
        if (code < 0)
            continue;
        out += QStringView(text).sliced(from, code - from);
        out +=
            u"<QR %1 bytes>"_s.arg(code == start ? word.size() : word.size() - option.size() - 1);
        from = i;
    }
    return out + QStringView(text).sliced(from);
}

QString Formatter::gist(const PaymentProcessingAnswer &answer, const CustomerCodeForms &code)
{
    return u"result %1 (%2), status %3, message %4, reference number %5, authorization code %6"_s
        .arg(QString::number(answer.result), resultName(answer.result),
             QString::number(answer.status), quoted(answer.message.ru(), 200, code),
             quoted(answer.referenceNumber, 80, code), quoted(answer.authorizationCode, 80, code));
}

QString Formatter::money(qint64 amount)
{
    const QString sign = amount < 0 ? u"-"_s : QString();
    const quint64 magnitude = amount < 0 ? quint64(0) - quint64(amount) : quint64(amount);
    return sign + QString::number(magnitude / 100) + u'.' +
           QString::number(magnitude % 100).rightJustified(2, u'0');
}

void Formatter::writeAnswerText(Output &out, const PaymentProcessingAnswer &answer,
                                const AnswerContext &context)
{
    const auto field = [](const QString &label, const QString &value) {
        return u"  %1 %2\n"_s.arg(QString(label + u':').leftJustified(30), visible(value));
    };
    out << (answer.message.isEmpty() ? u"(no message)"_s : messageText(answer.message)) << u'\n';
    if (!context.clientNote.isEmpty())
        out << QString(u"  ("_s + context.clientNote + u")\n"_s);
    out << u"  status %1, result %2 (%3)\n"_s.arg(
        QString::number(answer.status), QString::number(answer.result), resultName(answer.result));
    if (context.amount)
        out << field(u"amount"_s,
                     u"%1 (%2 in minor units)"_s.arg(money(*context.amount)).arg(*context.amount));
    if (!answer.cardType.isEmpty() || !answer.pan.isEmpty())
        out << field(u"card"_s, QString(answer.cardType + u' ' + answer.pan).trimmed());
    // An approved SBP payment carries its form identifier as the authorisation code, and after
    // status queries the terminal's authorisation code as the reference number.
    const bool sbpCodes = context.sbpPayment && answer.result == PaymentProcessingAnswer::Success;
    if (!answer.authorizationCode.isEmpty())
        out << field(sbpCodes ? u"form identifier"_s : u"authorization code"_s,
                     answer.authorizationCode);
    if (!answer.referenceNumber.isEmpty())
        out << field(sbpCodes && context.clientRuns > 1 ? u"terminal's authorization code"_s
                                                        : u"reference number"_s,
                     answer.referenceNumber);
    if (answer.accountBalance != 0.0)
        out << field(u"account balance"_s, QString::number(answer.accountBalance, 'f', 2));
    if (answer.paymentMode != 0)
        out << field(u"payment mode"_s, QString::number(answer.paymentMode));
    for (qsizetype i = 0; i < answer.slips.size(); ++i) {
        out << u"\nslip %1 of %2\n"_s.arg(i + 1).arg(answer.slips.size());
        writeFramed(out, answer.slips.at(i));
    }
    if (!answer.additionalData.isEmpty())
        out << u"\nadditional data: %1\n"_s.arg(visible(answer.additionalData));
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
           u"cancellable types:  %4\n"_s.arg(joined(lists.payment, paymentOptionNames),
                                             joined(lists.processing, processingOptionNames),
                                             joined(lists.paymentEnable, requestTypeNames),
                                             joined(lists.cancelEnable, requestTypeNames));
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
