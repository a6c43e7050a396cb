// Finding the mistakes of one item.
#pragma once

#include <string>
#include <vector>

#include "json/json_object.h"
#include "json/json_source.h"
#include "tools/launchlist/list/check_context.h"
#include "tools/launchlist/list/explain.h"

namespace launchlist {

// The step at which the launcher detects a mistake. An earlier mistake may keep it from reaching
// that step.
enum class Stage
{
    kReading,    // Reading the list: has an effect even in an item that never runs.
    kStart,      // Starting the item's supervisor.
    kProgram,    // Converting "program".
    kCount,      // Converting "argc".
    kArguments,  // Converting "args".
    kExecution
};

struct ItemToCheck
{
    CheckContext& context;
    JsonObject item;                  // As the launcher reads it.
    std::string path;                 // Its JSON pointer.
    std::size_t offset;               // Where its value begins.
    std::vector<JsonMember> members;  // All that are written; none if it is not an object.
    ExplainedItem explained;          // What happens to it, or would if it were started.

    // For an item that is never started: what to report as the effect of its mistakes.
    // `effect_if_unreached` applies if the launcher does not reach the item. Otherwise
    // `effect_if_not_started` applies to all mistakes except the one in its name.
    std::string effect_if_unreached;
    std::string effect_if_not_started;

    // The member `name` that wins; null if there is none.
    const JsonMember* Find(const std::string& name) const;

    // Adds a finding at `place`. An earlier mistake replaces `effect`, see Stage.
    void Add(Kind kind, Stage stage, std::size_t place, const std::string& pointer,
             const std::string& message, const std::string& effect, const std::string& fix);
};

// Adds the mistakes of one item. Mistakes that involve several items are found by CheckList.
// `type` is that of the item's value.
void CheckItem(ItemToCheck& item, JsonType type);

}  // namespace launchlist
