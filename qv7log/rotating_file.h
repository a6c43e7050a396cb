// The file to which many threads and processes append records at once.
//
// Threads:  every function except Open and Close may be called at any time, also in a forked child.
//           Only one thread of a process at a time rotates or reopens the file; only one process at
//           a time rotates it. Other threads and processes do not wait, except briefly if there is
//           nothing to write to.
// Lifetime: never destroyed once it is in use: threads log while the exit-time destructors run.
// Errors:   the caller counts the records that could not be written, in `lost`.
#pragma once

#include <limits.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "qv7log/process_count.h"

namespace qv7log {

class RotatingFile
{
public:
    // Opens the log at `path` and creates it and its directories if necessary. Returns 0 or an
    // errno, and then leaves nothing open.
    //
    // The log has two descriptors, each with its own open file description. One has the lowest
    // free number and is for the programs that this process starts: they inherit it, and whatever
    // they do to its flags or its offset has no effect on us. Records are written through the other
    // one, which is close-on-exec. Neither ever changes its number, and both follow a rotation.
    int Open(const char* path);

    void Close();

    // Whether both objects are the same log: they have the same file open, or have the same path,
    // however it is spelled. In the second case another process may have rotated the log in
    // between.
    bool IsSameLog(const RotatingFile& other) const;

    // Must be called before each record. Reopens the log if the open file is no longer the one at
    // the log's path, because another process has rotated it, or someone has moved or removed it.
    // In a burst, while records follow each other in less than a microsecond, this checks the path
    // only once per millisecond; records logged until then are in the file that was moved or
    // removed.
    //
    // Returns the time of the call, for Append.
    std::int64_t ReopenIfMoved(pid_t process);

    // Appends the record of `size` bytes at `line` with a single write. Returns false if it could
    // not be written, or only to a file that has been removed. `checked` is the result of
    // ReopenIfMoved.
    bool Append(const char* line, std::size_t size, pid_t process, std::int64_t checked);

    // Must be called in every forked child. Forgets that a thread of the parent was changing a
    // file.
    static void ForgetParentsChange();

    // The number of records that could not be written.
    ProcessCount lost;

    // The next log of this process; owned by the caller.
    RotatingFile* next = nullptr;

private:
    enum class Change
    {
        kDone,
        kFailed,
        kBusy,  // another thread of this process is changing a file
    };

    int StorePath(const char* path);
    int OpenLog();
    bool CreateDirectories();
    int OpenLockFile();
    int Lock();

    bool IsAtPath(struct stat& status) const;
    bool IsUnlinked() const;
    bool FitsSizeLimit(std::size_t size) const;
    void ReadSizeLimit();
    ssize_t Write(const char* line, std::size_t size) const;

    Change Reopen(pid_t process);
    Change ReopenWaiting(pid_t process);
    bool SwitchToFileAtPath();
    void SwitchInherited();
    void Rotate(pid_t process, std::int64_t now);
    bool ShiftFiles();
    bool RenameOldFile(int from, int to);
    bool RemoveOldFile(int number);

    char m_path[PATH_MAX] = {};
    int m_file = -1;       // records are written here
    int m_inherited = -1;  // for programs; -1 once the descriptor is not ours any more

    std::atomic<std::int64_t> m_last_record{0};    // when it was written
    std::atomic<std::int64_t> m_last_check{0};     // when ReopenIfMoved checked the path
    std::atomic<std::int64_t> m_next_rotation{0};  // no earlier, because the last one failed
    std::atomic<bool> m_unlinked{false};  // the file was removed and could not be created again
    std::atomic<bool> m_inherited_is_old{false};  // the descriptor for programs could not follow
    std::atomic<std::int64_t> m_size{0};          // as far as this process knows
    std::atomic<std::int64_t> m_size_limit{INT64_MAX};

    // Used only by the thread that is changing the file. Paths are too large for small stacks.
    static constexpr std::size_t kMaxSuffix = 16;
    dev_t m_inherited_device = 0;
    ino_t m_inherited_inode = 0;
    char m_from[PATH_MAX + kMaxSuffix] = {};
    char m_to[PATH_MAX + kMaxSuffix] = {};
};

}  // namespace qv7log
