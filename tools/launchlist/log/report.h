// What a log says about launchers and items.
//
// A supervisor writes a record before each start, at the level DEBUG, and one after each end, at
// ERROR. A launcher whose level is above DEBUG therefore never says when a program started. After
// an end its supervisor starts the program again one restart pause later, so the second and later
// runs are still known.
//
// A failed execv is not logged. But the child then continues as a further supervisor of its item: a
// new process id that writes about this item only, right after the item's start. Later, on a busy
// machine or one that slept, it may be such a child or another launcher.
//
// A stop is not logged either. It shows in the ends: the launcher kills its children with signal 9,
// one after another, and restarts none of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/launchlist/log/launcher_event.h"
#include "tools/launchlist/log/log_reader.h"
#include "tools/launchlist/log/log_time.h"

namespace launchlist {

// How a launcher ended, as far as the log shows.
enum class LauncherEnd
{
    kUnknown,
    kRunning,   // It wrote the last record of the log, and had a program to supervise.
    kStopped,   // It killed its children one after another and restarted none.
    kVanished,  // Another launcher started its items, or another process got its id; no stop.
    kRejected   // It could not use its list or create a thread, and ends by itself.
};

struct Launcher
{
    std::int64_t process = 0;
    Milliseconds from = 0;  // Its first record.
    Milliseconds to = 0;    // Its last record.
    LauncherEnd end = LauncherEnd::kUnknown;
    bool is_certain = true;   // False: the end is the likely one, but the log allows another.
    bool has_starts = false;  // It wrote DEBUG records.
    std::size_t items = 0;    // How many items it wrote about.
    bool is_selected = true;  // False: it wrote about none of the items that the report is on.
    // It may be a child of the launcher with this process id that could not execute its program.
    std::optional<std::int64_t> may_be_child_of;
};

enum class Role
{
    kRun,      // The program ran.
    kAttempt,  // A start was logged, and nothing shows whether the program was executed.
    kFailed    // The program was not executed.
};

// Why a run ended.
enum class EndedBy
{
    kProgram,        // The program ended, or something other than the launcher killed it.
    kLauncher,       // The launcher killed it: a stop, or a later item of the same name.
    kMaybeLauncher,  // Killed with signal 9 as the last thing that is known; perhaps by a stop.
    kUnknown         // waitpid failed: whether, when and how the program ended is unknown.
};

// One run of a program, or an attempt at one.
struct Run
{
    std::optional<Milliseconds> start;
    std::optional<Milliseconds> end;
    // The time during which the program was certainly running. Equal if there is none.
    Milliseconds from = 0;
    Milliseconds to = 0;
    // The program was certainly not running from the end (of a failed attempt: from its start)
    // until this time.
    std::optional<Milliseconds> down_until;
    Termination termination;  // Only with an end.
    std::uint32_t launcher = 0;
    Role role = Role::kRun;
    EndedBy ended_by = EndedBy::kProgram;
    bool is_first : 1;       // Of its supervisor, as far as the log goes.
    bool is_open : 1;        // Neither an end nor a later start of its supervisor is known.
    bool is_final : 1;       // Its supervisor did not restart it.
    bool is_abandoned : 1;   // It could not be forked.
    bool lacks_program : 1;  // Its child logged that the item has no program.

    Run()
        : is_first(false),
          is_open(false),
          is_final(false),
          is_abandoned(false),
          lacks_program(false)
    {
    }

    // Nothing if the start or the end is unknown, waitpid failed, or the end precedes the start.
    std::optional<Milliseconds> Length() const;
    // Ended without the launcher's doing, and not with exit status 0.
    bool IsCrash() const;
};

// A loop is a series of at least this many short runs of one launcher, none of them ended by it.
constexpr std::size_t kLoopRuns = 5;
constexpr Milliseconds kShortRun = 5000;

// The longest loop of an item.
struct Loop
{
    std::size_t runs = 0;
    Milliseconds from = 0;
    Milliseconds to = 0;
    bool is_crash = false;  // At least one run did not end with exit status 0.
};

// This many ends within an hour are reported even if the runs are not short.
constexpr std::size_t kFrequentEnds = 5;

// How often an item's program ends, not counting ends that a launcher caused.
struct Rate
{
    std::size_t worst_hour = 0;        // The most ends within 60 minutes,
    Milliseconds worst_hour_from = 0;  // which begin here.
    Milliseconds first = 0;
    Milliseconds last = 0;
    double per_hour = 0;  // Average from the first end to the last, of at least an hour.
    // Whether the program keeps ending at its usual rate until the end of the report.
    bool continues = false;
};

// The state at the end of the report.
enum class State
{
    kUnknown,
    kRunning,    // Started, and its launcher wrote a record at least a second later.
    kStarted,    // A start is logged, and nothing after it.
    kEnded,      // Ended by itself, and not restarted yet.
    kStopped,    // Ended by its launcher.
    kFailing,    // Could not be started, or has no program.
    kAbandoned,  // Its supervisor could not fork, and does not try again.
};

enum class ItemSeverity
{
    kHealthy,
    kNotable,   // It ended unexpectedly, though seldom, or an end was not seen.
    kTroubled,  // It ended often.
    kBroken     // It ends often at the end of the report, or does not run at all.
};

struct ItemReport
{
    std::string name;
    bool lacks_starts = false;  // The log holds no DEBUG records of a launcher of this item.
    std::vector<Milliseconds> no_program_times;
    std::vector<Milliseconds> failed_fork_times;
    std::optional<std::size_t> starts;          // Nothing where DEBUG records are missing.
    std::size_t ends = 0;                       // All of them:
    std::size_t crashes = 0;                    // not with status 0, and not by the launcher;
    std::size_t clean_ends = 0;                 // with status 0, and not by the launcher;
    std::size_t stops = 0;                      // by the launcher;
    std::size_t possible_stops = 0;             // by signal 9 at the end of what is known;
    std::size_t unknown_ends = 0;               // waitpid failed.
    std::map<Termination, std::size_t> causes;  // Of the crashes and clean ends.
    std::optional<Milliseconds> shortest;
    std::optional<Milliseconds> median;
    std::optional<Milliseconds> longest;
    std::size_t unknown_runs = 0;  // Ended, but of unknown length.
    std::size_t restarts = 0;
    std::size_t worst_minute = 0;  // The most restarts within 60 seconds.
    std::size_t failed_starts = 0;
    std::size_t no_program = 0;
    std::size_t failed_forks = 0;
    // These three add up to the time of the report.
    Milliseconds running = 0;
    Milliseconds down = 0;
    Milliseconds unknown = 0;
    std::optional<Loop> loop;
    std::optional<Rate> rate;  // Nothing without ends that the launcher did not cause.
    State state = State::kUnknown;
    ItemSeverity severity = ItemSeverity::kHealthy;
    std::vector<Run> runs;  // Those that touch the time of the report.
};

// In which order to show the items.
enum class ItemOrder
{
    kWorst,  // The worst first.
    kLog,    // In the order in which the log first names them.
    kName,
    kStarts,  // From here on: the greatest number first.
    kEnds,
    kCrashes,
    kRestarts,
    kMedian,
    kDown
};

struct Report
{
    std::vector<LogFile> files;
    // The time of the report: that of its records, or the given one where it is shorter.
    std::optional<Milliseconds> first;
    std::optional<Milliseconds> last;
    std::optional<Milliseconds> last_record;  // Of the whole log.
    std::size_t records = 0;                  // Within the time of the report.
    std::size_t other_records =
        0;                   // Of other programs, or with a text that the launcher never logs.
    std::size_t unread = 0;  // Entries that are not records.
    std::vector<std::string> unread_samples;  // Printable.
    std::uint64_t lost_records = 0;
    std::size_t clock_set_back = 0;  // Times at least 1 s before the preceding one.
    std::size_t nameless_items = 0;
    std::size_t rejected_lists = 0;
    bool has_starts = false;
    std::vector<Launcher> launchers;  // LaunchersOf returns those that are shown.
    std::vector<ItemReport> items;    // In the order in which the log first names them.
    std::optional<ItemOrder> order;   // Nothing: the usual one of each form of the report.
    // Of the names that were asked for, those that the log does not mention; then also those that
    // it mentions.
    std::vector<std::string> unknown_names;
    std::vector<std::string> known_names;
    bool knows_launcher = true;  // False: the log does not mention the selected one at all.
};

}  // namespace launchlist
