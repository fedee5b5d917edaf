#pragma once

#include <QByteArray>
#include <QDate>
#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// The main members of a client's answer, as a run's recording keeps them for readers.
struct RecordedAnswer
{
    std::optional<int> status;
    std::optional<int> hostCode;
    QString text;
    QString referenceNumber;
    QString authorizationCode;

    bool isEmpty() const { return !status && text.isEmpty() && referenceNumber.isEmpty(); }
    // As the plug-in reads them: a member that is not a whole number as 0.
    static RecordedAnswer from(const QJsonObject &answer);
    static RecordedAnswer from(const class RecordingLineReader &answer);
};

// A moment as a recording holds it: milliseconds since the epoch and the offset it was written
// with, so that a day of runs costs no time-zone lookups.
struct RecordedTime
{
    qint64 msecs = 0;
    int offsetSeconds = 0;
    bool valid = false;

    QDateTime toDateTime() const;
    bool operator<(const RecordedTime &other) const { return msecs < other.msecs; }
    bool operator<=(const RecordedTime &other) const { return msecs <= other.msecs; }
};

// One run of the payment client as the recorder kept it. The recorder writes a start line before
// the client starts and an end line once it has ended (how, whether its answer reached the host,
// how much it wrote, whether that reads as an approval); its scribe then adds an output line with
// the answer's main members and what the client wrote, card data masked. A host that says so
// acknowledges the answers it has taken with a line of its own.
struct RecordedRun
{
    QString id;
    RecordedTime started;
    qint64 processId = 0; // the recorder's, which the host saw as the client's
    QString host;         // a host that acknowledges the answers it takes ("posctl"), or empty
    qint64 hostProcessId = 0;

    bool ended = false; // no end line: the outcome is unknown (killed, power lost)
    RecordedTime endedAt;
    qint64 durationMs = 0;
    std::optional<int> exitStatus;
    std::optional<int> signal;
    QString startError;    // the real client could not be started
    bool delivered = true; // the answer went into the host's pipe, and the host was still there
    std::optional<bool> approvalSeen; // the recorder's own reading of the output
    qint64 standardOutputBytes = 0;
    qint64 standardErrorBytes = 0;

    bool hasOutput = false;    // the scribe's line is there
    RecordedAnswer answer;     // its main members
    QByteArray standardOutput; // card data masked; only when read with the streams
    QByteArray standardError;

    bool acknowledged = false; // the host has said it took the answer

    // The client's command line as recorded: the operation code, then the options and their
    // values (the customer's code by its length).
    QStringList arguments() const;
    void setArguments(const QStringList &arguments);
    QString operation() const;
    // The value of an option of the client's command line, read in pairs as the client does.
    QString option(const QString &name) const;
    // Whether what the client printed holds an approval: from its answer where the scribe kept
    // it, else from the recorder's own reading.
    bool approval() const;
    // How the run ended, in a few words: "exit 0", "signal 9", "could not start", "unknown".
    QString ending() const;
    // The client ended by itself: with an exit status, not by a signal.
    bool endedByItself() const { return ended && exitStatus.has_value() && !signal; }

private:
    QString m_arguments; // joined by U+001F: one allocation for a day of runs
};

Q_DECLARE_TYPEINFO(RecordedRun, Q_RELOCATABLE_TYPE);

// The recordings of a processing directory (RecordingWriter writes them). A day is read as a
// stream, line by line, in one pass, keeping of each run only what is small unless the streams
// are asked for: a day of 100,000 runs reads in well under two seconds.
class Recordings
{
public:
    enum class Streams { Skipped, Kept };

    struct Day
    {
        QDate date;
        QList<RecordedRun> runs; // in the order they started
        // Lines that cannot be read: a torn last line, say; with the run they belong to when
        // that can be told.
        struct Problem
        {
            QString file;
            int line = 0;
            bool torn = false;
            QString runId;
        };
        QList<Problem> problems;
        // The host's acknowledgements: process ids and when.
        QList<std::pair<qint64, RecordedTime>> acknowledgements;
        // Runs a person settled, of this day or any earlier one.
        struct Settlement
        {
            QString runId;
            RecordedTime at;
            QString how;
            QString by;
            QString note;
        };
        QList<Settlement> settlements;
        // Files of the day that exist and cannot be read, with why.
        QStringList unreadable;

        QStringList problemTexts() const;
    };

    static QString folder(const QString &processingDirectory);
    static QString dayPath(const QString &processingDirectory, const QDate &day);
    // The files that hold a day's lines: the day's own and those of runs that could not wait for
    // its lock.
    static QStringList dayFiles(const QString &processingDirectory, const QDate &day);
    // Every line that reads is kept, in whichever file and order it stands; one that does not is
    // skipped and named in problems. Acknowledgements of the day mark its runs.
    static Day read(const QString &processingDirectory, const QDate &day,
                    Streams streams = Streams::Skipped);
    // The days the folder holds recordings of, oldest first; files it cannot list or that are
    // not a day's are left out.
    static QList<QDate> days(const QString &processingDirectory);
    // One file alone, with the streams.
    static Day readFile(const QString &path);
    // The first run of a file whose start line is at offset or after, with its streams, and the
    // offset just past its start line, where the next run is looked for: a day is replayed in
    // one pass, however long it is. Its end and outputs are looked for after its start, in the
    // file and then in the day's files of runs that could not wait for its lock.
    struct Next
    {
        std::optional<RecordedRun> run;
        qint64 offset = 0;
    };
    static Next runFrom(const QString &path, qint64 offset);
    // Marks the runs that an acknowledgement names: the latest run of that process id that
    // started before it.
    static void acknowledge(QList<RecordedRun *> runs,
                            const QList<std::pair<qint64, RecordedTime>> &acknowledgements);
    // When the recorder last failed to write, and why, if it has.
    static std::optional<QDateTime> failure(const QString &processingDirectory, QString &why);
};
