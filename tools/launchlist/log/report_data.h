// What a log says about the items of launch lists: how often they ran, how they ended, for how
// long, and what never ran at all.
//
// A supervisor writes a record before each start, at the level DEBUG, and one after each end, at
// ERROR. Without the first kind there is no telling when a run began, except after an end: the next
// run begins a restart pause later.
//
// That a program could not be executed is not in the log. But the child then goes on as a further
// supervisor: a process id that is new, and that writes about the one item only, right after that
// item's start.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/launchlist/log/log_reader.h"
#include "tools/launchlist/log/log_time.h"

namespace launchlist {

// One run of a program, or an attempt at one.
struct Run
{
    std::optional<Milliseconds> start;
    std::optional<Milliseconds> end;
    bool is_clean = false;   // Ended with exit status 0.
    bool is_failed = false;  // The program was not executed.

    std::optional<Milliseconds> Length() const;
};

// So many short runs in a row make a loop.
constexpr std::size_t kLoopRuns = 5;
constexpr Milliseconds kShortRun = 5000;

// The longest row of short runs.
struct Loop
{
    std::size_t runs = 0;
    Milliseconds from = 0;
    Milliseconds to = 0;
    bool is_crash = false;  // At least one of them did not end with exit status 0.
};

enum class State
{
    kUnknown,
    kRunning,  // Started by the last launcher, and no end since.
    kEnded
};

struct ItemReport
{
    std::string name;
    std::optional<std::size_t> starts;  // Nothing where a launcher wrote no DEBUG records.
    std::size_t ends = 0;
    std::map<std::string, std::size_t> ends_in_words;
    std::optional<Milliseconds> shortest;
    std::optional<Milliseconds> median;
    std::optional<Milliseconds> longest;
    std::size_t unknown_runs = 0;  // Ended, but of unknown length.
    std::size_t restarts = 0;
    std::size_t worst_minute = 0;  // The most restarts within 60 seconds.
    std::size_t failed_starts = 0;
    std::size_t no_program = 0;
    std::size_t failed_forks = 0;
    std::optional<Loop> loop;
    State state = State::kUnknown;
    std::vector<Run> runs;
};

struct Report
{
    std::vector<LogFile> files;
    std::optional<Milliseconds> first;
    std::optional<Milliseconds> last;
    std::size_t records = 0;
    std::size_t other_records = 0;  // Of other programs, or with a text that is not the launcher's.
    std::size_t unread = 0;         // Entries that are no records.
    std::vector<std::string> unread_samples;  // Printable.
    std::uint64_t lost_records = 0;
    std::size_t launchers = 0;
    std::size_t nameless_items = 0;
    std::size_t refused_lists = 0;
    bool has_starts = false;
    std::vector<ItemReport> items;  // In the order in which the log first names them.
};

}  // namespace launchlist
