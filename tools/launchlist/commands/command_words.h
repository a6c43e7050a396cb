// What can be typed after "launchlist", taken from the parsers of the subcommands.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace launchlist {

enum class ValueKind
{
    kNone,     // A flag has no value.
    kFile,     // A path.
    kChoices,  // One of a few words.
    kOther     // Nothing that could be suggested.
};

struct Value
{
    ValueKind kind = ValueKind::kNone;
    std::string name;  // "FILE"
    std::vector<std::string> choices;
    bool is_repeatable = false;
    bool is_optional = false;  // An option can be given without a value.
};

struct OptionWords
{
    std::vector<std::string> short_names;  // Without the dashes.
    std::vector<std::string> long_names;
    std::string description;
    Value value;
};

struct CommandWords
{
    std::string name;
    std::string description;
    std::vector<OptionWords> options;
    std::vector<Value> positionals;   // Only the last one can be repeatable.
    bool options_come_first = false;  // After the first positional argument there are no options.
};

// The words of `app` itself.
CommandWords WordsOf(const CLI::App& app);

// The words of each of its subcommands, in their order.
std::vector<CommandWords> WordsOfSubcommands(const CLI::App& app);

}  // namespace launchlist
