#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// A stand-in payment client in a temporary processing directory: a small shell script named
// zelnorinpas that records how it was run and prints scripted answers.
class FakeClient
{
public:
    FakeClient();
    // Ends whatever still runs in the directory, whoever started it.
    ~FakeClient();

    QString directory() const { return m_dir.path(); }

    // What every run prints on stdout.
    void setAnswer(const QByteArray &answer);
    // Runs this shell code after the run is recorded instead of printing an answer; $R is the
    // records directory and $n the number of the run.
    void setBehaviour(const QByteArray &shellCode);
    void setConfig(const QByteArray &ini);
    void removeClient();

    int runCount() const;
    // The arguments of run n (from 1), empty ones included.
    QStringList arguments(int run) const;
    QStringList lastArguments() const { return arguments(runCount()); }
    QString workingDirectory(int run) const;
    // Waits (up to a minute, from any thread) until the client has written a record of that name
    // into its records, as a script written with setBehaviour() does with touch "$R/name".
    bool waitForRecord(const QString &name) const;
    // Seconds since the epoch, with fractions, when run n started.
    double startTime(int run) const;
    // Writes a record of that name, for a client that waits for it ([ -e "$R/name" ]).
    void mark(const QString &name) const;
    // What the client wrote into a record of its own, as "$R/name", trimmed.
    QByteArray record(const QString &name) const;
    // The process id of run n, which is its process group when the host's runner started it.
    qint64 processId(int run) const;

    // Whether the process runs: it exists and has not ended (a zombie waiting to be reaped by
    // whoever adopted it has ended).
    static bool isRunning(qint64 processId);

    // Kills every process whose working directory is the directory: what a test started and
    // left behind (a client, its children), and nothing of anyone else's.
    static void endProcessesIn(const QString &directory);

private:
    void writeScript(const QByteArray &tail);
    QString recordPath(const QString &name) const;

    QTemporaryDir m_dir;
    QTemporaryDir m_records;
};
