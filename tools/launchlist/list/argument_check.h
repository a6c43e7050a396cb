// Finding the mistakes of an item's "argc" and "args".
#pragma once

#include "tools/launchlist/list/item_check.h"

namespace launchlist {

// Adds the mistakes of "argc" and "args".
void CheckArguments(ItemToCheck& item);

}  // namespace launchlist
