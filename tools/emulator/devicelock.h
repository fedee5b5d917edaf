#pragma once

#include <QString>

#include <atomic>
#include <chrono>

// The emulated terminal is one device: one operation at a time per processing directory,
// across processes. The lock is an exclusive flock() on a file in the directory, held from
// before the journal is read until the process ends, so the kernel releases it whatever way
// the process ends.
class DeviceLock
{
public:
    static constexpr const char *fileName = "zelnorinpas.lock";

    enum Result {
        Acquired,
        Busy,        // another operation held the device for the whole wait
        Interrupted, // SIGINT came while waiting
        Failed,      // the lock file cannot be opened
    };

    DeviceLock() = default;
    ~DeviceLock();
    DeviceLock(const DeviceLock &) = delete;
    DeviceLock &operator=(const DeviceLock &) = delete;

    Result acquire(const QString &directory, std::chrono::milliseconds wait,
                   const std::atomic<bool> &interrupted);

private:
    int m_fd = -1;
};
