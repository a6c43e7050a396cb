// What the launcher will do with a launch list.
//
// Nothing is run, signalled or written. The only files examined are the programs that the list
// names. This assumes that the launcher is started in the current directory by the current user,
// and that the system has enough memory, threads and processes for the list.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "json/json_object.h"
#include "tools/launchlist/list/argument_length.h"
#include "tools/launchlist/list/launcher_outcome.h"
#include "tools/launchlist/list/program_file.h"

namespace launchlist {

// What becomes of an item, in the order in which the launcher finds out.
enum class ItemOutcome
{
    kRejected,        // The launcher reads no further items and ends.
    kSkipped,         // No name.
    kAbortsLauncher,  // "program" is not convertible to text.
    kSignalsGroup,    // No program.
    kAbortsChild,     // "argc" or "args" is not convertible.
    kUndefined,       // "argc" is below -1.
    kOverrunsStack,
    kMayOverrunStack,
    kCannotExecute,
    kRuns
};

enum class Likelihood
{
    kNever,
    kPossibly,
    kCertainly
};

struct ExplainedItem
{
    int index = 0;
    std::optional<std::string> name;
    std::optional<std::string> program;

    // What execv is given, the program's path first. Only for an item that certainly or
    // possibly runs.
    std::optional<ArgumentVector> arguments;

    ItemOutcome outcome = ItemOutcome::kRuns;
    Likelihood runs = Likelihood::kNever;
    std::string problem;             // What is wrong with the program or its arguments.
    std::string effect;              // What that leads to; "" for an item that simply runs.
    std::string note;                // What else is worth knowing about an item that runs.
    std::optional<int> replaces;     // The item of the same name that ends when this one starts.
    std::optional<int> first_user;   // The first item of the same name, if there is an earlier one.
    std::optional<int> replaced_by;  // The item of the same name that ends this one.
    bool is_problem_in_args = false;  // If the child aborts: the problem is in "args".
    bool is_foreign = false;          // The program is built for another processor.
    bool may_be_registered = false;   // See ProgramFile.
    std::optional<TooLong> too_long;  // Why the arguments cannot be passed.
};

struct Explanation
{
    std::vector<ExplainedItem> items;  // Up to the first gap, or to the item that is rejected.
    std::string list_effect;           // Of a list that is rejected before its first item.
    bool is_rejected = false;          // The list, or the last of `items`.
    LauncherOutcomes outcomes;         // All possible ones; one that is kAlways is usual.
};

// Explains the list whose file holds `bytes`.
Explanation ExplainList(const std::string& bytes);

// Explains `item`, an object or null, as if it were started, whatever its name: its program, its
// arguments, its outcome, and the problem and effect if there is one.
ExplainedItem ExplainProgram(JsonObject& item, ProgramFiles& files);

}  // namespace launchlist
