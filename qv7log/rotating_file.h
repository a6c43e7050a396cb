// The file that records are appended to, by many threads and processes at once.
//
// Threads:  every function but Open may be called at any time, in a forked child too. What another
//           thread or process is doing already is left to it; nothing waits for its end.
// Lifetime: never destroyed; threads log while the exit-time destructors run.
// Errors:   a record that cannot be written is for the caller to count, in `lost`.
#pragma once

#include <limits.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "qv7log/process_count.h"

namespace qv7log {

class RotatingFile
{
public:
    // Opens the log at `path`, which is created with its folders if need be. Returns 0 or an errno.
    // The log gets the lowest free descriptor, which every program started from here inherits and
    // which keeps its number for ever. The calling process is the one that rotates; children that
    // it forks do not.
    int Open(const char* path);

    // Appends the record of `size` bytes at `line` by one write. False: it is in no file.
    bool Append(const char* line, std::size_t size, pid_t process);

    // Before a record of the time `time`: goes on with the file at the log's path if that is no
    // longer the one that is open, since another process has rotated or someone has taken the log
    // away. In a burst, records less than a microsecond apart, it looks once in each millisecond;
    // what is logged until then is in the file that was taken away.
    void ReopenIfMoved(const timespec& time, pid_t process);

    // Records that could not be written.
    ProcessCount lost;

private:
    enum class Change
    {
        kDone,
        kFailed,
        kBusy,  // another thread of this process is changing the file
    };

    int StorePath(const char* path);
    int OpenOrCreate(int flags);
    bool CreateDirectories();
    bool OpenLock();
    bool Lock();
    void Unlock();

    bool IsAtPath(struct stat& status) const;
    Change Reopen(pid_t process);
    Change SwitchToCurrentFile();
    void Rotate(pid_t process);
    void ShiftOldFiles();

    char m_path[PATH_MAX] = {};
    int m_log = -1;
    int m_lock = -1;
    pid_t m_owner = 0;
    std::atomic<std::int64_t> m_last_record{0};  // when it was written, in nanoseconds
    std::atomic<std::int64_t> m_last_check{0};   // the millisecond of ReopenIfMoved's last one
    std::atomic<bool> m_unlinked{false};         // the file is removed and cannot be created again
    std::atomic<std::int64_t> m_size{0};         // as far as this process knows
};

}  // namespace qv7log
