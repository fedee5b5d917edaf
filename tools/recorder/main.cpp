// The recorder: it takes the payment client's place in a processing directory, as
// ./zelnorinpas, and runs the real client, kept beside it as zelnorinpas.real, with the same
// arguments, directory and environment. The host gets byte for byte what the client writes and
// the same exit status, or the same death by a signal; SIGINT and the other signals that ask
// the client to stop reach it; the host's kill of the process group on time-out ends both.
//
// Every run is kept in recordings/ (RecordingWriter): a start line flushed to disk before the
// client starts, and an end line with how it ended, its outputs with card data masked, and
// whether the answer reached the host. Recording never changes what the host sees: when it
// cannot be written, the client runs all the same.
//
// Plain C++ and POSIX: this program stands in the host's way on every payment, and loading Qt
// costs more than its whole budget. The card rule, which is Qt's, is applied by the scribe
// (zelnorinpas-scribe), started on the way out, after the host has its answer.

#include <fieldkinds.h>
#include <recordingwriter.h>
#include <signalpipe.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace {

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

// A text as a JSON string: quotes and backslashes escaped, control characters as \u00XX, and
// bytes that are not UTF-8 as U+FFFD, so that every reader can read the line.
std::string jsonString(const std::string &text)
{
    std::string out = "\"";
    for (size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
            ++i;
        } else if (c < 0x20 || c == 0x7f) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            out += escape;
            ++i;
        } else if (c < 0x80) {
            out += char(c);
            ++i;
        } else {
            const size_t length = c >= 0xf0 ? 4 : c >= 0xe0 ? 3 : c >= 0xc2 ? 2 : 0;
            bool valid = length > 0 && c < 0xf5 && i + length <= text.size();
            for (size_t k = 1; valid && k < length; ++k)
                valid = (static_cast<unsigned char>(text[i + k]) & 0xc0) == 0x80;
            if (valid) {
                out.append(text, i, length);
                i += length;
            } else {
                out += "\xef\xbf\xbd";
                ++i;
            }
        }
    }
    return out + '"';
}

// The local time as ISO 8601 with milliseconds and the offset, as Qt reads it back.
std::string isoTime(std::chrono::system_clock::time_point when)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count() %
        1000;
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char date[32];
    char zone[8];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
    std::strftime(zone, sizeof zone, "%z", &local);
    char text[48];
    std::snprintf(text, sizeof text, "%s.%03d%.3s:%s", date, int(ms), zone, zone + 3);
    return text;
}

// The client's arguments as the recording may show them: the operation code, then each option
// with its value by the option's kind. The customer's code is card data whole, and an option
// the table does not know is the client's text, which only the scribe can mask: both by length.
std::string shownArguments(int argc, char **argv)
{
    std::string out = "[";
    for (int i = 1; i < argc; ++i) {
        std::string value = argv[i];
        if (i >= 3 && i % 2 == 1) {
            const ValueKind kind = FieldKinds::ofOption(std::string_view(argv[i - 1]));
            if (kind == ValueKind::CustomerQr)
                value = "<QR " + std::to_string(value.size()) + " bytes>";
            else if (kind != ValueKind::Host)
                value = "<" + std::to_string(value.size()) + " bytes>";
        }
        out += (i > 1 ? "," : "") + jsonString(value);
    }
    return out + ']';
}

// The directory this program was run from, as the host ran it: ./zelnorinpas in the
// processing directory.
std::string processingDirectory(const char *argv0)
{
    const std::string path = argv0;
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
    return processingDirectory(path);
}

// The scribe, started while the client runs so that its start-up is off the host's way, and
// fed the run's end through a pipe once it is known. It holds none of the host's descriptors;
// the host does not wait for it. Should this process be killed, the scribe reads nothing and
// writes nothing: a start without an end is what such a run is.
class Scribe
{
public:
    Scribe(const std::string &directory, std::time_t day)
        : m_directory(directory)
        , m_day(day)
    {
        int pipe[2];
        if (::pipe2(pipe, O_CLOEXEC) != 0) {
            m_error = errno;
            return;
        }
        const std::string program = ownDirectory() + '/' + scribe;
        const std::string dayText = std::to_string(day);
        const char *arguments[] = {program.c_str(), directory.c_str(), dayText.c_str(), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, pipe[0], STDIN_FILENO);
        for (int fd : {STDOUT_FILENO, STDERR_FILENO})
            posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_WRONLY, 0);
        pid_t pid = 0;
        m_error = posix_spawn(&pid, program.c_str(), &actions, nullptr,
                              const_cast<char **>(arguments), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(pipe[0]);
        m_pipe = pipe[1];
        if (m_error != 0)
            m_program = program;
    }
    ~Scribe()
    {
        if (m_pipe >= 0)
            ::close(m_pipe);
    }

    // The end line without the outputs, then each kept output as its length and its bytes.
    void hand(const std::string &end, const Stream &out, const Stream &err)
    {
        if (m_error != 0) {
            // No scribe: the end is kept without the outputs, which only the scribe may write.
            RecordingWriter(m_directory, m_day)
                .append(end.substr(0, end.size() - 1) + ",\"scribe\":" +
                        jsonString(m_program + ": " + std::strerror(m_error)) + '}');
            return;
        }
        write(end + '\n');
        for (const Stream *stream : {&out, &err}) {
            write(std::to_string(stream->head.size()) + '\n');
            write(stream->head);
        }
    }

private:
    void write(const std::string &text)
    {
        for (size_t done = 0; done < text.size();) {
            const ssize_t n = ::write(m_pipe, text.data() + done, text.size() - done);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return;
            done += size_t(n);
        }
    }

    std::string m_directory;
    std::time_t m_day;
    std::string m_program;
    int m_pipe = -1;
    int m_error = 0;
};

// Ends this process as the client ended: with its exit status, or by the same signal.
[[noreturn]] void endAs(int status)
{
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        const rlimit noCore{0, 0}; // the client's own core, if any, is the one that matters
        ::setrlimit(RLIMIT_CORE, &noCore);
        std::signal(signal, SIG_DFL);
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, signal);
        ::sigprocmask(SIG_UNBLOCK, &set, nullptr);
        ::raise(signal);
        ::_exit(128 + signal);
    }
    ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
}

} // namespace

int main(int argc, char *argv[])
{
    const auto startedAt = std::chrono::system_clock::now();
    const Clock::time_point started = Clock::now();
    // What asks the client to stop is passed on to it.
    SignalPipe signals({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM});
    // A host that is gone or a file that may not grow fails a write, not this process.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    const pid_t host = ::getppid();

    const std::string directory = processingDirectory(argv[0]);
    const std::time_t day = std::chrono::system_clock::to_time_t(startedAt);
    RecordingWriter recording(directory, day);
    char id[64];
    std::snprintf(id, sizeof id, "%s-%d", isoTime(startedAt).substr(0, 23).c_str(),
                  int(::getpid()));
    recording.append("{\"event\":\"start\",\"id\":" + jsonString(id) + ",\"time\":" +
                     jsonString(isoTime(startedAt)) + ",\"pid\":" + std::to_string(::getpid()) +
                     ",\"arguments\":" + shownArguments(argc, argv) + '}');

    Stream out;
    Stream err;
    out.head.reserve(keptBytes);
    out.to = STDOUT_FILENO;
    err.to = STDERR_FILENO;
    int outPipe[2] = {-1, -1};
    int errPipe[2] = {-1, -1};
    const std::string client = directory + '/' + realClient;
    pid_t pid = 0;
    int spawnError =
        ::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0 ? errno : 0;
    if (spawnError == 0) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
        // The client starts with every signal as the host would have left it: at its default.
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
        spawnError = posix_spawn(&pid, client.c_str(), &actions, &attributes, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
        ::close(outPipe[1]);
        ::close(errPipe[1]);
        out.from = outPipe[0];
        err.from = errPipe[0];
        ::fcntl(out.from, F_SETFL, O_NONBLOCK);
        ::fcntl(err.from, F_SETFL, O_NONBLOCK);
    }
    Scribe scribeProcess(directory, day);
    if (spawnError != 0) {
        const std::string why = client + ": " + std::strerror(spawnError);
        const std::string text = "zelnorinpas: cannot start the payment client " + why + '\n';
        err.take(text.data(), text.size());
        scribeProcess.hand(
            "{\"event\":\"end\",\"id\":" + jsonString(id) +
                ",\"time\":" + jsonString(isoTime(std::chrono::system_clock::now())) +
                ",\"durationMs\":0,\"startError\":" + jsonString(why) +
                ",\"exitStatus\":127,\"delivered\":" + (err.passing ? "true" : "false") +
                ",\"stdoutBytes\":0,\"stderrBytes\":" + std::to_string(err.bytes) + '}',
            out, err);
        return 127;
    }

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
        ::waitpid(pid, &status, 0);

    const bool delivered = out.passing && err.passing && ::getppid() == host;
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started).count();
    std::string end = "{\"event\":\"end\",\"id\":" + jsonString(id) +
                      ",\"time\":" + jsonString(isoTime(std::chrono::system_clock::now())) +
                      ",\"durationMs\":" + std::to_string(ms);
    end += WIFSIGNALED(status) ? ",\"signal\":" + std::to_string(WTERMSIG(status))
                               : ",\"exitStatus\":" + std::to_string(WEXITSTATUS(status));
    end += std::string(",\"delivered\":") + (delivered ? "true" : "false");
    for (const auto &[name, stream] : {std::pair{"stdout", &out}, std::pair{"stderr", &err}}) {
        end += ",\"" + std::string(name) + "Bytes\":" + std::to_string(stream->bytes);
        if (stream->bytes > stream->head.size())
            end += ",\"" + std::string(name) + "Cut\":true";
    }
    end += '}';
    scribeProcess.hand(end, out, err);
    endAs(status);
}
