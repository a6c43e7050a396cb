// What `launchlist check` has to say about a list: a mistake, where it is and what follows from it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace launchlist {

// An error: the launcher ends, a process group is signalled, or an item never runs. Anything else
// that is not as its writer may think is a warning.
enum class Severity
{
    kWarning,
    kError
};

struct Finding
{
    Severity severity = Severity::kError;
    const char* kind = "";  // One word for programs, the same for every finding of its kind.
    std::size_t offset = 0;
    std::string path;  // A JSON pointer, "/0/args/1"; "" is the whole document.
    std::string message;
    std::string effect;  // What the launcher will do.
    std::string remedy;

    std::size_t line = 1;
    std::size_t column = 1;
};

using Findings = std::vector<Finding>;

}  // namespace launchlist
