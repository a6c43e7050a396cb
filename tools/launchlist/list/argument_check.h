// Finding the mistakes of an item's "argc" and "args".
#pragma once

#include "tools/launchlist/list/finding.h"
#include "tools/launchlist/list/item_check.h"

namespace launchlist {

// Appends the mistakes of "argc" and "args".
void CheckArguments(ItemToCheck& item, Findings& findings);

}  // namespace launchlist
