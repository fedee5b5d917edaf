#pragma once

#include "cardmask.h"
#include "customercodeforms.h"
#include "fieldkinds.h"

#include <QMap>
#include <QString>
#include <QStringView>
#include <QVariant>

#include <initializer_list>

// A value to be written into a log line, with what it is. What it is decides what the line
// shows of it (FieldKinds); every value is then written escaped (Escape), so that none can
// start a line of its own. The work is done only when the line is formatted, so a line of a
// level that is off costs nothing but the shallow copies.
class LogValue
{
public:
    LogValue(ValueKind kind, QString value);
    static LogValue host(QString value) { return {ValueKind::Host, std::move(value)}; }
    static LogValue host(qint64 value) { return {ValueKind::Host, QString::number(value)}; }
    // The client's whole standard output (OutputMask); ending tells whether the host's runner
    // may have cut it at its size limit.
    static LogValue clientOutput(QString output, CardMask::Ending ending);
    // A command line of the client: the operation code and each option, its value shown by
    // the option's kind (the customer's QR code by its length, found by its option).
    static LogValue arguments(int operationCode, QMap<QString, QVariant> arguments);

    // The value as the line shows it, written at the end of the line; the customer's code, when
    // one was sent, found by its value too.
    void appendTo(QString &line, const CustomerCodeForms &code = {}) const;

    // The pattern, a text of ours, with %1 to %9 replaced by the values as logged.
    static QString format(QStringView pattern, std::initializer_list<LogValue> values,
                          const CustomerCodeForms &code = {});

private:
    enum class Form { Value, Output, Arguments };
    LogValue(Form form, ValueKind kind, QString value, QMap<QString, QVariant> arguments = {});

    Form m_form;
    ValueKind m_kind;
    CardMask::Ending m_ending = CardMask::Ending::Whole;
    QString m_value;
    QMap<QString, QVariant> m_arguments;
};
