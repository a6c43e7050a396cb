// The walk along a launch list, told beforehand.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace launchlist {

struct Step
{
    int index = 0;
    std::optional<std::string> name;
    std::optional<std::string> program;

    // What execv is given, the program's path first. Nothing when the item comes to no execv.
    std::optional<std::vector<std::string>> arguments;

    std::string note;             // Why there is none, or what is special about it.
    std::optional<int> replaced;  // The item of the same name that ends when this one starts.
};

struct Walk
{
    std::vector<Step> steps;
    std::string end;             // How the walk ends.
    bool ends_launcher = false;  // Whether the launcher ends with it instead of waiting.
};

// The walk that the launcher makes along the list whose file holds `bytes`.
Walk ExplainList(const std::string& bytes);

}  // namespace launchlist
