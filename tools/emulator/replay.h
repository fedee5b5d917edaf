#pragma once

#include "emulatorcommand.h"

#include <QByteArray>
#include <QString>

// A recorded day played back: each run of the client is answered with the recorded output,
// error, exit status (or signal) and duration of the next recorded run, matched in order by
// operation code, SBP function and amount. What was recorded is what is played: card data as
// it was recorded, masked. A run whose outcome was never recorded is played as a client that
// hangs until it is killed, as at the host's time-out. Where it is in the recording is kept in
// zelnorinpas-replay.json in the working directory.
class Replay
{
public:
    static constexpr const char *stateFile = "zelnorinpas-replay.json";

    struct Answer
    {
        QByteArray standardOutput;
        QByteArray standardError;
        int exitStatus = 0;
        int signal = 0;    // ends by this signal instead
        bool hang = false; // never ends by itself
        qint64 waitMs = 0; // the recorded duration, scaled
        QString refusal;   // the run does not match the recording: the line for stderr
    };

    // recording: the day's file, relative to the working directory or absolute; speed scales
    // the recorded durations (0: no waiting).
    static Answer next(const QString &recording, double speed, const EmulatorCommand &command,
                       const QStringList &arguments);
};
