#pragma once

#include <QList>
#include <QString>

#include <optional>

// One thing check found about a processing directory, as a value: its kind, how much it
// matters, the file and line it is about, the values it is about (a run, a reference number, an
// amount, a process), and the sentence and the advice made from them. Tests and monitoring read
// the kind and the values; people read the text.
struct Finding
{
    enum class Kind {
        // The directory and its client.
        NoDirectory,
        NotADirectory,
        NoClient,
        ClientNotAFile,
        ClientNotExecutable,
        InterpreterMissing,
        ClientStillRunning,
        // zelnorinpas.conf.
        NoConfiguration,
        ConfigurationUnreadable,
        NotASetting,
        GroupNotRead,
        KeyNotRead,
        KeyInWrongGroup,
        ValueNotRead,
        IntervalBelowZero,
        ItemDropped,
        // The recorder and its recordings.
        RecorderOn,
        RecordedClientMissing,
        RecordedClientChanged,
        RecorderReplaced,
        ScribeMissing,
        RecordingsUnwritable,
        RecordingsNotAFolder,
        RecordingsUnreadable,
        RecorderOffOverOpenRuns,
        RepeatedFailures,
        RecordingFailed,
        LineUnreadable,
        OutputsMissing,
        // Runs that need a person.
        UnseenApproval,
        UnknownOutcome,
        SettledRun,
    };
    enum class Severity { Info, Warning, Critical };

    Kind kind = Kind::RecorderOn;
    Severity severity = Severity::Info;
    QString text;
    QString advice; // what to do, when there is something to do
    QString file;
    int line = 0;
    // The values it is about, where there are some.
    QString run;
    QString day;
    QString operation;
    std::optional<qint64> amount;
    QString referenceNumber;
    QString authorizationCode;
    qint64 processId = 0;

    // A finding of the kind with its severity, as the table of kinds gives it.
    static Finding of(Kind kind, const QString &text);
    // The kind's name in JSON: "unseenApproval".
    static QString kindName(Kind kind);
    static QString severityName(Severity severity);

    bool isProblem() const { return severity != Severity::Info; }
    // One JSON object, every key always there, in one order.
    QString toJson() const;
};

using Findings = QList<Finding>;
