#include "commandline.h"

#include "commandtable.h"
#include "formatter.h"

using namespace Qt::Literals::StringLiterals;

namespace {

bool toInt(const QString &text, int &value)
{
    bool ok = false;
    value = text.toInt(&ok, 10);
    return ok;
}

bool looksNegative(const QString &word)
{
    return word.size() > 1 && word.at(0) == u'-' && word.at(1).isDigit();
}

// Why a text is not an amount, or an empty text when it is one.
QString amountError(const QString &text, qint64 &amount)
{
    bool ok = false;
    amount = text.toLongLong(&ok, 10);
    if (ok)
        return {};
    const QString digits = text.startsWith(u'-') ? text.mid(1) : text;
    bool allDigits = !digits.isEmpty();
    for (const QChar c : digits)
        allDigits = allDigits && c >= u'0' && c <= u'9';
    if (allDigits)
        return u"the amount %1 does not fit in 64 bits (at most 9223372036854775807 minor "
               u"units)"_s.arg(Formatter::quoted(text));
    return u"the amount must be a whole number of minor units (150000 is 1500.00), not %1"_s.arg(
        Formatter::quoted(text));
}

} // namespace

std::optional<QStringList> CommandLine::splitWords(const QString &line)
{
    QStringList words;
    QString word;
    bool inWord = false;
    bool quoted = false;
    for (const QChar c : line) {
        if (quoted) {
            if (c == u'"')
                quoted = false;
            else
                word.append(c);
        } else if (c == u'"') {
            quoted = true;
            inWord = true;
        } else if (c.isSpace()) {
            if (inWord)
                words.append(word);
            word.clear();
            inWord = false;
        } else {
            word.append(c);
            inWord = true;
        }
    }
    if (quoted)
        return std::nullopt;
    if (inWord)
        words.append(word);
    return words;
}

bool CommandLine::parse(const QStringList &words, Scope scope, GlobalOptions &globals,
                        Invocation &invocation, QString &error)
{
    using Option = CommandTable::Option;
    const auto place =
        scope == TopLevel ? CommandTable::Place::CommandLine : CommandTable::Place::Batch;
    bool onlyPositional = false;
    QList<std::pair<Option, QString>> given; // command options in the order given
    for (qsizetype i = 0; i < words.size(); ++i) {
        const QString &word = words.at(i);
        auto value = [&](QString &out) {
            if (i + 1 >= words.size()) {
                error = u"option %1 needs a value"_s.arg(word);
                return false;
            }
            out = words.at(++i);
            return true;
        };
        auto number = [&](int &out) {
            QString text;
            if (!value(text))
                return false;
            if (!toInt(text, out)) {
                error =
                    u"option %1 needs a whole number, not %2"_s.arg(word, Formatter::quoted(text));
                return false;
            }
            return true;
        };

        const bool amountNext =
            invocation.spec && invocation.spec->argument == CommandTable::Argument::Amount;
        if (!onlyPositional && looksNegative(word) && amountNext) {
            error = u"an amount below 0 goes after --, as in: posctl %1 -- %2"_s.arg(
                invocation.command, Formatter::quoted(word).mid(1).chopped(1));
            return false;
        }
        if (onlyPositional || !word.startsWith(u'-') || word == "-"_L1) {
            if (invocation.command.isEmpty()) {
                const CommandTable::Command *spec = CommandTable::command(word);
                if (!spec || !spec->places.testFlag(place)) {
                    error =
                        u"unknown command %1 (see posctl --help)"_s.arg(Formatter::quoted(word));
                    return false;
                }
                invocation.command = word;
                invocation.spec = spec;
            } else {
                invocation.positional.append(word);
            }
            continue;
        }
        if (word == "--"_L1) {
            onlyPositional = true;
            continue;
        }

        if (const CommandTable::OptionRow *row = CommandTable::option(word)) {
            given.append({row->option, word});
            QString text;
            switch (row->option) {
            case Option::Type: {
                int n = 0;
                if (!number(n))
                    return false;
                invocation.type = n;
                break;
            }
            case Option::Merchant:
                if (!value(text))
                    return false;
                invocation.merchant = text;
                break;
            case Option::Rrn:
                if (!value(invocation.rrn))
                    return false;
                break;
            case Option::Auth:
                if (!value(invocation.auth))
                    return false;
                break;
            case Option::CustomerQr:
                if (!value(invocation.customerQr))
                    return false;
                // The plug-in sends the code as Latin-1; anything else would reach the terminal
                // as question marks.
                for (const QChar c : std::as_const(invocation.customerQr)) {
                    if (c.unicode() > 0xff) {
                        error = u"a customer QR code is Latin-1 text (a scanned code is Base64); "
                                u"this one has the character %1"_s.arg(QString(c));
                        return false;
                    }
                }
                break;
            case Option::Currency:
                if (!number(invocation.currency))
                    return false;
                break;
            case Option::FormText:
                if (!value(invocation.formText))
                    return false;
                break;
            case Option::FormNumber:
                if (!number(invocation.formNumber))
                    return false;
                break;
            case Option::FormSequence:
                if (!number(invocation.formSequence))
                    return false;
                break;
            case Option::FormTime: {
                if (!value(text))
                    return false;
                const QDateTime time = QDateTime::fromString(text, u"yyyy-MM-ddThh:mm:ss"_s);
                if (!time.isValid()) {
                    error = u"option --form-time needs a time as yyyy-MM-ddThh:mm:ss, not %1"_s.arg(
                        Formatter::quoted(text));
                    return false;
                }
                invocation.formTime = time;
                break;
            }
            case Option::Day:
            case Option::Since:
            case Option::Until: {
                if (!value(text))
                    return false;
                const QDate day = QDate::fromString(text, Qt::ISODate);
                if (!day.isValid()) {
                    error = u"option %1 needs a day as yyyy-MM-dd, not %2"_s.arg(
                        word, Formatter::quoted(text));
                    return false;
                }
                (row->option == Option::Day     ? invocation.day
                 : row->option == Option::Since ? invocation.since
                                                : invocation.until) = day;
                break;
            }
            case Option::As:
                if (!value(invocation.settleAs))
                    return false;
                break;
            case Option::Note:
                if (!value(invocation.note))
                    return false;
                break;
            case Option::Monitoring:
                invocation.monitoring = true;
                break;
            case Option::Open:
                invocation.open = true;
                break;
            case Option::FailedRuns:
            case Option::KeepDays: {
                int n = 0;
                if (!number(n))
                    return false;
                if (n < 1) {
                    error = u"option %1 needs a number of at least 1"_s.arg(word);
                    return false;
                }
                if (row->option == Option::FailedRuns)
                    invocation.failedRuns = n;
                else
                    invocation.keepDays = n;
                break;
            }
            case Option::Force:
                invocation.force = true;
                break;
            }
            continue;
        }

        QString text;
        int n = 0;
        if (scope == TopLevel && word == "--plugin"_L1) {
            if (!value(globals.pluginPath))
                return false;
        } else if (scope == TopLevel && word == "--log"_L1) {
            if (!value(globals.logFile))
                return false;
        } else if (scope == TopLevel && word == "--dir"_L1) {
            if (!value(text))
                return false;
            globals.directory = text;
        } else if (scope == TopLevel && word == "--json"_L1) {
            globals.json = true;
        } else if (scope == TopLevel && (word == "-v"_L1 || word == "--verbose"_L1)) {
            globals.verbose = true;
        } else if (scope == TopLevel && word == "--interrupt-after"_L1) {
            if (!number(n))
                return false;
            if (n < 0) {
                error = u"option --interrupt-after needs a number of milliseconds"_s;
                return false;
            }
            globals.interruptAfterMs = n;
        } else if (scope == TopLevel && (word == "-h"_L1 || word == "--help"_L1)) {
            globals.help = true;
        } else if (scope == TopLevel && word == "--version"_L1) {
            globals.version = true;
        } else {
            error = u"unknown option %1 (see posctl --help)"_s.arg(Formatter::quoted(word));
            return false;
        }
    }

    if (invocation.command == "help"_L1)
        globals.help = true;
    if (globals.help || globals.version)
        return true;
    if (!invocation.spec) {
        error = u"no command given (see posctl --help)"_s;
        return false;
    }
    const CommandTable::Command &spec = *invocation.spec;
    for (const auto &[option, name] : std::as_const(given)) {
        if (!spec.options.testFlag(option)) {
            error = u"%1 takes no option %2 (see posctl --help)"_s.arg(invocation.command, name);
            return false;
        }
    }
    const bool optional = spec.argument == CommandTable::Argument::Maintenance;
    const int wanted = spec.argument == CommandTable::Argument::None ? 0 : 1;
    if (optional && invocation.positional.isEmpty()) {
        // recordings, listing
    } else if (invocation.positional.size() != wanted) {
        if (wanted == 1 && invocation.positional.isEmpty()) {
            switch (spec.argument) {
            case CommandTable::Argument::Amount:
                error = u"%1 needs an amount in minor units (150000 is 1500.00)"_s.arg(
                    invocation.command);
                break;
            case CommandTable::Argument::RecorderAction:
                error = u"%1 needs on, off or status"_s.arg(invocation.command);
                break;
            case CommandTable::Argument::Run:
                error = u"%1 needs a run's id, as check names it"_s.arg(invocation.command);
                break;
            default:
                error = u"%1 needs a directory"_s.arg(invocation.command);
                break;
            }
        } else {
            error = u"too many arguments for %1: %2"_s.arg(
                invocation.command,
                Formatter::quoted(invocation.positional.mid(wanted).join(u' ')));
        }
        return false;
    }
    const QString first = invocation.positional.value(0);
    if (spec.argument == CommandTable::Argument::RecorderAction && first != "on"_L1 &&
        first != "off"_L1 && first != "status"_L1) {
        error = u"%1 needs on, off or status, not %2"_s.arg(invocation.command,
                                                            Formatter::quoted(first));
        return false;
    }
    if (optional && !first.isEmpty() && first != "prune"_L1) {
        error = u"%1 takes nothing, or prune, not %2"_s.arg(invocation.command,
                                                            Formatter::quoted(first));
        return false;
    }
    if (optional && (first == "prune"_L1) != invocation.keepDays.has_value()) {
        error = first == "prune"_L1 ? u"%1 prune needs --keep-days N"_s.arg(invocation.command)
                                    : u"--keep-days goes with %1 prune"_s.arg(invocation.command);
        return false;
    }
    if (spec.argument == CommandTable::Argument::Run && invocation.settleAs.isEmpty()) {
        error = u"%1 needs --as cancelled, kept or not-charged"_s.arg(invocation.command);
        return false;
    }
    if (spec.argument == CommandTable::Argument::Amount) {
        error = amountError(invocation.positional.first(), invocation.amount);
        return error.isEmpty();
    }
    return true;
}
