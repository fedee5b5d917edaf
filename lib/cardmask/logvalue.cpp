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

LogValue LogValue::clientOutput(QString output, CardMask::Ending ending)
{
    LogValue value(Form::Output, ValueKind::Unknown, std::move(output));
    value.m_ending = ending;
    return value;
}

LogValue LogValue::arguments(int operationCode, QMap<QString, QVariant> arguments)
{
    return {Form::Arguments, ValueKind::Host, QString::number(operationCode), std::move(arguments)};
}

void LogValue::appendTo(QString &line, const CustomerCodeForms &code) const
{
    const auto value = [&line, &code](ValueKind kind, QStringView text) {
        const qsizetype from = line.size();
        line.append(text);
        OutputMask::maskTail(kind, line, from, CardMask::Ending::Whole, code);
        Escape::escapeTail(line, from);
    };
    switch (m_form) {
    case Form::Value:
        value(m_kind, m_value);
        return;
    case Form::Output:
        OutputMask::appendMasked(line, m_value, m_ending, code);
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
        value(ValueKind::Host, QString::fromStdString(FieldKinds::shownValue(
                                   it.key().toStdString(), it.value().toString().toStdString())));
    }
}

QString LogValue::format(QStringView pattern, std::initializer_list<LogValue> values,
                         const CustomerCodeForms &code)
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
        (values.begin() + (digit - u'1'))->appendTo(line, code);
        from = i + 2;
        ++i;
    }
    line.append(pattern.sliced(from));
    return line;
}
