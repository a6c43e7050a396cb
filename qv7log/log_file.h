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

// A number that each process has of its own: it is 0 again in a forked child, whatever the other
// threads of the parent were doing with it at the fork.
class ProcessCount
{
public:
    void Add(std::uint32_t count, pid_t process);
    void Subtract(std::uint32_t count);  // at most what the process has added
    std::uint32_t Get(pid_t process) const;
    std::uint32_t Take(pid_t process);  // gets it and sets it to 0

private:
    std::atomic<std::uint64_t> m_value{0};  // process id << 32 | count
};

class LogFile
{
public:
    // Opens the log at `path`, which is created with its folders if need be. Returns 0 or an errno.
    // The log gets the lowest free descriptor, which every program started from here inherits and
    // which keeps its number for ever. The calling process is the one that rotates; children that
    // it forks do not.
    int Open(const char* path);

    // Appends the record of `size` bytes at `line` by one write. False: it is in no file.
    bool Append(const char* line, std::size_t size, pid_t process);

    // Goes on with the file at the log's path if that is no longer the one that is open: another
    // process has rotated, or someone has taken the log away. Looks once in each `millisecond`.
    void Follow(std::int64_t millisecond, pid_t process);

    // Records that could not be written.
    ProcessCount lost;

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
        kBusy,  // other threads of this process are at it
    };

    Outcome TryAppend(const char* line, std::size_t size, pid_t process, std::int64_t& file_size);

    static bool TakeTurn(pid_t process);
    static void EndTurn();

    int StorePath(const char* path);
    int OpenOrCreate(int flags);
    bool MakeFolders();
    bool OpenLock();
    bool Lock();
    void Unlock();

    bool IsCurrent(struct stat& status) const;
    Change Reopen(pid_t process);
    Change OpenAgain(pid_t process);
    bool WaitForWriters(pid_t process);
    void Rotate(pid_t process);
    void ShiftOldFiles();

    char m_path[PATH_MAX] = {};
    int m_log = -1;
    int m_lock = -1;
    pid_t m_owner = 0;
    std::atomic<std::int64_t> m_followed{-1};  // the millisecond of the last look
    ProcessCount m_writers;                    // threads in TryAppend
    std::atomic<pid_t> m_leaving{0};           // the process that waits for them to end, or 0
};

}  // namespace qv7log
