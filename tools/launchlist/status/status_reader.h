// Finds out what is running.
//
// The processes decide whether an item runs; the log explains why one does not, and counts
// restarts. Both are read at slightly different times. What they do not say is unknown.
#pragma once

#include <sys/stat.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/launchlist/processes/processes.h"
#include "tools/launchlist/status/known_processes.h"
#include "tools/launchlist/status/launcher_log.h"
#include "tools/launchlist/status/listed_item.h"
#include "tools/launchlist/status/status.h"

namespace launchlist {

class StatusReader
{
public:
    // Reads about the launchers with this list only, if one is given; its path must be absolute.
    StatusReader(ProcessTable& processes, std::optional<std::string> list)
        : m_processes(processes), m_list(std::move(list))
    {
    }

    // `now` is the present time. A later call reads of each log only what was added.
    Status Read(Milliseconds now);

    // Whether the status may have changed since the last call of Read: a process was started or has
    // ended, or a log or a list was changed. Also true if the last Read found such a change itself:
    // a process may not have executed its program yet, or an item may have been between two runs.
    // Processor time and memory do not count. Costs much less than Read.
    bool MayHaveChanged();

private:
    // What can be seen without reading about each process.
    struct Signs
    {
        std::vector<pid_t> ids;                         // Sorted.
        std::vector<std::optional<struct stat>> files;  // The logs and lists that are known.

        bool operator==(const Signs& other) const;
    };

    // A list as it was when its file was read.
    struct ReadList
    {
        ListedItems items;
        std::string error;
        struct stat file = {};
        bool may_change_unseen = true;  // A change now need not show in the file's times.
    };

    const ReadList& ListAt(const std::string& path);
    Signs ReadSigns();

    ProcessTable& m_processes;
    KnownProcesses m_known;
    const std::optional<std::string> m_list;
    std::map<std::string, std::unique_ptr<LauncherLog>> m_logs;  // By path.
    std::map<std::string, ReadList> m_lists;                     // By path.
    Signs m_signs;                                               // Of the previous status.
    bool m_was_changing = false;  // Whether they differed from those before.
    // The time of the previous status and the processor time that each process had used by then, by
    // its id and birth.
    Milliseconds m_previous = 0;
    std::map<std::pair<pid_t, std::uint64_t>, Milliseconds> m_cpu;
};

}  // namespace launchlist
