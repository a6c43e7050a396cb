// What a launcher's log says about its items, read piece by piece while the log grows.
#pragma once

#include <sys/types.h>

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "tools/launchlist/log/launcher_event.h"
#include "tools/launchlist/log/log_time.h"

namespace launchlist {

// What one process wrote about one item.
struct ItemRecords
{
    std::size_t ends = 0;
    std::deque<Milliseconds> recent_ends;  // Those of the last hour.
    std::optional<Milliseconds> last_end;
    Termination how;                         // Of the last end.
    std::optional<Milliseconds> last_start;  // Only with DEBUG records.
    std::optional<Milliseconds> failed_fork;
    bool is_fork_failure_last = false;  // Nothing was written about the item after it.
};

// What one process wrote.
struct ProcessRecords
{
    std::unordered_map<std::string, ItemRecords> items;
    std::string last_item;  // The item that it wrote about last.
    bool has_starts = false;
};

// The processes to read about, and the time from which each has existed: an earlier record is that
// of another process with the same id.
using ProcessTimes = std::map<pid_t, Milliseconds>;

class LauncherLog
{
public:
    explicit LauncherLog(std::string path) : m_path(std::move(path)) {}
    ~LauncherLog();
    LauncherLog(const LauncherLog&) = delete;
    LauncherLog& operator=(const LauncherLog&) = delete;

    // Reads the log and its old files, later only what was added, and takes the records of
    // `processes`, and recent ones of others. What it knows about a process is forgotten by the
    // first call without that process, and times of ends are forgotten after an hour. A rotation
    // in the meantime hides no record.
    void Update(const ProcessTimes& processes, Milliseconds now);

    // Null if it wrote no record.
    const ProcessRecords* Find(pid_t process) const;

    // Why the log cannot be read; "" if it can.
    const std::string& Error() const { return m_error; }

    // Whether records since `time` may be missing: an old file was removed or cannot be read,
    // records were lost, or a line could not be parsed.
    bool MayLackRecordsSince(Milliseconds time) const;

private:
    void ReadNew(const ProcessTimes& processes, Milliseconds now);
    void ReadFile(int descriptor, const ProcessTimes& processes);
    void AddLine(std::string_view line, const ProcessTimes& processes);
    void AddEvent(const Event& event, pid_t process, Milliseconds time);
    void NoteGap(Milliseconds time);
    void NoteUnreadable(const std::string& path, Milliseconds now);
    void KeepOpen(int descriptor);

    std::string m_path;
    std::string m_error;
    int m_file = -1;     // The newest file that was read, open so that its inode stays its own.
    off_t m_offset = 0;  // Up to where it was read.
    std::string m_rest;  // The beginning of a line, at the end of what was read.
    std::unordered_map<pid_t, ProcessRecords> m_processes;
    std::optional<Milliseconds> m_first;  // The first record.
    bool m_has_old_files = false;
    std::optional<Milliseconds> m_last_gap;  // Up to when records may be missing.
    Milliseconds m_last = 0;                 // The latest record.
    Milliseconds m_recent = 0;               // Since when the records of any process are kept.
};

}  // namespace launchlist
