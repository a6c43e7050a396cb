// Following a log while it grows.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tools/launchlist/log/log_reader.h"
#include "tools/launchlist/log/log_time.h"

namespace launchlist {

// What happened to the file of a log, other than growing and being rotated.
enum class LogChange
{
    kTruncated,
    kReplaced  // Or moved away or removed, and created again.
};

struct FollowSink : LogSink
{
    std::function<void(LogChange)> on_change;
};

// How long to wait before the next call of LogFollower::Poll: the pause before the last call was
// `pause`, and that call has read something if `has_grown` is true. A log that grows is polled
// more often than one that has not grown for a while. Polling an idle log takes about ten system
// calls, a few microseconds each.
Milliseconds NextPause(Milliseconds pause, bool has_grown);

// Passes each entry of a log and its old files once, in order, with the changes of a file between
// its entries. Continues as the log grows, and as it is rotated, truncated, removed or replaced.
// The log need not exist.
//
// The files stay open: a process that was writing while the log was rotated writes to the renamed
// file, and what is in a removed file is still read. What was written and truncated between two
// calls of Poll is missed.
class LogFollower
{
public:
    // `path` names the log, which must not be standard input.
    LogFollower(std::string path, FollowSink sink);
    ~LogFollower();
    LogFollower(const LogFollower&) = delete;
    LogFollower& operator=(const LogFollower&) = delete;

    // Passes all entries that are complete. If nothing has changed, this makes one system call for
    // each open file and one for the log's path.
    //
    // On false, `error` says why the log cannot be read. A log that does not exist is not an error.
    bool Poll(std::string& error);

    // Whether the last call of Poll read anything.
    bool HasGrown() const { return m_has_grown; }

    // Whether the log exists or has existed.
    bool HasFile() const { return !m_files.empty(); }

private:
    struct UnreadableFile
    {
        std::string path;
        std::string error;
    };

    struct File
    {
        std::string path;  // At which it was found.
        int descriptor = -1;
        FileId id;
        off_t offset = 0;      // Everything before it has been read.
        std::string last;      // The last bytes before the offset.
        std::string rest;      // Read, and not passed yet, because the last entry is incomplete.
        std::size_t line = 1;  // The number of the first line in `rest`.
        bool is_truncated = false;    // Since it was passed; then the two that follow are set.
        std::string rest_before;      // What `rest` was before that.
        std::size_t line_before = 1;  // What `line` was before that.
        std::vector<UnreadableFile> unreadable;  // Whose entries would precede `rest`.
        bool is_first_read = true;
        bool is_replacement = false;  // Of the file before it, which was not rotated.
        bool has_grown = false;
        bool is_unlinked = false;
    };

    bool OpenNewFiles(std::string& error);
    File* FindOpen(const FileId& id);
    bool ReadNew(File& file, std::string& error);
    bool ReadFrom(File& file, off_t offset, std::string& bytes, std::string& error) const;
    void ReportUnreadable(std::vector<UnreadableFile>& files) const;
    void PassRest(File& file, bool is_whole);
    void CloseOldFiles();

    const std::string m_path;
    const FollowSink m_sink;
    FileId m_newest;                                  // When the files were last looked for.
    std::vector<File> m_files;                        // The oldest first.
    std::vector<UnreadableFile> m_newest_unreadable;  // Newer than all of them.
    bool m_has_grown = false;
};

}  // namespace launchlist
