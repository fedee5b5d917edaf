#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// One run of the payment client as the recorder kept it: its start line and, once it ended,
// its end line.
struct RecordedRun
{
    QString id;
    QDateTime started;
    qint64 processId = 0;  // the recorder's, which the host saw as the client's
    QStringList arguments; // the customer's code by its length

    bool ended = false; // no end line: the outcome is unknown (killed, power lost)
    qint64 durationMs = 0;
    std::optional<int> exitStatus;
    std::optional<int> signal;
    QString startError;        // the real client could not be started
    bool delivered = true;     // the answer reached the host
    QByteArray standardOutput; // card data masked; cut at the recorder's limit when large
    QByteArray standardError;

    QString operation() const { return arguments.value(0); }
    // The value of an option of the client's command line, read in pairs as the client does.
    QString option(const QString &name) const;
    // The client's JSON answer, empty when it printed none.
    QJsonObject answer() const;
    // An approval that never reached the host.
    bool unseenApproval() const;
    // How the run ended, in a few words: "exit 0", "signal 9", "could not start", "unknown".
    QString ending() const;
};

// The recordings of a processing directory (RecordingWriter writes them).
class Recordings
{
public:
    struct Day
    {
        QList<RecordedRun> runs; // in the order they started
        QStringList problems;    // lines that cannot be read: a torn last line, say
    };

    static QString folder(const QString &processingDirectory);
    static QString dayPath(const QString &processingDirectory, const QDate &day);
    // Every line that reads is kept; one that does not is skipped and named in problems.
    static Day read(const QString &path);
    // When the recorder last failed to write, and why, if it has.
    static std::optional<QDateTime> failure(const QString &processingDirectory, QString &why);
};
