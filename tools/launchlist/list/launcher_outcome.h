// How the launcher ends, or keeps running, on a list.
#pragma once

#include <string>
#include <vector>

namespace launchlist {

enum class Outcome
{
    kKeepsRunning,  // Until SIGTERM.
    kExits,         // With status 0.
    kAborts,        // With signal 6; helpers that are already running keep running.
    kGroupKilled,   // Signal 9 to the launcher's process group.
    kUserKilled     // Signal 9 to every process that the launcher may signal.
};

// What decides whether a possible outcome comes about.
enum class Condition
{
    kAlways,
    kTiming,       // Whether an item has forked its child when it is ended; which thread is first.
    kMacOs,        // The order in which the launcher's map holds the items; only on macOS.
    kProcessLimit  // No more processes can be created.
};

struct LauncherOutcome
{
    Outcome outcome;
    Condition condition;
};

using LauncherOutcomes = std::vector<LauncherOutcome>;

// Whether every outcome, or at least one, is an end of the launcher.
bool EndsCertainly(const LauncherOutcomes& outcomes);
bool EndsPossibly(const LauncherOutcomes& outcomes);

// "exits with status 0"; its subject is the launcher.
std::string TextOf(Outcome outcome);

// When a possible outcome comes about; "" for kAlways.
std::string TextOf(Condition condition);

}  // namespace launchlist
