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
    // A day's runs, written a run at a time.
    static void writeText(Output &out, const QString &directory, const QDate &day,
                          const Recordings::Day &runs);
    static void writeJson(Output &out, const QString &directory, const QDate &day,
                          const Recordings::Day &runs);

    // For check, over today's and yesterday's recordings: an approval that never reached the
    // host, a run whose outcome is unknown, each with what to do next; lines that cannot be
    // read, outputs the scribe did not keep; every failure of the recorder to write, and what
    // stops it from writing; a recorded client missing or replaced, and a recorder replaced.
    static void addFindings(const QString &directory, Findings &findings);
};
