// What `launchlist check` finds in a list: a mistake, its place, its effect and how to fix it.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/launchlist/list/finding_kinds.h"

namespace launchlist {

struct Finding
{
    Kind kind = Kind::kSyntax;
    std::size_t offset = 0;
    std::string path;  // A JSON pointer, "/0/args/1"; "" is the whole document.
    std::string message;
    std::string effect;  // What the launcher will do.
    std::string fix;

    // The severity of the kind, but always a warning in an item that is never started.
    Severity severity = Severity::kError;

    std::size_t line = 1;
    std::size_t column = 1;
};

// The findings of one list. Of every kind only the first kMaxShown are kept; the others are
// counted, so that a large list with one repeated mistake gives a readable result.
struct Findings
{
    static constexpr std::size_t kMaxShown = 1000;

    std::vector<Finding> shown;
    std::map<Kind, std::size_t> not_shown;
    std::size_t errors = 0;
    std::size_t warnings = 0;

    // Adds a finding. `is_started` is false for a finding in an item that is never started.
    void Add(Finding finding, bool is_started = true);

private:
    std::map<Kind, std::size_t> m_counts;
};

inline void Findings::Add(Finding finding, bool is_started)
{
    finding.severity = is_started ? InfoOf(finding.kind).severity : Severity::kWarning;
    ++(finding.severity == Severity::kError ? errors : warnings);
    if (++m_counts[finding.kind] > kMaxShown) {
        ++not_shown[finding.kind];
    } else {
        shown.push_back(std::move(finding));
    }
}

}  // namespace launchlist
