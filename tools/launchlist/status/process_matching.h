// Matching the children of a launcher to the items of its list.
//
// A process is recognized by its command line, unless it has written another one there, or several
// items have the same one. Then the file that it executes is compared, if its path is known.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/launchlist/status/status.h"

namespace launchlist {

struct MatchedProcess
{
    std::optional<std::string> command_line;  // As ProcessTable::CommandLineOf.
    std::string executable;                   // "" if it is unknown.
};

struct MatchedItem
{
    std::optional<std::string> command_line;  // As ListedItem.
    std::string executable;                   // Of the program; "" if it is unknown.
    bool is_replaced = false;
};

struct Match
{
    std::size_t item = 0;
    std::size_t process = 0;
    MatchedBy by = MatchedBy::kArguments;
};

// Items that cannot be told apart, and their processes, of which there are as many or fewer.
struct IndistinguishableItems
{
    std::vector<std::size_t> items;
    std::vector<std::size_t> processes;
    MatchedBy by = MatchedBy::kArguments;
};

struct Matching
{
    std::vector<Match> matches;
    std::vector<IndistinguishableItems> indistinguishable;
    std::vector<std::size_t> unmatched;  // Processes.
};

// Every process is in exactly one of the three parts, and no item is in two.
Matching MatchProcesses(const std::vector<MatchedItem>& items,
                        const std::vector<MatchedProcess>& processes);

}  // namespace launchlist
