// launchlist: checks launch lists, shows what is running, and summarizes the launcher's log.

#include <locale.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/commands/commands.h"

namespace {

using namespace launchlist;

int ReportUsageError(const std::string& message)
{
    std::fprintf(stderr, "launchlist: %s\nTry \"launchlist --help\".\n",
                 printable(message).c_str());
    return kUsage;
}

// What is wrong with `name` as a subcommand; "" if nothing is. CLI11 would report an unknown one as
// an unexpected argument.
std::string FindUnknownCommand(const std::string& name, const std::vector<Command>& commands)
{
    if (name.empty() || name[0] == '-') {
        return "";
    }
    std::vector<std::string> names;
    for (const Command& command : commands) {
        names.push_back(command.parser->get_name());
        if (names.back() == name) {
            return "";
        }
    }
    const std::string nearest = closest_word(name, names);
    return "unknown command " + quoted(name) +
           (nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?");
}

// Omits the type that CLI11 prints for every positional argument, TEXT.
void SimplifyHelp(CLI::App& app)
{
    app.get_formatter()->label("Positionals", "Arguments");
    for (CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        for (CLI::Option* option : command->get_options()) {
            if (option->get_positional() && option->get_type_name() == "TEXT") {
                option->type_name("");
            }
        }
    }
}

int RunCommand(int argc, char** argv)
{
    CLI::App app("Checks launch lists, shows what is running, and summarizes the launcher's log.");
    app.name("launchlist");
    app.set_version_flag("--version", "launchlist " KESTRANE_VERSION, "Print the version and exit");
    app.require_subcommand(1);
    app.footer("Example:\n  launchlist check helpers.json && launchlist explain helpers.json");
    const std::vector<Command> commands = {AddCheckCommand(app),  AddExplainCommand(app),
                                           AddFixCommand(app),    AddNewCommand(app),
                                           AddStatusCommand(app), AddLogCommand(app),
                                           AddReportCommand(app), AddCompletionCommand(app)};

    SimplifyHelp(app);

    const std::string unknown = FindUnknownCommand(argc > 1 ? argv[1] : "", commands);
    if (!unknown.empty()) {
        return ReportUsageError(unknown);
    }
    try {
        app.parse(ArgumentsForParser(argc, argv));
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            return ReportUsageError(
                error.what());  // CLI11's messages contain the arguments unchanged.
        }
        std::ostringstream help_or_version;
        app.exit(error, help_or_version);
        return Print(help_or_version.str(), kSuccess);
    }
    const auto is_given = [](const Command& command) { return command.parser->parsed(); };
    return std::find_if(commands.begin(), commands.end(), is_given)->run();
}

}  // namespace

int main(int argc, char** argv)
{
    // Only for the width of characters; numbers and messages stay as they are.
    if (setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
        setlocale(LC_CTYPE, "UTF-8");
    }
    try {
        return RunCommand(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "launchlist: %s\n", printable(error.what()).c_str());
        return kFailure;
    }
}
