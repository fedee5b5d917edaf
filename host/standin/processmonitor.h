#pragma once

#include <zelnorhost_global.h>

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

// Why a program could not be started, as a value (QProcess::ProcessError is the model).
// posix_spawn says "no such file" for a missing program, a missing interpreter and a missing
// working directory alike: the runner asks the file system which it was.
struct ZELNORHOST_EXPORT StartFailure
{
    enum Reason {
        NoDirectory,         // the working directory does not exist
        NoProgram,           // the program does not exist
        BadInterpreter,      // a script whose interpreter (detail) is missing
        PermissionDenied,    // the program may not be run
        ArgumentListTooLong, // the command line is longer than the system allows
        Other,               // detail: the system's own text
    };
    Reason reason = Other;
    int osError = 0; // errno
    QString detail;

    // The interpreter named on a script's "#!" line, or an empty text: what the runner and
    // posctl check read of a script.
    static QString interpreterOf(const QString &path);
};

// The stand-in's runner keeps at most this much of each stream, and reads and drops the rest.
inline constexpr qint64 maxProcessOutputSize = 64 * 1024 * 1024;

// Tells the host program about the runs of ExternalProcessThread in this process, so that it
// can say which program is running and why a run went wrong, whoever started the run. This is
// the stand-in's own: the till's host library has no such thing, and the plug-in never sees it.
class ZELNORHOST_EXPORT ProcessMonitor
{
public:
    virtual ~ProcessMonitor();

    // The one monitor of every run in this process (not owned; null for none). It must outlive
    // every run.
    static void install(ProcessMonitor *monitor);
    static ProcessMonitor *installed();

    // On the thread that called start(), just before the program is started: a monitor may hold
    // the start back here for as long as it needs.
    virtual void aboutToStart(const QString &program, const QString &directory);
    // On the thread that called start(), as soon as the program runs, with how long it may
    // run before it is killed.
    virtual void started(qint64 processId, const QString &program, const QString &directory,
                         std::chrono::milliseconds timeout);
    // On the thread that called start(), when the program could not be started.
    virtual void failedToStart(const QString &program, const QString &directory,
                               const StartFailure &failure);
    // On the thread that waited for the program, once the run is over; or in the runner's
    // destructor, for a program that nobody waited for.
    virtual void finished(const ProcessEnd &end);
};
