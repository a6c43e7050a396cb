// Finding what launchers that have ended left behind.
//
// Every program that a launcher starts has the launcher's log as its descriptor 0, open for
// appending, and so have the programs that it starts in turn, unless they close it. Such a process
// without a launcher among its ancestors was left behind by one. Only its command line shows
// whether it is the program of an item.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/launchlist/status/listed_item.h"
#include "tools/launchlist/status/snapshot.h"
#include "tools/launchlist/status/status.h"

namespace launchlist {

class LeftoverFinder
{
public:
    using Measure = std::function<ProcessStatus(const Process&)>;

    LeftoverFinder(ProcessTable& table, uid_t user) : m_table(table), m_user(user) {}

    // The items of the list at `path` are searched for.
    void AddList(const std::string& path, const std::vector<ListedItem>& items);

    // A process that has the log at `path`, or an old file of it, is found.
    void AddLog(const std::string& path);

    // The processes that were left behind. With `only_known`, only those of a list that was added.
    std::vector<Leftover> Find(const Snapshot& snapshot, bool only_known,
                               const Measure& measure) const;

private:
    struct Source
    {
        std::string list;
        std::vector<int> items;
        std::vector<std::string> names;
    };

    void AddFamily(const Snapshot& snapshot, const Family& family, const Measure& measure,
                   std::vector<Leftover>& leftovers) const;
    bool HasLog(const Process& process) const;
    bool Describe(const Process& process, Leftover& leftover) const;

    ProcessTable& m_table;
    const uid_t m_user;
    std::unordered_map<std::string, Source> m_sources;  // By command line; of one list each.
    std::set<std::string> m_logs;
};

// The words of a command line for people; "" if it is unknown.
std::string CommandText(const std::optional<std::string>& command_line);

}  // namespace launchlist
