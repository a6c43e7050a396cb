#include "tools/launchlist/list/launcher_outcome.h"

#include <algorithm>

namespace launchlist {

namespace {

bool IsEnd(const LauncherOutcome& outcome)
{
    return outcome.outcome != Outcome::kKeepsRunning;
}

}  // namespace

bool EndsCertainly(const LauncherOutcomes& outcomes)
{
    return std::all_of(outcomes.begin(), outcomes.end(), IsEnd);
}

bool EndsPossibly(const LauncherOutcomes& outcomes)
{
    return std::any_of(outcomes.begin(), outcomes.end(), IsEnd);
}

std::string TextOf(Outcome outcome)
{
    switch (outcome) {
        case Outcome::kKeepsRunning:
            return "keeps running until SIGTERM";
        case Outcome::kExits:
            return "exits with status 0";
        case Outcome::kAborts:
            return "aborts (signal 6); helpers that are already running keep running";
        case Outcome::kGroupKilled:
            return "is killed by signal 9, together with its whole process group";
        case Outcome::kUserKilled:
            return "is killed by signal 9, together with every process that it may signal";
    }
    return "";
}

std::string TextOf(Condition condition)
{
    switch (condition) {
        case Condition::kAlways:
            return "";
        case Condition::kTiming:
            return "depending on timing";
        case Condition::kMacOs:
            return "only on macOS, depending on the names of the items";
        case Condition::kProcessLimit:
            return "possible when no more processes can be created";
    }
    return "";
}

}  // namespace launchlist
