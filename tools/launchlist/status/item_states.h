// Deciding the states of a launcher's items from what is known about them.
#pragma once

#include <vector>

#include "tools/launchlist/status/launcher_log.h"
#include "tools/launchlist/status/listed_item.h"
#include "tools/launchlist/status/process_matching.h"
#include "tools/launchlist/status/status.h"

namespace launchlist {

// The start of a process is known to a clock tick, and the clock of the file system may be late.
constexpr Milliseconds kClockSlack = 50;

// What is known about a launcher's items. The processes and supervisors are those of one snapshot.
struct ItemEvidence
{
    pid_t launcher = 0;
    Milliseconds launcher_start = 0;
    Milliseconds now = 0;
    std::vector<ListedItem> items;
    bool list_may_have_changed = false;
    std::vector<ProcessStatus> processes;    // The children that run programs.
    std::vector<std::string> command_lines;  // Theirs, for people.
    Matching matching;                       // Of `items` and `processes`.
    std::vector<ProcessStatus> supervisors;  // Children that have not executed a program.
    // Null if the log cannot be read, or if its level is such that it says nothing about ends.
    const LauncherLog* log = nullptr;
};

// Fills in the items, groups, supervisors and other children of `launcher`, and how many items run.
void DecideItems(const ItemEvidence& evidence, LauncherStatus& launcher);

}  // namespace launchlist
