#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

// The payment client's command line: an operation code, then options each followed by one
// argument, which may be empty.
struct EmulatorCommand
{
    int code = 0; // operationcodes::Code
    QMap<QString, QString> options;

    QString option(const QString &name) const { return options.value(name); }
    bool has(const QString &name) const { return options.contains(name); }

    // On failure returns false and, in error, the line for stderr (in Russian, as the real
    // client writes it).
    static bool parse(const QStringList &arguments, EmulatorCommand &command, QString &error);
};
