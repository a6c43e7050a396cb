#include "tools/launchlist/list_commands.h"

#include <unistd.h>

#include <algorithm>

#include "tools/launchlist/base/files.h"
#include "tools/launchlist/command.h"
#include "tools/launchlist/list/check.h"
#include "tools/launchlist/list/explain.h"
#include "tools/launchlist/output/list_output.h"

namespace launchlist {

namespace {

bool ReadList(const std::string& path, std::string& bytes, std::string& error)
{
    return path == "-" ? ReadDescriptor(STDIN_FILENO, bytes, error) : ReadFile(path, bytes, error);
}

CheckedList CheckOne(const std::string& path)
{
    CheckedList list;
    list.name = path;
    std::string bytes;
    if (ReadList(path, bytes, list.error)) {
        list.findings = CheckList(bytes);
    }
    return list;
}

int StatusOf(const CheckedList& list)
{
    return !list.error.empty()          ? kUnreadable
           : list.findings.errors > 0   ? kErrors
           : list.findings.warnings > 0 ? kWarnings
                                        : kSuccess;
}

}  // namespace

CLI::App* AddCheckCommand(CLI::App& app, ListOptions& options)
{
    CLI::App* command = app.add_subcommand("check", "Find the mistakes in launch lists.");
    command->add_option("LIST", options.lists, "Launch lists; - is standard input")->required();
    command->add_flag("--json", options.json, "Print JSON");
    command->callback([&options] {
        if (std::count(options.lists.begin(), options.lists.end(), "-") > 1) {
            throw CLI::ValidationError("LIST", "- can be given only once");
        }
    });
    command->footer(
        "Exit status: 0 no mistakes, 1 warnings only, 2 errors, 3 a list cannot be read.\n"
        "Example:\n  launchlist check helpers.json");
    return command;
}

CLI::App* AddExplainCommand(CLI::App& app, ListOptions& options)
{
    CLI::App* command =
        app.add_subcommand("explain", "Show what the launcher does with each item of a list.");
    command->add_option("LIST", options.lists, "The launch list; - is standard input")
        ->required()
        ->expected(1);
    command->add_flag("--json", options.json, "Print JSON");
    command->footer(
        "Exit status: 0 the launcher keeps running until SIGTERM, 2 it ends or may end before, 3\n"
        "the list cannot be read.\n"
        "Example:\n  launchlist explain helpers.json");
    return command;
}

int RunCheck(const ListOptions& options)
{
    std::vector<CheckedList> lists;
    std::string text;
    int status = kSuccess;
    for (const std::string& path : options.lists) {
        const CheckedList list = CheckOne(path);
        status = std::max(status, StatusOf(list));
        if (!list.error.empty()) {
            FailOn(path, list.error);
        } else if (!options.json) {
            text += FindingsText(path, list.findings, UseColor());
        }
        if (options.json) {
            lists.push_back(list);
        }
    }
    return Print(options.json ? FindingsJson(lists) : text, status);
}

int RunExplain(const ListOptions& options)
{
    const std::string& path = options.lists.front();
    std::string bytes;
    std::string error;
    if (!ReadList(path, bytes, error)) {
        return FailOn(path, error);
    }
    const Explanation explanation = ExplainList(bytes);
    return Print(options.json ? ExplanationJson(path, explanation)
                              : ExplanationText(explanation, UseColor()),
                 EndsPossibly(explanation.outcomes) ? kErrors : kSuccess);
}

}  // namespace launchlist
