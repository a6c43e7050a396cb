// What the launcher does about a mistake, in the words of both `check` and `explain`.
#pragma once

#include <chrono>
#include <string_view>

#include "launcher/log_messages.h"
#include "launcher/supervision.h"

namespace launchlist {

inline constexpr char kEndsInSilence[] =
    "the launcher ends with status 0, without a word in any log";
inline constexpr char kRefusedAtStart[] =
    "the launcher logs \"Error while parsing saved json string.\" and ends with status 0";
inline constexpr char kRefusedOnTheWay[] =
    "the launcher logs \"Error while parsing saved json string.\", ends the items before this one "
    "and ends itself with status 0";
inline constexpr char kStartsNothing[] = "the launcher starts nothing and waits for its end";
inline constexpr char kEndsWalk[] = "the walk ends at the gap: the item never runs";
inline constexpr char kNotSeen[] = "nothing, as long as the item is never seen";
inline constexpr char kNotReached[] = "nothing, as long as the launcher ends before it comes here";
inline constexpr char kNotNamed[] = "nothing, as long as the item has no name";
inline constexpr char kSkipped[] =
    "the launcher logs \"There is an item has no name.\" and goes on: the item never runs";
inline constexpr char kTerminates[] =
    "the launcher itself is aborted as soon as the item is to start; helpers already running stay";
inline constexpr char kSignalsGroup[] =
    "the item never runs: its child ends with a signal 9 to the whole process group, launcher and "
    "all helpers included";
inline constexpr char kKilledEarly[] =
    "signal 9 to its child or, if that has not been forked yet, to the whole process group";
inline constexpr char kCannotExecute[] =
    "the item never runs: each child that cannot execute the program forks the next one, so there "
    "is one more process every 50 ms, and a stop of the launcher ends only the first";
inline constexpr char kAbortsChild[] =
    "the item never runs: every child is aborted before it executes the program, and the next one "
    "started 50 ms later";
inline constexpr char kOverrunsVector[] =
    "every child writes outside its argument vector: anything may happen, as a rule it crashes and "
    "is started again 50 ms later";
inline constexpr char kOverrunsStack[] =
    "the argument vector does not fit the stack: every child crashes before it executes the "
    "program, and the next one is started 50 ms later";
inline constexpr char kEmptyVector[] =
    "the program gets an empty argument vector: on Linux one argument, the empty text; elsewhere "
    "there may be none, not even a name of its own";

// The launcher's texts and its restart pause are quoted above; these keep them the same.
constexpr bool Quotes(std::string_view effect, std::string_view format)
{
    return effect.find(WithoutTag(format)) != std::string_view::npos;
}
static_assert(Quotes(kRefusedAtStart, kListRejected));
static_assert(Quotes(kRefusedOnTheWay, kListRejected));
static_assert(Quotes(kSkipped, kItemHasNoName));
static_assert(kRestartPause == std::chrono::milliseconds(50));

}  // namespace launchlist
