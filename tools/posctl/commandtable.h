#pragma once

#include <QFlags>
#include <QLatin1StringView>
#include <QList>
#include <QString>

class AbstractPaymentProcessing;
class PosctlHost;
struct Invocation;
struct PaymentProcessingAnswer;

// posctl's commands and their options as data: help, parsing, batch and dispatch all read these
// tables. Adding a command is a row here and its handler.
class CommandTable
{
public:
    // The command's positional argument.
    enum class Argument {
        None,
        Amount,
        Directory,
        RecorderAction, // on, off or status
        Run,            // a recorded run's id
        Maintenance,    // nothing, or prune
    };

    // The options a command takes besides the global ones.
    enum class Option {
        Type = 0x1,
        Merchant = 0x2,
        Rrn = 0x4,
        Auth = 0x8,
        CustomerQr = 0x10,
        Currency = 0x20,
        FormText = 0x40,
        FormNumber = 0x80,
        FormSequence = 0x100,
        FormTime = 0x200,
        Day = 0x400,
        Force = 0x800,
        As = 0x1000,
        Note = 0x2000,
        Monitoring = 0x4000,
        FailedRuns = 0x8000,
        Since = 0x10000,
        Until = 0x20000,
        Open = 0x40000,
        KeepDays = 0x80000,
    };
    Q_DECLARE_FLAGS(Options, Option)

    enum class Place { CommandLine = 0x1, Batch = 0x2 };
    Q_DECLARE_FLAGS(Places, Place)

    enum class Section { Payment, Service, Information, BatchOnly };
    // What the progress bar shows while the command's operation runs.
    enum class Progress { None, CardOrService, Sbp };
    // What the answer's codes hold: the usual, or for an SBP payment the form identifier and the
    // terminal's authorisation code.
    enum class Codes { Usual, SbpPayment };

    // The host call of a command that runs the payment client.
    using HostCall = PaymentProcessingAnswer (*)(AbstractPaymentProcessing &, const Invocation &);
    // A command posctl answers itself; returns the exit status.
    using Handler = int (PosctlHost::*)(const Invocation &);

    struct Command
    {
        QLatin1StringView name;
        Argument argument;
        Options options;
        Places places;
        Section section;
        Progress progress;
        HostCall hostCall; // or
        Handler handler;   // null for help, which needs no plug-in
        const char *help;  // UTF-8
        Codes codes = Codes::Usual;
    };

    enum class Value { None, Text, Number, Time, Day };

    struct OptionRow
    {
        QLatin1StringView name;
        Option option;
        Value value;
        QLatin1StringView valueName;
        const char *help; // UTF-8
    };

    static const QList<Command> &commands();
    static const QList<OptionRow> &options();
    // Null when there is no such command or option.
    static const Command *command(QStringView name);
    static const OptionRow *option(QStringView name);

    // The part of posctl --help that lists the commands and their options.
    static QString help();
};

Q_DECLARE_OPERATORS_FOR_FLAGS(CommandTable::Options)
Q_DECLARE_OPERATORS_FOR_FLAGS(CommandTable::Places)
