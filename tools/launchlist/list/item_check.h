// Finding the mistakes of one item.
#pragma once

#include <string>

#include "json/json_object.h"
#include "json/json_source.h"
#include "tools/launchlist/list/finding.h"

namespace launchlist {

struct ItemToCheck
{
    const JsonSource& source;
    const JsonMember& member;  // The item as a member of its list.
    JsonObject item;           // The same item as the launcher reads it.
    std::string path;          // Its JSON pointer.
};

// Appends the mistakes of one item. Mistakes that involve several items are found by CheckList.
void CheckItem(ItemToCheck& item, Findings& findings);

}  // namespace launchlist
