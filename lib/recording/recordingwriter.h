#pragma once

#include <chrono>
#include <ctime>
#include <string>
#include <vector>

// Appends lines to the recordings of a processing directory: recordings/YYYY-MM-DD.jsonl, one
// JSON line per event. Plain C++, for the recorder that stands in the host's way.
//
// Lines are appended whole under an exclusive lock, so that several writers at once never mix
// them. A last line that an earlier writer left torn (power lost in the middle of it) is ended
// first, so that it stays a line of its own which readers skip, and no later line is lost with
// it. A write that cannot be made whole is cut back to where the file ended.
//
// Nothing is opened through a symbolic link: the folder and its files are opened from the
// processing directory's descriptor without following links, and a link where one of them
// should be is refused. The folder is kept at 0700 and its files at 0600, whatever they were.
// What is created (the folder, a day's file, the failure note) is made durable with the
// directory that holds it, so that a power loss cannot take a file away with its lines.
//
// A writer in a hurry gives a budget: the lock is waited for only so long, after which the line
// goes into a file of the run's own (recordings/YYYY-MM-DD.RUN.jsonl, which no other writer
// uses, so needs no lock, and which readers read with the day's file); and the flush to disk is
// waited for only so long, after which it finishes in a helper process while the writer goes
// on. A line that cannot be written anywhere is noted in recordings/failed: appended there as
// a line of its own when it can grow, and at least as the file's modification time.
class RecordingWriter
{
public:
    static constexpr const char *folder = "recordings";
    static constexpr const char *failureFile = "failed";

    // How long append() may wait; negative: as long as it takes.
    struct Budget
    {
        std::chrono::milliseconds lock;
        std::chrono::milliseconds sync;
        bool syncs; // false: the page cache is enough (a line that may be lost safely)
    };
    static constexpr Budget patient()
    {
        return {std::chrono::milliseconds(-1), std::chrono::milliseconds(-1), true};
    }
    // Before the payment client starts: a few hundred milliseconds in all, at most.
    static constexpr Budget hurried()
    {
        return {std::chrono::milliseconds(150), std::chrono::milliseconds(150), true};
    }

    enum class Where { DayFile, RunFile, Nowhere };

    // Who flushes within a budget: a process that lives on, which finishes the flush whatever
    // happens to the writer. By default a helper forked for it; a flusher that answers false
    // leaves it to that helper.
    using Flusher = bool (*)(const std::vector<int> &descriptors, std::chrono::milliseconds budget);
    static void setFlusher(Flusher flusher);

    // run: the name of the run's own file, for a line that cannot wait for the day's lock.
    RecordingWriter(std::string processingDirectory, std::time_t day, std::string run);

    Where append(const std::string &line, const Budget &budget = patient());
    // Why the last append() did not reach the day's file, when it did not.
    const std::string &error() const { return m_error; }

    // "YYYY-MM-DD" of the local day of the time.
    static std::string dayOf(std::time_t time);

private:
    Where write(const std::string &line, const Budget &budget);
    void noteFailure(const Budget &budget);

    std::string m_directory;
    std::string m_day;
    std::string m_run;
    std::string m_error;
};
