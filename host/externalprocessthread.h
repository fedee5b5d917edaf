#pragma once

#include "zelnorhost_global.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QThread>

#include <chrono>
#include <functional>
#include <vector>

// Runs one external program with a time-out and collects what it writes. The program is
// started directly (no shell) in its own process group, with stdin on /dev/null and every
// other descriptor of ours closed.
//
// start() launches the program at once, so processId() is valid as soon as it returns;
// exec() then waits, on the calling thread, until the run is over, calling the timer's
// callbacks on that thread too. It is a QThread as the host's runner is, but needs no thread
// of its own, since its caller only waits. Whatever the program does, exec() returns within
// the time-out plus a short grace: on time-out the whole process group is killed; when the
// program has ended but something it left behind still holds its output open, the output is
// abandoned after a short drain. The ended program stays a zombie until the runner is
// destroyed, so that its process id cannot be reused by another process while the caller may
// still signal it; the destructor reaps it and leaves no thread or descriptor behind.
//
// Each run is logged at debug level in the category "zelnorhost.process": the operating
// system's reason when the program cannot start, and how it ended (exit status, signal or
// time-out). Output beyond a limit of the runner's is dropped with a warning in the same
// category.
class ZELNORHOST_EXPORT ExternalProcessThread : public QThread
{
    Q_OBJECT
public:
    // The same numbering as QProcess::ProcessError.
    enum Error {
        NoError = -1,
        FailedToStart = 0,
        Crashed = 1,
        Timedout = 2,
        ReadError = 3,
        WriteError = 4,
        UnknownError = 5,
    };

    ExternalProcessThread(const QString &program, const QList<QString> &arguments,
                          std::chrono::milliseconds timeout, const QString &workingDirectory);
    ~ExternalProcessThread() override;

    // The callback is called every timerPeriod, on the thread in exec(), while the program runs.
    void createTimer(const std::function<void()> &callback);

    void start();
    qint64 processId() const { return m_pid; }
    // True when the program ran to its end (whatever its exit status).
    bool exec();
    int error() const { return m_error; }
    int exitCode() const { return m_exitCode; }
    QString standardOutput() const { return QString::fromUtf8(m_stdout); }
    QString standardError() const { return QString::fromUtf8(m_stderr); }

protected:
    void run() override;

private:
    bool pollExited(bool block);
    void killGroup();
    void readFrom(int &fd, QByteArray &buffer, qint64 &total);
    void failStart(int osError);
    void reportEnd();
    void waitForEnd();
    void closeDescriptors();

    QString m_program;
    QList<QString> m_arguments;
    std::chrono::milliseconds m_timeout;
    QString m_workingDirectory;
    std::vector<std::function<void()>> m_callbacks;

    qint64 m_pid = 0;
    int m_stdoutFd = -1;
    int m_stderrFd = -1;
    int m_pidFd = -1;
    bool m_reaped = false;
    bool m_waited = false;
    bool m_abandoned = false; // destroyed without exec()

    int m_error = NoError;
    int m_exitCode = 0;
    int m_signal = 0;
    QByteArray m_stdout;
    QByteArray m_stderr;
    qint64 m_stdoutTotal = 0;
    qint64 m_stderrTotal = 0;
};
