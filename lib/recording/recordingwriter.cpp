#include "recordingwriter.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// A descriptor that is closed when it goes out of scope.
class Descriptor
{
public:
    explicit Descriptor(int fd = -1)
        : m_fd(fd)
    {}
    ~Descriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(Descriptor &&other) noexcept
        : m_fd(std::exchange(other.m_fd, -1))
    {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }

private:
    int m_fd;
};

std::string reason(const std::string &what, const std::string &path)
{
    return what + ' ' + path + ": " + std::strerror(errno);
}

// Writes all of it, whatever the kernel takes at a time.
bool writeAll(int fd, const char *data, size_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= size_t(n);
    }
    return true;
}

// Puts a mode right that someone made wider (or narrower) than ours.
void keepMode(int fd, mode_t mode)
{
    struct stat state = {};
    if (::fstat(fd, &state) == 0 && (state.st_mode & 07777) != mode)
        ::fchmod(fd, mode);
}

// The recordings folder, opened from the processing directory without following a link; made
// when it is not there. created tells whether the processing directory got a new entry.
Descriptor openFolder(int directory, bool &created, std::string &why)
{
    created = ::mkdirat(directory, RecordingWriter::folder, 0700) == 0;
    if (!created && errno != EEXIST) {
        why = reason("cannot create", RecordingWriter::folder);
        return Descriptor();
    }
    Descriptor folder(::openat(directory, RecordingWriter::folder,
                               O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder.valid()) {
        why = errno == ENOTDIR || errno == ELOOP
                  ? std::string(RecordingWriter::folder) + " is not a folder of its own (a link?)"
                  : reason("cannot open", RecordingWriter::folder);
        return Descriptor();
    }
    keepMode(folder.get(), 0700);
    return folder;
}

// A file of the folder, opened for appending without following a link: a regular file only.
Descriptor openFile(int folder, const std::string &name, bool &created, std::string &why)
{
    const int flags = O_RDWR | O_APPEND | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    Descriptor file(::openat(folder, name.c_str(), flags | O_CREAT | O_EXCL, 0600));
    created = file.valid();
    if (!created && errno == EEXIST)
        file = Descriptor(::openat(folder, name.c_str(), flags));
    struct stat state = {};
    if (!file.valid() || ::fstat(file.get(), &state) != 0 || !S_ISREG(state.st_mode)) {
        why = !file.valid() && errno == ELOOP
                  ? name + " is a link, and nothing is written through it"
              : file.valid() ? name + " is not a plain file"
                             : reason("cannot open", name);
        return Descriptor();
    }
    keepMode(file.get(), 0600);
    return file;
}

// Takes the file's lock, waiting at most the budget (negative: as long as it takes).
bool lock(int fd, std::chrono::milliseconds budget)
{
    if (budget.count() < 0) {
        while (::flock(fd, LOCK_EX) != 0)
            if (errno != EINTR)
                return false;
        return true;
    }
    const Clock::time_point until = Clock::now() + budget;
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            return false;
        if (Clock::now() >= until)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Appends the line whole, ending a torn last line first; a write that fails is cut back.
bool appendLine(int fd, const std::string &line, const std::string &name, std::string &why)
{
    struct stat state = {};
    // The size is where a failed write is cut back to: without it, nothing is written.
    if (::fstat(fd, &state) != 0) {
        why = reason("cannot read the size of", name);
        return false;
    }
    char last = '\n';
    if (state.st_size > 0 && ::pread(fd, &last, 1, state.st_size - 1) != 1)
        last = '\n';
    std::string text;
    if (last != '\n')
        text += '\n'; // ends a line torn by an earlier writer
    text += line;
    text += '\n';
    if (writeAll(fd, text.data(), text.size()))
        return true;
    why = reason("cannot write", name);
    if (::ftruncate(fd, state.st_size) != 0) {
        // What did get written cannot be taken back: ended, so that it stays a torn line of its
        // own that readers skip.
        [[maybe_unused]] const ssize_t n = ::write(fd, "\n", 1);
    }
    return false;
}

RecordingWriter::Flusher flusher = nullptr;

// Flushes the file and the folders that got a new entry to disk. Within a budget, the flush
// is done by a process of its own, which finishes it whatever happens to the writer.
void makeDurable(std::vector<int> files, const RecordingWriter::Budget &budget)
{
    const auto flush = [&files] {
        for (int fd : files)
            ::fsync(fd);
    };
    if (budget.sync.count() < 0) {
        flush();
        return;
    }
    if (flusher && flusher(files, budget.sync))
        return;
    int done[2];
    if (::pipe2(done, O_CLOEXEC) != 0) {
        flush();
        return;
    }
    const pid_t helper = ::fork();
    if (helper == 0) {
        ::setsid(); // out of the host's process group: its kill on time-out does not stop this
        // Nothing of the writer's standard descriptors: they may be a host's pipes, which the
        // host reads until the last writer has closed them.
        for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
            ::close(fd);
        flush();
        ::_exit(0);
    }
    ::close(done[1]);
    if (helper > 0) {
        // The helper's end closes its copy of the pipe; the writer waits for that or the budget.
        pollfd fd{done[0], POLLIN, 0};
        while (::poll(&fd, 1, int(budget.sync.count())) < 0 && errno == EINTR) {
        }
        // One still flushing is left to finish on its own, reaped by whoever inherits it.
        ::waitpid(helper, nullptr, WNOHANG);
    } else {
        flush();
    }
    ::close(done[0]);
}

} // namespace

void RecordingWriter::setFlusher(Flusher newFlusher)
{
    flusher = newFlusher;
}

RecordingWriter::RecordingWriter(std::string processingDirectory, std::time_t day, std::string run)
    : m_directory(std::move(processingDirectory))
    , m_day(dayOf(day))
    , m_run(std::move(run))
{}

std::string RecordingWriter::dayOf(std::time_t time)
{
    std::tm local{};
    ::localtime_r(&time, &local);
    char text[16];
    std::strftime(text, sizeof text, "%Y-%m-%d", &local);
    return text;
}

RecordingWriter::Where RecordingWriter::append(const std::string &line, const Budget &budget)
{
    m_error.clear();
    const Where where = write(line, budget);
    if (where != Where::DayFile && !m_error.empty())
        noteFailure(budget);
    return where;
}

RecordingWriter::Where RecordingWriter::write(const std::string &line, const Budget &budget)
{
    const Descriptor directory(::open(m_directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.valid()) {
        m_error = reason("cannot open", m_directory);
        return Where::Nowhere;
    }
    bool newFolder = false;
    const Descriptor recordings = openFolder(directory.get(), newFolder, m_error);
    if (!recordings.valid())
        return Where::Nowhere;

    // The day's file, under its lock within the budget; else the run's own file.
    Where where = Where::DayFile;
    bool newFile = false;
    std::string name = m_day + ".jsonl";
    Descriptor file = openFile(recordings.get(), name, newFile, m_error);
    if (file.valid() && !lock(file.get(), budget.lock)) {
        m_error = "the lock of " + name + " was held longer than the recorder may wait";
        where = Where::RunFile;
        name = m_day + '.' + m_run + ".jsonl";
        file = openFile(recordings.get(), name, newFile, m_error);
        if (file.valid() && !lock(file.get(), std::chrono::milliseconds(-1)))
            file = Descriptor();
    }
    if (!file.valid() || !appendLine(file.get(), line, name, m_error))
        return Where::Nowhere;
    ::flock(file.get(), LOCK_UN); // never held while the disk is waited for

    if (budget.syncs || newFolder || newFile) {
        std::vector<int> durable{file.get()};
        if (newFile)
            durable.push_back(recordings.get());
        if (newFolder)
            durable.push_back(directory.get());
        makeDurable(durable, budget);
    }
    return where;
}

void RecordingWriter::noteFailure(const Budget &budget)
{
    const Descriptor directory(::open(m_directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    bool newFolder = false;
    std::string why;
    const Descriptor recordings =
        directory.valid() ? openFolder(directory.get(), newFolder, why) : Descriptor();
    if (!recordings.valid())
        return;
    bool newFile = false;
    const Descriptor file = openFile(recordings.get(), failureFile, newFile, why);
    if (!file.valid())
        return;
    const std::time_t now = std::time(nullptr);
    char when[32];
    std::tm local{};
    ::localtime_r(&now, &local);
    std::strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%S", &local);
    // Appended, never replacing an earlier one: each stays until a person settles it.
    if (lock(file.get(), budget.lock))
        appendLine(file.get(), std::string(when) + ' ' + m_run + ' ' + m_error, failureFile, why);
    ::futimens(file.get(), nullptr); // the time, even with no space for the text
    std::vector<int> durable{file.get()};
    if (newFile)
        durable.push_back(recordings.get());
    makeDurable(durable, budget);
}
