#pragma once

#include "emulatorcommand.h"
#include "emulatorsettings.h"
#include "journal.h"
#include "slip.h"

#include <QJsonObject>

#include <atomic>
#include <optional>

// What the emulated client does at the end of a run.
struct EmulatorAnswer
{
    enum Kind {
        Answer,   // prints the JSON answer, exit status 0
        Hang,     // never ends by itself: the time-out path
        FailExit, // a line on stderr and exit status 1
        NotJson,  // prints text that is not JSON
        Crash,    // aborts
    };
    Kind kind = Answer;
    QJsonObject json;
};

// The emulated terminal: a PIN pad, a bank behind it, and the journal of the day. It refuses
// what a terminal refuses: amounts of 0 or below, amounts whose totals would overflow, a
// refund or cancel of a sale it does not know or beyond what is left of it, a second cancel.
class Terminal
{
public:
    Terminal(const EmulatorSettings &settings, Journal &journal,
             const std::atomic<bool> &interrupted);

    EmulatorAnswer run(const EmulatorCommand &command);

    // The answer of a terminal that another operation kept busy.
    static EmulatorAnswer busy();

private:
    struct Operation
    {
        QString kind; // journal name
        qint64 amount = 0;
        QString merchant;
        const JournalEntry *sale = nullptr; // the sale a refund or cancel returns
    };

    EmulatorAnswer cardOperation(const EmulatorCommand &command);
    EmulatorAnswer sbpOperation(const EmulatorCommand &command);
    std::optional<EmulatorAnswer> refusal(const Operation &operation,
                                          const QString &reference) const;
    EmulatorAnswer finish(const Operation &operation);
    EmulatorAnswer reconciliation(const EmulatorCommand &command);
    EmulatorAnswer report(const EmulatorCommand &command, bool full);
    EmulatorAnswer slipCopy();
    EmulatorAnswer balance();

    // Waits as the PIN pad does for the card or the customer; false when SIGINT came.
    bool waitForCustomer() const;
    QString merchantOf(const EmulatorCommand &command) const;
    Slip header(const QString &merchant) const;
    QString totals(const QList<JournalEntry> &entries, bool listEach) const;
    EmulatorAnswer serviceAnswer(const QString &text, const QString &slip);

    const EmulatorSettings &m_settings;
    Journal &m_journal;
    const std::atomic<bool> &m_interrupted;
};
