// What the launcher does about a mistake, in the words of both `check` and `explain`.
#pragma once

#include <string>

#include "launcher/supervision.h"
#include "tools/launchlist/list/program_file.h"

namespace launchlist::effects {

static_assert(kRestartPause == std::chrono::milliseconds(50), "texts below name the pause");

inline constexpr char kEndsInSilence[] = "the launcher ends with status 0 and logs nothing";
inline constexpr char kStartsNothing[] = "the launcher starts nothing and waits for SIGTERM";
inline constexpr char kIgnored[] = "it is ignored";

// In items that are never started.
inline constexpr char kAfterGap[] = "the item never runs: items after a gap are never reached";
inline constexpr char kNotReached[] = "none until the launcher reaches the item";
inline constexpr char kNotNamed[] = "none until the item has a name";

// A program that is an object or an array.
inline constexpr char kAbortsLauncher[] =
    "the launcher aborts as soon as the item is to be started; helpers that are already running "
    "keep running";

// No program. On Linux, and on macOS if there is no other item, the end is certain.
inline constexpr char kSignalsGroup[] =
    "the item never runs: its child sends signal 9 to the whole process group, which ends the "
    "launcher and all helpers";
inline constexpr char kSignalsGroupOrSibling[] =
    "the item never runs: its child sends signal 9 to the whole process group, which ends the "
    "launcher and all helpers; on macOS the child may abort first, after it has killed one other "
    "helper, and is then started again 50 ms later";

// A program that cannot be executed.
inline constexpr char kCannotExecute[] =
    "the item never runs: every child that fails to execute the program becomes another supervisor "
    "of the item, so there is one more process every 50 ms; stopping the launcher kills only the "
    "first, and when no more processes can be created, the last one may kill every process that "
    "the launcher may signal, including the launcher";

// Precedes kCannotExecute.
inline constexpr char kUnlessRegistered[] =
    "the item runs only if the system has an interpreter registered for such files (binfmt_misc); "
    "otherwise ";

// "argc" and "args".
inline constexpr char kAbortsChild[] =
    "the item never runs: every child aborts before it executes the program, and the next one is "
    "started 50 ms later";
inline constexpr char kUndefined[] =
    "undefined: each child writes outside its argument vector; it may crash, run the program with "
    "arbitrary arguments, or fail to execute it and become another supervisor of the item";
inline constexpr char kOverrunsStack[] =
    "the item never runs: the argument vector does not fit on the stack, so every child crashes "
    "before it executes the program, and the next one is started 50 ms later";
inline constexpr char kMayOverrunStack[] =
    "the argument vector might not fit on the stack; if it does not, every child crashes before it "
    "executes the program, and the next one is started 50 ms later";
inline constexpr char kEmptyVector[] =
    "the program gets an empty argument vector, without even its own name; Linux (since 5.18) adds "
    "one empty argument";

// The text is rejected before anything is started.
std::string RejectedAtStart();

// The launcher rejects an item. `is_first`: no item before it was started. `may_have_ended`: an
// item before it ends the launcher in another way, which may come first.
std::string RejectedAtItem(bool is_first, bool may_have_ended);

// An item without a name.
std::string Skipped();

// Item `earlier` is ended because item `later` has the same name.
std::string Replaces(int earlier, int later);

// A program with a problem.
std::string ProgramProblem(const ProgramFile& file);

// The effect of a mistake that is hidden by one in `member`, which takes effect earlier.
std::string HiddenBy(const std::string& member);

}  // namespace launchlist::effects
