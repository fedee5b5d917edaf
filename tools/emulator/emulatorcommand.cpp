#include "emulatorcommand.h"

#include <operationcodes.h>

#include <QHash>
#include <QSet>

using namespace Qt::Literals::StringLiterals;

bool EmulatorCommand::parse(const QStringList &arguments, EmulatorCommand &command, QString &error)
{
    static const QSet<QString> names{u"-a"_s, u"-c"_s, u"-d"_s, u"-e"_s,
                                     u"-f"_s, u"-o"_s, u"-r"_s, u"-t"_s};
    if (arguments.isEmpty()) {
        error = u"Не задан код операции"_s;
        return false;
    }
    bool ok = false;
    command.code = arguments.first().toInt(&ok, 10);
    if (!ok || !operationcodes::find(command.code, {})) {
        error = u"Неизвестный код операции: %1"_s.arg(arguments.first());
        return false;
    }
    for (qsizetype i = 1; i < arguments.size(); i += 2) {
        const QString &name = arguments.at(i);
        if (!names.contains(name)) {
            error = u"Неизвестный параметр: %1"_s.arg(name);
            return false;
        }
        if (i + 1 >= arguments.size()) {
            error = u"Не задано значение параметра %1"_s.arg(name);
            return false;
        }
        command.options.insert(name, arguments.at(i + 1));
    }
    if (command.has(u"-f"_s)) {
        const QString function = command.option(u"-f"_s);
        if (!operationcodes::find(command.code, function.toStdString())) {
            error = u"Неизвестная функция СБП для операции %1: '%2'"_s.arg(
                QString::number(command.code), function);
            return false;
        }
    }
    const bool needsAmount =
        operationcodes::find(command.code, command.option(u"-f"_s).toStdString())->takesAmount;
    if (needsAmount) {
        const QString amount = command.option(u"-a"_s);
        amount.toLongLong(&ok, 10);
        if (!ok) {
            error = u"Неверная сумма операции: '%1'"_s.arg(amount);
            return false;
        }
    }
    return true;
}
