#include "logvalue.h"

#include "escape.h"
#include "outputmask.h"

LogValue::LogValue(ValueKind kind, QString value)
    : LogValue(Form::Value, kind, std::move(value))
{}

LogValue::LogValue(Form form, ValueKind kind, QString value, QMap<QString, QVariant> arguments)
    : m_form(form)
    , m_kind(kind)
    , m_value(std::move(value))
    , m_arguments(std::move(arguments))
{}

LogValue LogValue::clientOutput(QString output)
{
    return {Form::Output, ValueKind::ClientText, std::move(output)};
}

LogValue LogValue::arguments(int operationCode, QMap<QString, QVariant> arguments)
{
    return {Form::Arguments, ValueKind::Host, QString::number(operationCode), std::move(arguments)};
}

void LogValue::appendTo(QString &line) const
{
    const auto value = [&line](ValueKind kind, QStringView text) {
        const qsizetype from = line.size();
        line.append(text);
        OutputMask::maskTail(kind, line, from);
        Escape::escapeTail(line, from);
    };
    switch (m_form) {
    case Form::Value:
        value(m_kind, m_value);
        return;
    case Form::Output:
        // The host's runner may have cut it at its size limit, and nothing tells.
        OutputMask::appendMasked(line, m_value, CardMask::Ending::MayBeCut);
        return;
    case Form::Arguments:
        break;
    }
    line += m_value;
    for (auto it = m_arguments.cbegin(); it != m_arguments.cend(); ++it) {
        line += u' ';
        value(ValueKind::Host, it.key());
        if (it.value().isNull())
            continue;
        line += u' ';
        value(FieldKinds::ofOption(u16(it.key())), it.value().toString());
    }
}

QString LogValue::format(QStringView pattern, std::initializer_list<LogValue> values)
{
    QString line;
    line.reserve(pattern.size());
    qsizetype from = 0;
    for (qsizetype i = 0; i + 1 < pattern.size(); ++i) {
        const char16_t digit = pattern.at(i + 1).unicode();
        if (pattern.at(i) != u'%' || digit < u'1' || digit > u'9' ||
            qsizetype(digit - u'1') >= qsizetype(values.size()))
            continue;
        line.append(pattern.sliced(from, i - from));
        (values.begin() + (digit - u'1'))->appendTo(line);
        from = i + 2;
        ++i;
    }
    line.append(pattern.sliced(from));
    return line;
}
