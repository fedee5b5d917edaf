#pragma once

#include "emulatorcommand.h"
#include "emulatorsettings.h"
#include "journal.h"
#include "slip.h"

#include <QJsonObject>

#include <atomic>

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

// The emulated terminal: a PIN pad, a bank behind it, and the journal of the day.
class Terminal
{
public:
    Terminal(const EmulatorSettings &settings, Journal &journal,
             const std::atomic<bool> &interrupted);

    EmulatorAnswer run(const EmulatorCommand &command);

private:
    struct Operation
    {
        QString kind;  // journal name
        QString title; // as printed on the slip
        qint64 amount = 0;
        QString merchant;
    };

    EmulatorAnswer cardOperation(const EmulatorCommand &command);
    EmulatorAnswer sbpOperation(const EmulatorCommand &command);
    EmulatorAnswer finish(const Operation &operation);
    EmulatorAnswer reconciliation(const EmulatorCommand &command);
    EmulatorAnswer report(const EmulatorCommand &command, bool full);
    EmulatorAnswer slipCopy();
    EmulatorAnswer balance();

    bool waitForCard() const;
    QString merchantOf(const EmulatorCommand &command) const;
    Slip header(const QString &merchant) const;
    QString totals(const QList<JournalEntry> &entries, bool listEach) const;
    EmulatorAnswer serviceAnswer(const QString &text, const QString &slip);

    const EmulatorSettings &m_settings;
    Journal &m_journal;
    const std::atomic<bool> &m_interrupted;
};
