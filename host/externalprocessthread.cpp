#include "externalprocessthread.h"

#include "standin/processmonitor.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

Q_LOGGING_CATEGORY(lcProcess, "zelnorhost.process")

namespace {

using Clock = std::chrono::steady_clock;
using namespace Qt::Literals::StringLiterals;

// The runner's period and drain, and its output limit, so that a runaway program cannot
// exhaust memory.
constexpr std::chrono::milliseconds timerPeriod{100};
constexpr std::chrono::milliseconds drainGrace{200};
constexpr qint64 maxOutputSize = maxProcessOutputSize;

// Why a program could not be started.
StartFailure startFailure(int error, const QString &program, const QString &directory)
{
    StartFailure failure;
    failure.osError = error;
    if (!directory.isEmpty() && !QFileInfo(directory).isDir()) {
        failure.reason = StartFailure::NoDirectory;
        return failure;
    }
    const QString path = QDir(directory).filePath(program);
    switch (error) {
    case ENOENT:
        if (!QFileInfo::exists(path)) {
            failure.reason = StartFailure::NoProgram;
        } else {
            failure.reason = StartFailure::BadInterpreter;
            failure.detail = StartFailure::interpreterOf(path);
        }
        break;
    case EACCES:
        failure.reason = StartFailure::PermissionDenied;
        break;
    case E2BIG:
        failure.reason = StartFailure::ArgumentListTooLong;
        break;
    default:
        failure.detail = QString::fromLocal8Bit(std::strerror(error));
        break;
    }
    return failure;
}

int openPidFd(pid_t pid)
{
#ifdef SYS_pidfd_open
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
#else
    Q_UNUSED(pid);
    return -1;
#endif
}

} // namespace

ExternalProcessThread::ExternalProcessThread(const QString &program,
                                             const QList<QString> &arguments,
                                             std::chrono::milliseconds timeout,
                                             const QString &workingDirectory)
    : m_program(program)
    , m_arguments(arguments)
    , m_timeout(timeout)
    , m_workingDirectory(workingDirectory)
{}

ExternalProcessThread::~ExternalProcessThread()
{
    // Destroyed without exec(): the program is still ours to end.
    if (m_pid > 0 && !m_waited) {
        killGroup();
        pollExited(true);
        m_error = UnknownError;
        m_abandoned = true;
        reportEnd();
    }
    closeDescriptors();
    if (m_pid > 0 && !m_reaped) {
        while (::waitpid(static_cast<pid_t>(m_pid), nullptr, 0) < 0 && errno == EINTR) {
        }
    }
}

void ExternalProcessThread::failStart(int osError)
{
    m_error = FailedToStart;
    const StartFailure failure = startFailure(osError, m_program, m_workingDirectory);
    qCDebug(lcProcess).noquote() << u"Cannot start %1 in %2: %3"_s.arg(
        m_program, m_workingDirectory, QString::fromLocal8Bit(std::strerror(osError)));
    if (ProcessMonitor *m = ProcessMonitor::installed())
        m->failedToStart(m_program, m_workingDirectory, failure);
}

void ExternalProcessThread::createTimer(const std::function<void()> &callback)
{
    if (callback)
        m_callbacks.push_back(callback);
}

void ExternalProcessThread::start()
{
    if (m_pid > 0 || m_error != NoError)
        return;

    if (ProcessMonitor *m = ProcessMonitor::installed())
        m->aboutToStart(m_program, m_workingDirectory);
    int out[2] = {-1, -1};
    int err[2] = {-1, -1};
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
        const int osError = errno;
        for (int fd : {out[0], out[1], err[0], err[1]})
            if (fd >= 0)
                ::close(fd);
        failStart(osError);
        return;
    }

    const QByteArray program = QFile::encodeName(m_program);
    const QByteArray directory = QFile::encodeName(m_workingDirectory);
    std::vector<QByteArray> encoded;
    encoded.reserve(size_t(m_arguments.size()));
    for (const QString &argument : m_arguments)
        encoded.push_back(argument.toLocal8Bit());
    std::vector<char *> argv;
    argv.push_back(const_cast<char *>(program.constData()));
    for (QByteArray &argument : encoded)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!m_workingDirectory.isEmpty())
        posix_spawn_file_actions_addchdir_np(&actions, directory.constData());
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);

    // Own process group, so that a time-out can end everything the program started and the
    // terminal's Ctrl+C reaches it only through the host. Signals start out at their defaults
    // whatever the host ignores or blocks.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                              POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setpgroup(&attributes, 0);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    sigdelset(&signals, SIGKILL);
    sigdelset(&signals, SIGSTOP);
    posix_spawnattr_setsigdefault(&attributes, &signals);

    pid_t pid = 0;
    const int rc =
        posix_spawn(&pid, program.constData(), &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(out[1]);
    ::close(err[1]);

    if (rc != 0) {
        ::close(out[0]);
        ::close(err[0]);
        failStart(rc);
        return;
    }

    m_pid = pid;
    m_stdoutFd = out[0];
    m_stderrFd = err[0];
    ::fcntl(m_stdoutFd, F_SETFL, O_NONBLOCK);
    ::fcntl(m_stderrFd, F_SETFL, O_NONBLOCK);
    m_pidFd = openPidFd(pid);
    if (m_pidFd >= 0)
        ::fcntl(m_pidFd, F_SETFD, FD_CLOEXEC);
    if (ProcessMonitor *m = ProcessMonitor::installed())
        m->started(m_pid, m_program, m_workingDirectory, m_timeout);
}

bool ExternalProcessThread::exec()
{
    if (m_pid <= 0) {
        if (m_error == NoError)
            m_error = FailedToStart;
        return false;
    }
    if (!m_waited)
        waitForEnd();
    return m_error == NoError;
}

// Notices the end of the program without reaping it (see the class comment).
bool ExternalProcessThread::pollExited(bool block)
{
    siginfo_t info{};
    const int options = WEXITED | WNOWAIT | (block ? 0 : WNOHANG);
    for (;;) {
        info.si_pid = 0;
        const int rc = ::waitid(P_PID, static_cast<id_t>(m_pid), &info, options);
        if (rc == 0)
            break;
        if (errno == EINTR)
            continue;
        // Someone else reaped it: nothing more to learn about how it ended.
        m_reaped = true;
        m_error = UnknownError;
        return true;
    }
    if (info.si_pid == 0)
        return false;
    if (info.si_code == CLD_EXITED) {
        m_exitCode = info.si_status;
    } else {
        m_signal = info.si_status;
        if (m_error == NoError)
            m_error = Crashed;
    }
    return true;
}

void ExternalProcessThread::killGroup()
{
    if (::kill(-static_cast<pid_t>(m_pid), SIGKILL) != 0)
        ::kill(static_cast<pid_t>(m_pid), SIGKILL);
}

void ExternalProcessThread::readFrom(int &fd, QByteArray &buffer, qint64 &total)
{
    // Bounded, so that a writer that never pauses cannot keep this thread from its clock.
    char chunk[65536];
    for (int round = 0; round < 16; ++round) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n > 0) {
            total += n;
            const qsizetype room = maxOutputSize - buffer.size();
            if (room > 0)
                buffer.append(chunk, std::min<qsizetype>(room, n));
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        ::close(fd); // end of file, or an error that more reading will not mend
        fd = -1;
        return;
    }
}

void ExternalProcessThread::closeDescriptors()
{
    for (int *fd : {&m_stdoutFd, &m_stderrFd, &m_pidFd}) {
        if (*fd >= 0) {
            ::close(*fd);
            *fd = -1;
        }
    }
}

void ExternalProcessThread::run()
{
    if (m_pid > 0 && !m_waited)
        waitForEnd();
}

// The caller's thread waits here: a thread of its own per run would cost a thread start and
// two context switches for nothing, since the caller only waits.
void ExternalProcessThread::waitForEnd()
{
    m_waited = true;
    const Clock::time_point deadline = Clock::now() + m_timeout;
    Clock::time_point nextTick = Clock::now() + timerPeriod;
    bool exited = false;
    Clock::time_point exitedAt;

    for (;;) {
        if (!exited && pollExited(false)) {
            exited = true;
            exitedAt = Clock::now();
        }
        const Clock::time_point now = Clock::now();
        const bool outputOpen = m_stdoutFd >= 0 || m_stderrFd >= 0;
        if (exited && (!outputOpen || now >= exitedAt + drainGrace))
            break;
        if (!exited && now >= deadline) {
            killGroup();
            pollExited(true);
            m_error = Timedout;
            break;
        }
        if (!exited && now >= nextTick) {
            for (const auto &callback : m_callbacks)
                callback();
            nextTick = std::max(nextTick + timerPeriod, now);
        }

        Clock::time_point wake = exited ? exitedAt + drainGrace : std::min(nextTick, deadline);
        auto waitMs = std::chrono::ceil<std::chrono::milliseconds>(wake - Clock::now()).count();
        // Without a process descriptor the end of a program that closed its output is only
        // seen by looking again, so look often.
        if (m_pidFd < 0 || exited)
            waitMs = std::min<decltype(waitMs)>(waitMs, 5);
        waitMs = std::max<decltype(waitMs)>(waitMs, 0);

        pollfd fds[3];
        nfds_t count = 0;
        for (int fd : {m_stdoutFd, m_stderrFd, exited ? -1 : m_pidFd})
            if (fd >= 0)
                fds[count++] = pollfd{fd, POLLIN, 0};
        const int ready = ::poll(fds, count, static_cast<int>(waitMs));
        if (ready <= 0)
            continue;
        if (m_stdoutFd >= 0)
            readFrom(m_stdoutFd, m_stdout, m_stdoutTotal);
        if (m_stderrFd >= 0)
            readFrom(m_stderrFd, m_stderr, m_stderrTotal);
    }

    // Whatever is still buffered in the pipes belongs to the answer.
    if (m_stdoutFd >= 0)
        readFrom(m_stdoutFd, m_stdout, m_stdoutTotal);
    if (m_stderrFd >= 0)
        readFrom(m_stderrFd, m_stderr, m_stderrTotal);
    closeDescriptors();
    reportEnd();
}

void ExternalProcessThread::reportEnd()
{
    QString how;
    if (m_error == Timedout)
        how = u"ran past its time-out of %1 ms and was killed"_s.arg(m_timeout.count());
    else if (m_abandoned)
        how = u"was killed because its runner was destroyed"_s;
    else if (m_signal != 0)
        how = u"was ended by signal %1 (%2)"_s.arg(m_signal).arg(
            QString::fromLocal8Bit(::strsignal(m_signal)));
    else if (m_error == NoError)
        how = u"exited with status %1"_s.arg(m_exitCode);
    else
        how = u"ended in a way that could not be learnt"_s;
    qCDebug(lcProcess).noquote() << u"Process %1 (%2) %3; it wrote %4 bytes to standard output "
                                    u"and %5 to standard error"_s
                                        .arg(QString::number(m_pid), m_program, how)
                                        .arg(m_stdoutTotal)
                                        .arg(m_stderrTotal);
    for (const auto &[name, total] : {std::pair{"standard output", m_stdoutTotal},
                                      std::pair{"standard error", m_stderrTotal}}) {
        if (total > maxOutputSize)
            qCWarning(lcProcess).noquote()
                << u"Process %1 wrote %2 bytes to its %3: only the first %4 (the limit) were kept"_s
                       .arg(QString::number(m_pid))
                       .arg(total)
                       .arg(QLatin1StringView(name))
                       .arg(maxOutputSize);
    }
    if (ProcessMonitor *m = ProcessMonitor::installed())
        m->finished({m_pid, m_error, m_exitCode, m_signal, m_stdoutTotal, m_stderrTotal});
}
