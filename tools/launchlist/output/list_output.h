// What `check` and `explain` print.
#pragma once

#include <string>

#include "tools/launchlist/list/explain.h"
#include "tools/launchlist/list/finding.h"

namespace launchlist {

struct Counts
{
    std::size_t errors = 0;
    std::size_t warnings = 0;
};

Counts CountFindings(const Findings& findings);

// In the form that compilers use, with a line each for what happens and what helps. `list` is the
// name of the list's file; `color` adds escape sequences of a terminal.
std::string FindingsText(const std::string& list, const Findings& findings, bool color);
std::string FindingsJson(const std::string& list, const Findings& findings);

std::string WalkText(const Walk& walk, bool color);
std::string WalkJson(const std::string& list, const Walk& walk);

}  // namespace launchlist
