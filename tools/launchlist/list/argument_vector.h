// The argument vector of an item, and how many arguments it can have.
//
// The child builds the argument vector on the stack of a supervisor thread, one pointer for each
// argument, one for the program and one for the null at the end. That limits "argc".
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "json/json_object.h"
#include "launcher/supervision.h"

namespace launchlist {

// One argument, or several consecutive ones that "args" does not hold and that are therefore empty.
// Such a run is stored once, because a short list can count a huge number of them.
struct ArgumentRun
{
    std::string text;
    std::size_t count = 1;
};

using ArgumentVector = std::vector<ArgumentRun>;

// The number of arguments, the program's path included.
inline std::size_t CountOf(const ArgumentVector& arguments)
{
    std::size_t count = 0;
    for (const ArgumentRun& run : arguments) {
        count += run.count;
    }
    return count;
}

// The numbers below `count` of the arguments that "args" of `item` holds. Throws if it is neither
// an object nor null and `count` is above 0.
std::set<int> FindArguments(JsonObject& item, int count);

// Appends the first `count` arguments of `item`, of which "args" holds those in `given`. Only these
// are looked up: the lookup of a missing one adds it to the list. Throws if one cannot be
// converted.
void AppendArguments(JsonObject& item, int count, const std::set<int>& given,
                     ArgumentVector& arguments);

// What the child's own calls may need of that stack while the vector lies on it: thread-local data,
// the frames of the supervisor and those of the JSON library.
inline constexpr std::size_t kStackForCalls = std::size_t{32} * 1024;

// The largest "argc" that is sure to fit: 61,438. launch-list(5) states this number, too.
inline constexpr int kMaxArgumentCount =
    static_cast<int>((kSupervisorStackSize - kStackForCalls) / sizeof(char*)) - 2;

enum class StackFit
{
    kFits,
    kMayOverrun,
    kOverruns  // The vector alone is larger than the whole stack.
};

constexpr StackFit FitOnStack(int count)
{
    constexpr int kWholeStack = static_cast<int>(kSupervisorStackSize / sizeof(char*)) - 2;
    return count <= kMaxArgumentCount ? StackFit::kFits
           : count <= kWholeStack     ? StackFit::kMayOverrun
                                      : StackFit::kOverruns;
}

}  // namespace launchlist
