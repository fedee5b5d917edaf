// The recorder: it takes the payment client's place in a processing directory, as
// ./zelnorinpas, and runs the real client, kept beside it as zelnorinpas.real, with the same
// arguments, directory and environment. The host gets byte for byte what the client writes and
// the same exit status, or the same death by a signal; every signal that would end the recorder
// reaches the client instead; the host's kill of the process group on time-out ends both.
//
// Every run is kept in recordings/ (RecordingWriter): a start line, flushed to disk before the
// client starts, and, once it has ended, an end line with what the recorder itself knows (how
// it ended, whether the answer reached the host, how much it wrote and whether that reads as an
// approval). The outputs themselves, card data masked, are written by the scribe
// (zelnorinpas-scribe), started on the way out in a session of its own: the card rule is Qt's,
// and loading Qt costs more than the recorder's whole budget. Recording never changes what the
// host sees: no wait before the client starts is longer than a small budget, and when nothing
// can be written, the client runs all the same.
//
// Plain C++ and POSIX: this program stands in the host's way on every payment.

#include "answerstatus.h"

#include <fieldkinds.h>
#include <recordingkeys.h>
#include <recordingline.h>
#include <recordingwriter.h>
#include <scribeprotocol.h>
#include <signalpipe.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace {

namespace k = recordingkeys;
using Clock = std::chrono::steady_clock;

// The first part of each stream that the recording keeps; the rest is only counted. An answer
// is a few kilobytes; a full report some tens.
constexpr size_t keptBytes = 256 * 1024;
// How long the output is still read after the client ended, for what a child of it may hold
// open: the host's runner gives up after as long.
constexpr std::chrono::milliseconds drainGrace{200};
constexpr const char *realClient = "zelnorinpas.real";
constexpr const char *scribe = "zelnorinpas-scribe";

// A stream of the client's: passed on to ours as it comes, its head kept, all of it counted.
struct Stream
{
    int from = -1;
    int to = -1;
    bool passing = true; // false once a write to the host failed
    std::string head;
    uint64_t bytes = 0;

    bool cut() const { return bytes > head.size(); }

    // The head of a stream that was cut ends on a character boundary, so that no letter cut in
    // two reaches the scribe as bytes that are not UTF-8.
    void endOnBoundary()
    {
        if (!cut())
            return;
        size_t end = head.size();
        size_t back = 0;
        while (back < 3 && back < end && (uint8_t(head[end - 1 - back]) & 0xc0) == 0x80)
            ++back;
        if (back < end) {
            const uint8_t lead = uint8_t(head[end - 1 - back]);
            const size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc0 ? 2 : 1;
            if (length > back + 1)
                head.resize(end - 1 - back);
        }
    }

    void take(const char *data, size_t size)
    {
        bytes += size;
        if (head.size() < keptBytes)
            head.append(data, std::min(size, keptBytes - head.size()));
        for (size_t done = 0; passing && done < size;) {
            const ssize_t n = ::write(to, data + done, size - done);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                passing = false; // the host is gone or stopped reading: not delivered
            else
                done += size_t(n);
        }
    }
};

// The client's arguments as the recording may show them: the operation code, then each option
// with its value by the option's kind. The customer's code is card data whole, and an option
// the table does not know is the client's text, which only the scribe can mask: both by length.
std::vector<std::string> shownArguments(int argc, char **argv)
{
    return FieldKinds::shownArguments({argv + 1, argv + argc});
}

// The customer's code the client was sent, for the scribe to find it by its value.
std::string customerCodeOf(int argc, char **argv)
{
    for (int i = 3; i < argc; i += 2)
        if (FieldKinds::ofOption(std::string_view(argv[i - 1])) == ValueKind::CustomerQr)
            return argv[i];
    return {};
}

// The directory of a path: where this program was run from, as the host ran it
// (./zelnorinpas in the processing directory), or where its own file lies.
std::string directoryOf(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

// Where this program's own file lies, for the scribe beside it.
std::string ownDirectory()
{
    char path[4096];
    const ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0)
        return ".";
    path[n] = '\0';
    return directoryOf(path);
}

// The scribe's service of the directory, when one runs.
std::string scribeSocket;

// Flushes to disk through the scribe's service, so that no process is made for it on every run.
bool flushByScribe(const std::vector<int> &descriptors, std::chrono::milliseconds budget)
{
    return scribeprotocol::request(scribeSocket, std::string(scribeprotocol::syncVerb), descriptors,
                                   budget);
}

// Hands the kept outputs to the scribe as an in-memory file, so that handing them over never
// waits for it: to the directory's service when one answers, else to a scribe started for it in
// a session of its own (so that nothing sent to the host's process group reaches it), which
// then stays as the service. Returns why no scribe could be started, or an empty text.
std::string handToScribe(const std::string &directory, std::time_t day, const std::string &run,
                         const std::string &id, const Stream &out, const Stream &err,
                         const std::string &customerCode)
{
    const std::string program = ownDirectory() + '/' + scribe;
    const int memory = int(::syscall(SYS_memfd_create, "zelnorinpas-scribe", MFD_CLOEXEC));
    if (memory < 0)
        return program + ": " + std::strerror(errno);
    std::string input = std::to_string(int(out.cut())) + ' ' + std::to_string(int(err.cut())) +
                        '\n' + std::to_string(out.head.size()) + '\n' + out.head +
                        std::to_string(err.head.size()) + '\n' + err.head +
                        std::to_string(customerCode.size()) + '\n' + customerCode;
    for (size_t done = 0; done < input.size();) {
        const ssize_t n = ::write(memory, input.data() + done, input.size() - done);
        if (n <= 0 && errno != EINTR)
            break;
        done += size_t(std::max<ssize_t>(n, 0));
    }
    ::lseek(memory, 0, SEEK_SET);
    const std::string dayText = std::to_string(day);
    if (scribeprotocol::request(scribeSocket,
                                std::string(scribeprotocol::outputVerb) + ' ' + dayText + ' ' +
                                    run + ' ' + id,
                                {memory}, std::chrono::milliseconds(100))) {
        ::close(memory);
        return {};
    }
    const char *arguments[] = {program.c_str(), directory.c_str(), dayText.c_str(),
                               run.c_str(),     id.c_str(),        nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, memory, STDIN_FILENO);
    for (int fd : {STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    sigset_t set;
    sigemptyset(&set);
    posix_spawnattr_setsigmask(&attributes, &set);
    sigfillset(&set);
    sigdelset(&set, SIGKILL);
    sigdelset(&set, SIGSTOP);
    posix_spawnattr_setsigdefault(&attributes, &set);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, program.c_str(), &actions, &attributes,
                                  const_cast<char **>(arguments), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(memory);
    return error == 0 ? std::string() : program + ": " + std::strerror(error);
}

// Ends this process as the client ended: with its exit status, or by the same signal.
[[noreturn]] void endAs(int status)
{
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        const rlimit noCore{0, 0}; // the client's own core, if any, is the one that matters
        ::setrlimit(RLIMIT_CORE, &noCore);
        struct sigaction fallback = {};
        fallback.sa_handler = SIG_DFL;
        ::sigaction(signal, &fallback, nullptr);
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, signal);
        ::sigprocmask(SIG_UNBLOCK, &set, nullptr);
        ::raise(signal);
        ::_exit(128 + signal);
    }
    ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
}

// The client to run, opened now, before anything else can happen to its name: zelnorinpas.real,
// or, when the recorder was turned off in the moment since the host started it, the client back
// as ./zelnorinpas (any file there but this very recorder). Returns the descriptor, or -1 with
// errno set.
int openClient(const std::string &directory, std::string &path)
{
    path = directory + '/' + realClient;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0 || errno != ENOENT)
        return fd;
    const std::string back = directory + "/zelnorinpas";
    const int other = ::open(back.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat own = {}, found = {};
    if (other >= 0 && ::stat("/proc/self/exe", &own) == 0 && ::fstat(other, &found) == 0 &&
        (own.st_dev != found.st_dev || own.st_ino != found.st_ino)) {
        path = back;
        return other;
    }
    if (other >= 0)
        ::close(other);
    errno = ENOENT;
    return -1;
}

// Spawns the client opened as fd with the pipes of its outputs, every signal at its default as
// the host would have left it. The client is run through its descriptor, so that what was opened
// is what runs, whatever is renamed meanwhile; a script's interpreter is given the same
// descriptor's path. Returns the error number, or 0.
int startClient(int fd, char **argv, Stream &out, Stream &err, pid_t &pid)
{
    int outPipe[2] = {-1, -1};
    int errPipe[2] = {-1, -1};
    if (fd < 0)
        return errno;
    if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0)
        return errno;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    sigset_t set;
    sigemptyset(&set);
    posix_spawnattr_setsigmask(&attributes, &set);
    sigfillset(&set);
    sigdelset(&set, SIGKILL);
    sigdelset(&set, SIGSTOP);
    posix_spawnattr_setsigdefault(&attributes, &set);
    // argv[0] stays the name the host ran: a program sees ./zelnorinpas. A script sees the
    // descriptor's path as its $0: the kernel gives an interpreter the path it ran, which must
    // then stay open in it; a program's is closed as it starts.
    char head[2] = {};
    const bool script = ::pread(fd, head, 2, 0) == 2 && head[0] == '#' && head[1] == '!';
    ::fcntl(fd, F_SETFD, script ? 0 : FD_CLOEXEC);
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    const int error = posix_spawn(&pid, path.c_str(), &actions, &attributes, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(fd);
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    out.from = outPipe[0];
    err.from = errPipe[0];
    ::fcntl(out.from, F_SETFL, O_NONBLOCK);
    ::fcntl(err.from, F_SETFL, O_NONBLOCK);
    return error;
}

// Passes the client's outputs on to the host and every signal for the recorder on to the
// client, until the client has ended and its outputs are drained. Returns its wait status.
int passThrough(pid_t pid, Stream &out, Stream &err, SignalPipe &signals)
{
    const int pidFd = int(::syscall(SYS_pidfd_open, pid, 0));
    int status = 0;
    bool exited = false;
    Clock::time_point exitedAt;
    char buffer[65536];
    for (;;) {
        if (!exited && ::waitpid(pid, &status, WNOHANG) == pid) {
            exited = true;
            exitedAt = Clock::now();
        }
        if (out.from < 0 && err.from < 0 && exited)
            break;
        int timeout = -1;
        if (exited) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(exitedAt + drainGrace - Clock::now());
            if (left.count() <= 0)
                break;
            timeout = int(left.count());
        } else if (pidFd < 0) {
            timeout = 5; // no process descriptor: look again for its end now and then
        }
        pollfd fds[4];
        nfds_t count = 0;
        for (int fd : {out.from, err.from, signals.descriptor(), exited ? -1 : pidFd})
            if (fd >= 0)
                fds[count++] = pollfd{fd, POLLIN, 0};
        if (::poll(fds, count, timeout) <= 0)
            continue;
        for (Stream *stream : {&out, &err}) {
            if (stream->from < 0)
                continue;
            const ssize_t n = ::read(stream->from, buffer, sizeof buffer);
            if (n > 0) {
                stream->take(buffer, size_t(n));
            } else if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
                ::close(stream->from);
                stream->from = -1;
            }
        }
        for (int signal; (signal = signals.next(std::chrono::milliseconds(0))) > 0;)
            ::kill(pid, signal);
    }
    if (!exited)
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    if (pidFd >= 0)
        ::close(pidFd);
    return status;
}

} // namespace

int main(int argc, char *argv[])
{
    const auto startedAt = std::chrono::system_clock::now();
    const Clock::time_point started = Clock::now();
    // Every signal that would end the recorder is passed on to the client, from here on.
    SignalPipe signals(SignalPipe::endingSignals(), SignalPipe::Restore::Never);
    const pid_t host = ::getppid();

    const std::string directory = directoryOf(argv[0]);
    std::string client;
    const int clientFd = openClient(directory, client);
    const std::time_t day = std::chrono::system_clock::to_time_t(startedAt);
    const std::string startTime = RecordingLine::isoTime(startedAt);
    const std::string id = startTime.substr(0, 23) + '-' + std::to_string(::getpid());
    // The name of the run's own file, for a line that cannot wait for the day's lock.
    const std::string run = startTime.substr(11, 2) + startTime.substr(14, 2) +
                            startTime.substr(17, 6) + '-' + std::to_string(::getpid());
    RecordingWriter recording(directory, day, run);
    scribeSocket = scribeprotocol::socketPath(directory);
    RecordingWriter::setFlusher(&flushByScribe);

    RecordingLine start(k::start);
    start.add(k::id, id).add(k::time, startTime).add(k::pid, ::getpid());
    start.addTexts(k::arguments, shownArguments(argc, argv));
    if (const char *acknowledging = std::getenv(k::hostVariable))
        start.add(k::host, std::string(acknowledging));
    start.add(k::hostPid, host);
    recording.append(start.text(), RecordingWriter::hurried());

    Stream out;
    Stream err;
    out.head.reserve(keptBytes);
    out.to = STDOUT_FILENO;
    err.to = STDERR_FILENO;
    pid_t pid = 0;
    const int spawnError = startClient(clientFd, argv, out, err, pid);
    int status = 0;
    if (spawnError != 0) {
        const std::string text = "zelnorinpas: cannot start the payment client " + client + ": " +
                                 std::strerror(spawnError) + '\n';
        err.take(text.data(), text.size());
        status = 127 << 8;
    } else {
        status = passThrough(pid, out, err, signals);
    }

    const bool delivered = out.passing && err.passing && ::getppid() == host;
    out.endOnBoundary();
    err.endOnBoundary();
    const std::string scribeError =
        handToScribe(directory, day, run, id, out, err, customerCodeOf(argc, argv));
    RecordingLine end(k::end);
    end.add(k::id, id).add(k::time, RecordingLine::isoTime(std::chrono::system_clock::now()));
    end.add(k::durationMs,
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started).count());
    if (spawnError != 0)
        end.add(k::startError, client + ": " + std::strerror(spawnError));
    if (WIFSIGNALED(status))
        end.add(k::signal, WTERMSIG(status));
    else
        end.add(k::exitStatus, WEXITSTATUS(status));
    end.add(k::delivered, delivered);
    end.add(k::approval, answerStatus(out.head) == 1);
    end.add(k::stdoutBytes, out.bytes).add(k::stderrBytes, err.bytes);
    if (out.cut())
        end.add(k::stdoutCut, true);
    if (err.cut())
        end.add(k::stderrCut, true);
    if (!scribeError.empty())
        end.add(scribe, scribeError);
    // Not waited for on disk: the scribe flushes the day once it has written the outputs, and a
    // run whose end is lost reads as one whose outcome is unknown, never as a settled one.
    recording.append(end.text(),
                     {RecordingWriter::hurried().lock, std::chrono::milliseconds(0), false});
    endAs(status);
}
