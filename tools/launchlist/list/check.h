// Finding the mistakes of a launch list.
//
// Nothing is run, signalled or written. The only files examined, besides the list, are the programs
// that it names.
#pragma once

#include <string>

#include "tools/launchlist/list/finding.h"

namespace launchlist {

// Every mistake of the list whose file holds `bytes`, in the order of the text.
Findings CheckList(const std::string& bytes);

}  // namespace launchlist
