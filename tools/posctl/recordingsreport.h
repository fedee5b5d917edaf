#pragma once

#include "finding.h"

class Output;

#include <recordings.h>

#include <QDate>
#include <QString>
#include <QStringList>

// What posctl tells of the recorder's recordings: a day's runs for a person or a program, and
// for check the runs that need a person.
class RecordingsReport
{
public:
    struct Selection
    {
        QDate since;
        QDate until;
        bool openOnly = false; // only the runs that need a person and are not settled
    };
    // The runs of the days selected, a run at a time, each with its amount, authorisation code,
    // result, delivery and settling, and each day's summary: counts and sums of the approved
    // sales, refunds, cancels and SBP payments and refunds, to hold against the terminal's
    // reconciliation. One day in JSON is one object; several are {"days":[...]}.
    static void write(Output &out, const QString &directory, const Selection &selection, bool json);
    // recorder status: on or off, the client, the scribe, the recordings' size, the last run,
    // the open runs.
    static void writeStatus(Output &out, const QString &directory, bool json);
    // Removes the days before the last keepDays, but a day with an open run, or with the
    // settling of a run of a day that stays; message says what was removed and kept.
    static bool prune(const QString &directory, int keepDays, QString &message);

    // For check, over every day's recordings: an approval that never reached the host, a run
    // whose outcome is unknown, each with what to do next until it is settled, and as settled
    // after; recordings or lines that cannot be read, outputs the scribe did not keep; every
    // failure of the recorder to write, and what stops it from writing; a recorded client
    // missing or replaced, a recorder replaced or turned off over open runs; the last
    // failedRuns runs all failed.
    static void addFindings(const QString &directory, Findings &findings, int failedRuns = 5);
};
