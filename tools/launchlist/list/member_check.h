// What the checks of lists, items and arguments share.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "json/json_source.h"
#include "tools/launchlist/list/finding.h"

namespace launchlist {

// The JSON pointer `path` extended by the member `name` (RFC 6901).
std::string MemberPath(const std::string& path, const std::string& name);

// Appends a warning for every member that a later member of the same name replaces.
void CheckReplaced(const std::vector<JsonMember>& members, const std::string& path,
                   Findings& findings);

// Replaces the effect of every finding from index `first`: a mistake in an item that the launcher
// does not reach has another effect than in an item that it starts.
void ReplaceEffects(Findings& findings, std::size_t first, const char* effect);

}  // namespace launchlist
