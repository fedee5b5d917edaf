#pragma once

#include <processmonitor.h>

#include <QMutex>
#include <QString>

#include <optional>

// What posctl knows of the payment clients that the plug-in runs through the host's process
// runner: which one runs now and where, how many an operation has run, how the last one ended
// and why the last start failed. Filled as the runner starts and ends clients, on the thread
// that waits for them; read from posctl's signal watcher as well.
class ClientWatch : public ProcessMonitor
{
public:
    struct Client
    {
        qint64 processId = 0;
        QString directory;
    };
    struct StartFailure
    {
        QString program;
        QString directory;
        int osError = 0;
        QString reason;
    };

    // Forgets what the previous operation ran.
    void beginOperation();

    std::optional<Client> running() const;
    int runsInOperation() const;
    std::optional<ProcessEnd> lastEnd() const;
    std::optional<StartFailure> lastStartFailure() const;

    void started(qint64 processId, const QString &program, const QString &directory,
                 std::chrono::milliseconds timeout) override;
    void failedToStart(const QString &program, const QString &directory, int osError,
                       const QString &reason) override;
    void finished(const ProcessEnd &end) override;

private:
    mutable QMutex m_mutex;
    std::optional<Client> m_running;
    int m_runs = 0;
    std::optional<ProcessEnd> m_lastEnd;
    std::optional<StartFailure> m_startFailure;
};
