// What `check` and `explain` print.
#pragma once

#include <string>
#include <vector>

#include "tools/launchlist/list/explain.h"
#include "tools/launchlist/list/finding.h"

namespace launchlist {

// The version of what `check --json` and `explain --json` print; see docs/schema.
inline constexpr int kListFormatVersion = 1;

// What became of the check of one list.
struct CheckedList
{
    std::string name;   // The path of the file, or "-".
    std::string error;  // Why it could not be read; "" if it was.
    Findings findings;
};

const char* NameOf(Severity severity);

// In the form that compilers use, each followed by its effect and how to fix it. `list` is the name
// of the list's file; `color` adds escape sequences of a terminal.
std::string FindingsText(const std::string& list, const Findings& findings, bool color);
std::string FindingsJson(const std::vector<CheckedList>& lists);

std::string ExplanationText(const Explanation& explanation, bool color);
std::string ExplanationJson(const std::string& list, const Explanation& explanation);

}  // namespace launchlist
