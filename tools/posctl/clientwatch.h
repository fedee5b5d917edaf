#pragma once

#include <processmonitor.h>

#include <QList>
#include <QMutex>
#include <QString>
#include <QWaitCondition>

#include <chrono>
#include <optional>

// What posctl knows of the payment clients that the plug-in runs through the host's process
// runner: which one runs now and where, which an operation has run, how the last one ended, one
// that did not end by itself, and why the last start failed. Filled as the runner starts and
// ends clients, on the thread that waits for them; read from posctl's signal watcher as well,
// which may also stop any further client from starting when posctl gives up.
class ClientWatch : public ProcessMonitor
{
public:
    using Clock = std::chrono::steady_clock;

    struct Client
    {
        qint64 processId = 0;
        QString directory;
        Clock::time_point started;
    };
    struct FailedStart
    {
        QString program;
        QString directory;
        StartFailure failure;
    };

    // Forgets what the previous operation ran.
    void beginOperation();

    std::optional<Client> running() const;
    int runsInOperation() const;
    // The clients that the operation started, in order: the ones its answer came from.
    QList<Client> operationClients() const;
    std::optional<ProcessEnd> lastEnd() const;
    // The first client of the operation that did not end by itself: ended by a signal, killed
    // at its time-out, or whose end could not be learnt. Its operation's outcome is unknown.
    std::optional<ProcessEnd> abnormalEnd() const;
    std::optional<FailedStart> lastStartFailure() const;

    // From now on no client starts (one that tries is held back until the process ends); a
    // start under way is waited for. Returns the client that runs, if one does.
    std::optional<Client> stopStarting();

    void aboutToStart(const QString &program, const QString &directory) override;
    void started(qint64 processId, const QString &program, const QString &directory,
                 std::chrono::milliseconds timeout) override;
    void failedToStart(const QString &program, const QString &directory,
                       const StartFailure &failure) override;
    void finished(const ProcessEnd &end) override;

    // Whether a run that ended so ended by itself (its exit status, whatever it was).
    static bool endedByItself(const ProcessEnd &end);

private:
    mutable QMutex m_mutex;
    QWaitCondition m_startDone;
    bool m_starting = false;
    bool m_stopped = false;
    std::optional<Client> m_running;
    int m_runs = 0;
    QList<Client> m_clients;
    std::optional<ProcessEnd> m_lastEnd;
    std::optional<ProcessEnd> m_abnormalEnd;
    std::optional<FailedStart> m_startFailure;
};
