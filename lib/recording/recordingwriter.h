#pragma once

#include <ctime>
#include <string>

// One day of the payment client's conversations in a processing directory:
// recordings/YYYY-MM-DD.jsonl (folder 0700, file 0600), append-only, one JSON line per event.
// Plain C++, for the recorder that stands in the host's way.
//
// Lines are appended whole under an exclusive lock, so that several clients at once never mix
// their lines, and each is flushed to disk (fdatasync) before append() returns. A last line that
// an earlier writer left torn (power lost in the middle of it) is ended first, so that it stays
// a line of its own which readers skip, and no later line is lost with it.
//
// When a line cannot be written (a full disk, a file that may not grow, no permission), the
// failure is noted in recordings/failed: its time as the file's modification time, which needs
// no free space, and its reason as the file's text when that can be written.
class RecordingWriter
{
public:
    static constexpr const char *folder = "recordings";
    static constexpr const char *failureFile = "failed";

    RecordingWriter(const std::string &processingDirectory, std::time_t day);

    bool append(const std::string &line);
    const std::string &path() const { return m_path; }

    // "YYYY-MM-DD" of the local day of the time.
    static std::string dayOf(std::time_t time);

private:
    bool write(const std::string &line, std::string &why);
    void noteFailure(const std::string &why);

    std::string m_folder;
    std::string m_path;
};
