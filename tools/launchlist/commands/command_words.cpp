#include "tools/launchlist/commands/command_words.h"

#include <algorithm>
#include <iterator>

namespace launchlist {

namespace {

// The names of values that are paths.
constexpr const char* kPaths[] = {"FILE", "LIST", "LOG", "PROGRAM"};

// CLI11 describes a value by a type and a check, "TEXT:{name,ends}" or "TEXT:TIME". A positional
// argument is described by its name as well.
Value ValueOf(const CLI::Option& option)
{
    Value value;
    if (option.get_items_expected_max() == 0) {
        return value;
    }
    value.is_repeatable = option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll ||
                          option.get_items_expected_max() > 1;
    value.is_optional = option.get_items_expected_min() == 0;
    const std::string type = option.get_type_name();
    value.name = option.get_positional() ? option.get_name(true) : type.substr(type.find(':') + 1);
    value.kind = ValueKind::kOther;
    const std::size_t begin = type.find('{');
    const std::size_t end = type.find('}');
    if (begin != std::string::npos && end != std::string::npos && begin < end) {
        value.kind = ValueKind::kChoices;
        value.choices = CLI::detail::split(type.substr(begin + 1, end - begin - 1), ',');
        value.name = option.get_positional() ? value.name : "WORD";
    } else if (std::find(std::begin(kPaths), std::end(kPaths), value.name) != std::end(kPaths)) {
        value.kind = ValueKind::kFile;
    }
    return value;
}

}  // namespace

CommandWords WordsOf(const CLI::App& app)
{
    CommandWords words;
    words.name = app.get_name();
    words.description = app.get_description();
    words.options_come_first = app.get_positionals_at_end();
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) {
            words.positionals.push_back(ValueOf(*option));
        } else {
            words.options.push_back({option->get_snames(), option->get_lnames(),
                                     option->get_description(), ValueOf(*option)});
        }
    }
    return words;
}

std::vector<CommandWords> WordsOfSubcommands(const CLI::App& app)
{
    std::vector<CommandWords> commands;
    const auto is_any = [](const CLI::App*) { return true; };
    for (const CLI::App* command : app.get_subcommands(is_any)) {
        commands.push_back(WordsOf(*command));
    }
    return commands;
}

}  // namespace launchlist
