#include "recordingwriter.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

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

// Closes the descriptor when it goes out of scope.
struct Descriptor
{
    int fd;
    ~Descriptor()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

} // namespace

RecordingWriter::RecordingWriter(const std::string &processingDirectory, std::time_t day)
    : m_folder(processingDirectory + '/' + folder)
    , m_path(m_folder + '/' + dayOf(day) + ".jsonl")
{}

std::string RecordingWriter::dayOf(std::time_t time)
{
    std::tm local{};
    ::localtime_r(&time, &local);
    char text[16];
    std::strftime(text, sizeof text, "%Y-%m-%d", &local);
    return text;
}

bool RecordingWriter::append(const std::string &line)
{
    std::string why;
    if (write(line, why))
        return true;
    noteFailure(why);
    return false;
}

bool RecordingWriter::write(const std::string &line, std::string &why)
{
    if (::mkdir(m_folder.c_str(), 0700) != 0 && errno != EEXIST) {
        why = "cannot create " + m_folder + ": " + std::strerror(errno);
        return false;
    }
    const Descriptor file{::open(m_path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0600)};
    if (file.fd < 0 || ::flock(file.fd, LOCK_EX) != 0) {
        why = "cannot open " + m_path + ": " + std::strerror(errno);
        return false;
    }
    // The size is where a failed write is cut back to: without it, nothing is written.
    struct stat state = {};
    if (::fstat(file.fd, &state) != 0) {
        why = "cannot read the size of " + m_path + ": " + std::strerror(errno);
        return false;
    }
    std::string text;
    char last = '\n';
    if (state.st_size > 0 && ::pread(file.fd, &last, 1, state.st_size - 1) != 1)
        last = '\n';
    if (last != '\n')
        text += '\n'; // ends a line torn by an earlier writer
    text += line;
    text += '\n';
    if (!writeAll(file.fd, text.data(), text.size()) || ::fdatasync(file.fd) != 0) {
        why = "cannot write " + m_path + ": " + std::strerror(errno);
        // What did get written is cut off again, so that no torn line is left behind.
        if (::ftruncate(file.fd, state.st_size) == 0)
            ::fdatasync(file.fd);
        return false;
    }
    return true;
}

void RecordingWriter::noteFailure(const std::string &why)
{
    const std::string path = m_folder + '/' + failureFile;
    const Descriptor file{::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)};
    if (file.fd >= 0) {
        const std::string text = why + '\n';
        writeAll(file.fd, text.data(), text.size());
    }
    ::utimensat(AT_FDCWD, path.c_str(), nullptr, 0); // the time, even with no space for the text
}
