#include <algorithm>
#include <memory>
#include <vector>

#include "tools/launchlist/commands/commands.h"
#include "tools/launchlist/list/check.h"
#include "tools/launchlist/output/list_output.h"

namespace launchlist {

namespace {

struct Options
{
    std::vector<std::string> lists;
    bool json = false;
};

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

int RunCheck(const Options& options)
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

}  // namespace

Command AddCheckCommand(CLI::App& app)
{
    CLI::App* parser = app.add_subcommand("check", "Find the mistakes in launch lists.");
    const auto options = std::make_shared<Options>();
    parser->add_option("LIST", options->lists, "Launch lists; - is standard input")->required();
    parser->add_flag("--json", options->json, "Print JSON");
    parser->callback([options] {
        if (std::count(options->lists.begin(), options->lists.end(), "-") > 1) {
            throw CLI::ValidationError("LIST", "- can be given only once");
        }
    });
    parser->footer(
        "Exit status: 0 no mistakes, 1 warnings only, 2 errors, 3 a list cannot be read.\n"
        "Example:\n  launchlist check helpers.json");
    return {parser, [options] { return RunCheck(*options); }};
}

}  // namespace launchlist
