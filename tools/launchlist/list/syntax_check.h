// Explaining why a text is not JSON.
#pragma once

#include <string>

#include "json/json_source.h"
#include "tools/launchlist/list/finding.h"

namespace launchlist {

// The finding for `text`, in which the reader found `fault`. Its place is that of the cause rather
// than that where the reader noticed it: for an unclosed string, the start of the string.
Finding ExplainFault(const std::string& text, const JsonFault& fault);

}  // namespace launchlist
