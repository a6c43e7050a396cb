// Writing a new item of a launch list.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/launchlist/base/text_edit.h"

namespace launchlist {

// All in UTF-8, without NUL characters.
struct NewItem
{
    std::string name;
    std::string program;
    std::vector<std::string> arguments;
};

// The item as a JSON object over several lines, without a line feed at the end.
std::string ItemText(const NewItem& item);

struct Appended
{
    std::string number;  // The item's number: the next one after the largest in the list.
    TextEdits edits;
};

// The edits that append `item` to the list whose file holds `bytes`, in the layout of the list.
// Empty if the list is not a JSON object, or does not end as JSON requires.
std::optional<Appended> AppendItem(const std::string& bytes, const NewItem& item);

}  // namespace launchlist
