// What is running: launchers, their items, and what launchers left behind.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/launchlist/log/log_time.h"

namespace launchlist {

enum class ItemState
{
    kRunning,
    kStarting,      // Its child is about to be forked, or has not executed the program yet.
    kBetweenRuns,   // It ended and is about to be restarted.
    kFailing,       // Its children cannot execute the program.
    kAbandoned,     // Its supervisor could not fork, and does not try again.
    kNeverStarted,  // This launcher has not started it.
    kReplaced,      // A later item of the same name ended it.
    kUnknown        // Not running, or a process cannot be told from others.
};

constexpr std::size_t kItemStates = 8;

// How a process was recognized as that of an item.
enum class MatchedBy
{
    kArguments,    // Its command line is that of the item.
    kInterpreter,  // The same after the words that an interpreter's command line begins with.
    kExecutable    // It has another command line, but runs the item's program.
};

struct ProcessStatus
{
    pid_t id = 0;
    pid_t parent = 0;
    Milliseconds start = 0;
    Milliseconds cpu = 0;
    // Of one processor, since the start or since the previous status; nothing if no time has passed
    // since.
    std::optional<double> cpu_percent;
    std::optional<std::uint64_t> memory;  // In bytes.
};

struct ItemStatus
{
    int index = 0;
    std::optional<std::string> name;
    ItemState state = ItemState::kUnknown;
    std::string reason;  // Why it does not run, or why that is unknown; "" if it runs.
    // Nothing if none is known to be that of this item. If the item is in a group, the process may
    // also be that of another item in it.
    std::optional<ProcessStatus> process;
    MatchedBy matched_by = MatchedBy::kArguments;
    std::optional<std::size_t> group;     // Of LauncherStatus::groups.
    bool has_further_supervisor = false;  // The process is a child of one.
    std::size_t supervisors = 0;          // Further ones of this item, as far as it is known.
    // From the log; nothing if it does not say.
    std::optional<std::size_t> restarts;
    std::optional<std::size_t> restarts_last_hour;
};

// Items whose processes cannot be told apart: they have the same command line, or run the same
// program under command lines that are those of no item.
struct ItemGroup
{
    std::vector<int> items;
    std::size_t running = 0;
};

// A child that has not executed a program.
struct SupervisorStatus
{
    ProcessStatus process;
    std::optional<int> item;  // Its index, if it is known.
    // It could not execute its program and continues as a supervisor. If false, it may be about to
    // execute it.
    bool has_failed = false;
};

// A process that has no item.
struct OtherProcess
{
    ProcessStatus process;
    std::string command;  // The words of its command line; "" if it is unknown.
};

struct LauncherStatus
{
    ProcessStatus process;
    std::string executable;
    bool is_deleted = false;  // Its program file is gone or has been replaced.
    std::string application;
    std::string list;                    // Absolute, unless the launcher's directory is unknown.
    std::string list_error;              // Why its items are unknown; "" if they are known.
    bool list_may_have_changed = false;  // Since the launcher read it.
    std::string log;
    std::string log_error;              // Why it cannot be read; "" if it can.
    bool log_has_starts = false;        // It contains DEBUG records of this launcher.
    bool log_may_lack_records = false;  // The numbers of restarts are minimums.
    std::size_t running = 0;            // Items that run, also where it is unknown which ones.
    std::size_t expected = 0;           // Items that should run: all but those that are replaced.
    std::vector<ItemStatus> items;
    std::vector<ItemGroup> groups;
    std::vector<SupervisorStatus> supervisors;
    std::vector<OtherProcess> others;  // Children that match no item.
};

enum class LeftoverKind
{
    kSupervisor,  // A child of a launcher that has ended.
    kHelper,      // Runs an item's command line and has the log as its descriptor 0.
    kHasLog,      // Has the log as its descriptor 0, and matches no known item.
    kSameCommand  // Runs an item's command line, but does not have the log.
};

// A process that a launcher which has ended seems to have left behind.
struct Leftover
{
    LeftoverKind kind = LeftoverKind::kHelper;
    ProcessStatus process;
    std::string command;
    std::string list;        // Only with an item, or of a supervisor.
    std::vector<int> items;  // All items with this command line.
    std::vector<std::string> names;
};

struct Status
{
    std::string error;  // Why the processes cannot be listed; "" if they can.
    Milliseconds time = 0;
    std::vector<LauncherStatus> launchers;  // The oldest first.
    std::vector<Leftover> leftovers;
    // Processes of this user that are perhaps launchers, but may not be examined.
    std::vector<pid_t> unexamined;
};

}  // namespace launchlist
