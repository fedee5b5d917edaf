#pragma once

#include "zelnorhost_global.h"

#include <QString>

#include <chrono>

// How one run of ExternalProcessThread ended.
struct ProcessEnd
{
    qint64 processId = 0;
    int error = -1;   // ExternalProcessThread::Error; -1 when the program ran to its end
    int exitCode = 0; // when it ran to its end
    int signal = 0;   // the signal that ended it, if one did
    qint64 standardOutputBytes = 0; // all it wrote, also beyond what was kept
    qint64 standardErrorBytes = 0;
};

// Tells the host program about the runs of ExternalProcessThread in this process, so that it
// can say which program is running and why a run went wrong, whoever started the run. One
// monitor is installed with ExternalProcessThread::setMonitor(); it must outlive every run.
class ZELNORHOST_EXPORT ProcessMonitor
{
public:
    virtual ~ProcessMonitor();

    // On the thread that called start(), just before the program is started: a monitor may hold
    // the start back here for as long as it needs.
    virtual void aboutToStart(const QString &program, const QString &directory);
    // On the thread that called start(), as soon as the program runs, with how long it may
    // run before it is killed.
    virtual void started(qint64 processId, const QString &program, const QString &directory,
                         std::chrono::milliseconds timeout);
    // On the thread that called start(), when the program could not be started: the
    // operating system's error number and a sentence that says what was missing.
    virtual void failedToStart(const QString &program, const QString &directory, int osError,
                               const QString &reason);
    // On the thread that waited for the program, once the run is over; or in the runner's
    // destructor, for a program that nobody waited for.
    virtual void finished(const ProcessEnd &end);
};
