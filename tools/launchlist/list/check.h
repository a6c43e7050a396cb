// Finding the mistakes of a launch list.
//
// Nothing is run, signalled or written. The only files examined are the programs that the list
// names.
#pragma once

#include <string>

#include "tools/launchlist/list/finding.h"

namespace launchlist {

// The mistakes of the list whose file holds `bytes`, in the order of the text.
Findings CheckList(const std::string& bytes);

}  // namespace launchlist
