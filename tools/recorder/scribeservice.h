#pragma once

#include <QByteArray>
#include <QString>

#include <ctime>

// The scribe as a service of a processing directory, so that a day of runs pays for loading Qt
// once, not on every run: it listens on recordings/scribe.sock (scribeprotocol), flushes to
// disk what the recorder hands it before a client starts (on a thread of its own, so that a
// long masking never holds a sale back), and writes each run's output line from the outputs it
// is handed (on another). It ends after a minute without a request, or as soon as its socket is
// gone (the recorder turned off), having finished what it took.
class ScribeService
{
public:
    static constexpr int idleSeconds = 60;

    // One run's output line from a hand-over (see zelnorinpas-scribe): false when the hand-over
    // is incomplete or nothing could be written.
    static bool writeOutput(const QString &directory, std::time_t day, const QByteArray &run,
                            const QByteArray &id, const QByteArray &handOver);

    // Serves the directory until idle; returns at once when another service already does.
    static void serve(const QString &directory);
};
