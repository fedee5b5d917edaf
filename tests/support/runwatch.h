#pragma once

#include <processmonitor.h>

#include <QList>
#include <QMutex>
#include <QWaitCondition>

#include <chrono>
#include <optional>

// The host's runs of the payment client as the host's runner saw them, installed as its monitor
// while it exists: a test measures a delay from the side that causes it (the start of a client,
// the end of one), not from a clock inside the client, whose own start a busy machine delays.
class RunWatch : public ProcessMonitor
{
public:
    using Clock = std::chrono::steady_clock;

    struct Run
    {
        qint64 processId = 0;
        Clock::time_point started;
        double startedWall = 0; // seconds since the epoch, to hold against a client's `date`
        std::chrono::milliseconds timeout{0};
        std::optional<Clock::time_point> finished;
        ProcessEnd end;
    };

    RunWatch();
    ~RunWatch() override;
    RunWatch(const RunWatch &) = delete;
    RunWatch &operator=(const RunWatch &) = delete;

    QList<Run> runs() const;
    // Waits (up to a minute) until that many runs have ended.
    bool waitForEnded(int count) const;

    void started(qint64 processId, const QString &program, const QString &directory,
                 std::chrono::milliseconds timeout) override;
    void finished(const ProcessEnd &end) override;

private:
    mutable QMutex m_mutex;
    mutable QWaitCondition m_changed;
    QList<Run> m_runs;
    int m_ended = 0;
};
