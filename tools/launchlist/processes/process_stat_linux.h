// Parsing the files of /proc.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "tools/launchlist/processes/processes.h"

namespace launchlist {

// What one file /proc/PID/stat says. Times are in clock ticks.
struct ProcessStat
{
    char state = '?';
    pid_t parent = 0;
    std::uint64_t flags = 0;
    std::uint64_t cpu = 0;
    std::uint64_t start = 0;     // Since the system was started.
    std::uint64_t resident = 0;  // In pages.
    // A hash of the program's name and of the addresses of its code, stack, arguments and
    // environment, which execve chooses. 0 if this user may not know the addresses.
    std::uint64_t image = 0;
};

// Parses the text of a "stat" file. The name of the program is in parentheses and may contain
// anything, including parentheses and line feeds. Nothing if fields are missing.
std::optional<ProcessStat> ParseProcessStat(std::string_view text);

// The real user id in the text of a "status" file. The name of the program, which precedes it, has
// its line feeds escaped.
std::optional<uid_t> ParseUser(std::string_view text);

// The flags with which a descriptor was opened, in the text of an "fdinfo" file.
std::optional<int> ParseOpenFlags(std::string_view text);

}  // namespace launchlist
