#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>

#include <optional>

#include "commandtable.h"

// One posctl command with its arguments and request options, as typed on the command line or
// on a line of a batch.
struct Invocation
{
    QString command;
    const CommandTable::Command *spec = nullptr; // the command's row
    QStringList positional;
    qint64 amount = 0; // the positional amount of a payment command, in minor units

    std::optional<int> type;
    std::optional<QString> merchant;
    QString rrn;
    QString auth;
    QString customerQr;
    int currency = 1;
    QString formText;
    int formNumber = 0;
    int formSequence = 0;
    std::optional<QDateTime> formTime;
    std::optional<QDate> day; // of the recordings to list
    std::optional<QDate> since;
    std::optional<QDate> until;
    bool open = false; // only the runs that need a person
    std::optional<int> keepDays;
    bool force = false; // recorder off over a newer client
    QString settleAs;
    QString note;
    bool monitoring = false;
    int failedRuns = 5;
};

// Options that concern posctl itself rather than one request.
struct GlobalOptions
{
    QString pluginPath;
    std::optional<QString> directory;
    bool json = false;
    bool verbose = false;
    QString logFile;
    std::optional<int> interruptAfterMs;
    bool help = false;
    bool version = false;
};

class CommandLine
{
public:
    enum Scope { TopLevel, BatchLine };

    // Splits a batch line into words; double quotes group words and may be empty ("").
    // Returns nullopt for an unterminated quote.
    static std::optional<QStringList> splitWords(const QString &line);

    // Parses words into the command and its options, by CommandTable: a command is known only
    // where its row allows it, and takes only the options of its row. In a batch line, global
    // options are not accepted. On failure returns false and a sentence for the user in error.
    // "help" is the same as --help.
    static bool parse(const QStringList &words, Scope scope, GlobalOptions &globals,
                      Invocation &invocation, QString &error);
};
