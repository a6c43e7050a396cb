// launchlist: shows what the launcher will do with a list, and reports what it did.
//
//     launchlist check LIST... | explain LIST | report [LOG...]

#include <locale.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>
#include <string>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/command.h"
#include "tools/launchlist/list_commands.h"
#include "tools/launchlist/report_command.h"

namespace {

using namespace launchlist;

constexpr std::array<const char*, 3> kCommands = {"check", "explain", "report"};

int FailOnUsage(const std::string& message)
{
    std::fprintf(stderr, "launchlist: %s\nTry \"launchlist --help\".\n",
                 printable(message).c_str());
    return kUsage;
}

// What is wrong with the first argument as a subcommand; "" if nothing is. CLI11 would report an
// unknown one as an unexpected argument.
std::string FindUnknownCommand(const std::string& name)
{
    if (name.empty() || name[0] == '-' ||
        std::find(kCommands.begin(), kCommands.end(), name) != kCommands.end()) {
        return "";
    }
    const std::string nearest = closest_word(name, {kCommands.begin(), kCommands.end()});
    return "unknown command " + quoted(name) +
           (nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?");
}

int RunCommand(int argc, char** argv)
{
    const std::string unknown = FindUnknownCommand(argc > 1 ? argv[1] : "");
    if (!unknown.empty()) {
        return FailOnUsage(unknown);
    }
    CLI::App app("Shows what the launcher will do with a launch list, and reports what it did.");
    app.name("launchlist");
    app.set_version_flag("--version", "launchlist " KESTRANE_VERSION);
    app.require_subcommand(1);
    app.footer("Example:\n  launchlist check helpers.json && launchlist explain helpers.json");
    ListOptions list_options;
    ReportOptions report_options;
    const CLI::App* check = AddCheckCommand(app, list_options);
    const CLI::App* explain = AddExplainCommand(app, list_options);
    AddReportCommand(app, report_options);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            return FailOnUsage(error.what());  // CLI11's messages contain the arguments unchanged.
        }
        std::ostringstream help_or_version;
        app.exit(error, help_or_version);
        return Print(help_or_version.str(), kSuccess);
    }
    return check->parsed()     ? RunCheck(list_options)
           : explain->parsed() ? RunExplain(list_options)
                               : RunReport(report_options);
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
        return kUnreadable;
    }
}
