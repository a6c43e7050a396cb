// What `check --sarif` prints: findings for code scanning services, as SARIF 2.1.0.
#pragma once

#include <string>
#include <vector>

#include "tools/launchlist/output/list_output.h"

namespace launchlist {

// One run of launchlist `version` that checked `lists`. Lists that could not be read, and findings
// that are not shown, are notifications of the run.
std::string FindingsSarif(const std::vector<CheckedList>& lists, const std::string& version);

}  // namespace launchlist
