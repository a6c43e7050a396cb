// The items of a launch list with the command lines that the launcher gives them.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace launchlist {

struct ListedItem
{
    int index = 0;
    std::optional<std::string> name;  // Nothing: the launcher skips the item.
    std::string program;
    // The arguments, the program first, each with a NUL at its end. Nothing if the child never
    // executes the program with a known vector; `problem` then says why.
    std::optional<std::string> command_line;
    std::string problem;
    std::optional<int> replaced_by;  // The next item of the same name, which ends this one.
};

struct ListedItems
{
    std::vector<ListedItem> items;  // Up to the first gap, or to an item that is rejected.
    bool is_rejected = false;       // The launcher would end on this list.
};

// Reads the list whose file holds `bytes`. No other file is examined.
ListedItems ReadItems(const std::string& bytes);

}  // namespace launchlist
