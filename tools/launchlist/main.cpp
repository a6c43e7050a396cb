// launchlist: tells what a launch list does before it runs, and what happened after.
//
//     launchlist check LIST | explain LIST | report [LOG...]

#include <locale.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "tools/launchlist/base/files.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/command.h"
#include "tools/launchlist/list/check.h"
#include "tools/launchlist/list/explain.h"
#include "tools/launchlist/output/list_output.h"
#include "tools/launchlist/report_command.h"

namespace {

using namespace launchlist;

int Check(const std::string& path, bool json)
{
    std::string bytes;
    std::string error;
    if (!ReadFile(path, bytes, error)) {
        return FailOn(path, error);
    }
    const Findings findings = CheckList(bytes);
    const Counts counts = CountFindings(findings);
    return Print(json ? FindingsJson(path, findings) : FindingsText(path, findings, UseColor()),
                 counts.errors > 0     ? kErrors
                 : counts.warnings > 0 ? kWarnings
                                       : kNothing);
}

int Explain(const std::string& path, bool json)
{
    std::string bytes;
    std::string error;
    if (!ReadFile(path, bytes, error)) {
        return FailOn(path, error);
    }
    const Walk walk = ExplainList(bytes);
    return Print(json ? WalkJson(path, walk) : WalkText(walk, UseColor()),
                 walk.ends_launcher ? kErrors : kNothing);
}

void AddListOptions(CLI::App* command, std::string& list, bool& json)
{
    command->add_option("LIST", list, "The launch list")->required();
    command->add_flag("--json", json, "Print JSON, for programs");
}

int RunCommand(int argc, char** argv)
{
    CLI::App app("Tells what a launch list does before it runs, and what happened after.");
    app.name("launchlist");
    app.require_subcommand(1);
    app.footer("Example:\n  launchlist check helpers.json && launchlist explain helpers.json");
    std::string list;
    bool json = false;
    ReportOptions options;

    CLI::App* check = app.add_subcommand("check", "Name every mistake of a launch list.");
    AddListOptions(check, list, json);
    check->footer(
        "Exit status: 0 no mistake, 1 warnings only, 2 errors, 3 the list cannot be read.\n"
        "Example:\n  launchlist check helpers.json");

    CLI::App* explain = app.add_subcommand("explain", "Show what the launcher makes of each item.");
    AddListOptions(explain, list, json);
    explain->footer(
        "Exit status: 0 the launcher would wait for its end, 2 it would end by itself, 3 the list\n"
        "cannot be read.\n"
        "Example:\n  launchlist explain helpers.json");

    const CLI::App* report = AddReportCommand(app, options);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);
        }
        // The words of CLI11 hold the arguments as they are, file names among them.
        std::fprintf(stderr, "launchlist: %s\nlaunchlist --help tells more.\n",
                     printable(error.what()).c_str());
        return kUsage;
    }
    if (report->parsed()) {
        return RunReport(options);
    }
    return check->parsed() ? Check(list, json) : Explain(list, json);
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
        std::fprintf(stderr, "launchlist: %s\n", error.what());
        return kUnreadable;
    }
}
