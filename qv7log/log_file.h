// The file that records are appended to, by many threads and processes at once.
//
// Threads:  every function but Open may be called at any time, in a forked child too. Nothing
// waits:
//           what another thread or process is doing already is left to it.
// Lifetime: never destroyed; threads log while the exit-time destructors run.
// Errors:   a record that cannot be written is for the caller to count, with AddLost.
#pragma once

#include <limits.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace qv7log {

class LogFile
{
public:
    // Opens the log at `path`, which is created with its folders if need be. Returns 0 or an errno.
    // The log gets the lowest free descriptor, which every program started from here inherits and
    // which keeps its number for ever. The calling process is the one that rotates; children that
    // it forks do not.
    int Open(const char* path);

    // Appends one record of `size` bytes at `line` by one write. `line` begins with a newline,
    // which is written only after a record that did not fit on the disk, to end its line. False:
    // the record is in no file.
    bool Append(const char* line, std::size_t size, pid_t process);

    // Goes on with the file at the log's path if that is no longer the one that is open: another
    // process has rotated, or someone has taken the log away. Looks once in each `millisecond`.
    void Follow(std::int64_t millisecond, pid_t process);

    // Counts records that could not be written.
    void AddLost(std::uint32_t records, pid_t process);

    // The number of records that `process` has lost since the last call. A forked child's count
    // begins at 0.
    std::uint32_t TakeLost(pid_t process);

private:
    enum class Outcome
    {
        kWritten,
        kTorn,    // only a part of it
        kNoFile,  // nothing, or into a file that has been removed
        kFailed,
    };

    enum class Change
    {
        kDone,
        kFailed,
        kBusy,  // another thread of this process is changing the file
    };

    Outcome TryAppend(const char* line, std::size_t size, std::int64_t& file_size);

    bool TakeTurn(pid_t process);
    void EndTurn() { m_turn.store(0); }

    int StorePath(const char* path);
    bool MakeFolders();
    bool OpenLock();
    bool Lock();
    void Unlock();

    bool IsCurrent(struct stat& open_file) const;
    Change Reopen(pid_t process);
    bool OpenAgain();
    void Rotate(pid_t process);
    void ShiftOldFiles();

    char m_path[PATH_MAX] = {};
    int m_log = -1;
    int m_lock = -1;
    pid_t m_owner = 0;
    std::atomic<std::int64_t> m_followed{-1};  // the millisecond of the last look
    std::atomic<pid_t> m_turn{0};              // see TakeTurn
    std::atomic<std::uint64_t> m_lost{0};      // process id << 32 | count
};

}  // namespace qv7log
