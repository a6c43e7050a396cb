// Explaining why a text is not JSON.
#pragma once

#include <string>

#include "json/json_source.h"
#include "tools/launchlist/list/finding.h"

namespace launchlist {

// The finding for `text`, in which the reader found `fault`. It names the cause rather than the
// place where the reader noticed: for an unclosed string, where the string starts.
Finding ExplainFault(const std::string& text, const JsonFault& fault);

}  // namespace launchlist
