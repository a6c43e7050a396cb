#include <algorithm>
#include <memory>
#include <vector>

#include "tools/launchlist/commands/commands.h"
#include "tools/launchlist/list/check.h"
#include "tools/launchlist/output/list_output.h"
#include "tools/launchlist/output/sarif_output.h"

namespace launchlist {

namespace {

struct CheckOptions
{
    std::vector<std::string> lists;
    bool json = false;
    bool sarif = false;
    std::string fail_on = kFailOnWarnings;
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

int StatusOf(const CheckedList& list, const CheckOptions& options)
{
    return list.error.empty() ? StatusOf(list.findings, options.fail_on) : kFailure;
}

std::string Formatted(const std::vector<CheckedList>& lists, const CheckOptions& options)
{
    if (options.json) {
        return FindingsJson(lists);
    }
    if (options.sarif) {
        return FindingsSarif(lists, KESTRANE_VERSION);
    }
    std::string text;
    for (const CheckedList& list : lists) {
        text += list.error.empty() ? FindingsText(list.name, list.findings, UseColor()) : "";
    }
    return text;
}

int RunCheck(const CheckOptions& options)
{
    std::vector<CheckedList> lists;
    int status = kSuccess;
    for (const std::string& path : options.lists) {
        lists.push_back(CheckOne(path));
        status = std::max(status, StatusOf(lists.back(), options));
        if (!lists.back().error.empty()) {
            ReportFailure(path, lists.back().error);
        }
    }
    return Print(Formatted(lists, options), status);
}

}  // namespace

Command AddCheckCommand(CLI::App& app)
{
    CLI::App* parser = app.add_subcommand("check", "Find the mistakes in launch lists.");
    const auto options = std::make_shared<CheckOptions>();
    parser->add_option("LIST", options->lists, "Launch lists; - is standard input")->required();
    CLI::Option* json = parser->add_flag("--json", options->json, "Print JSON");
    parser->add_flag("--sarif", options->sarif, "Print SARIF 2.1.0, for code scanning services")
        ->excludes(json);
    AddFailOn(*parser, options->fail_on);
    parser->callback([options] {
        if (std::count(options->lists.begin(), options->lists.end(), "-") > 1) {
            throw CLI::ValidationError("LIST", "- can be given only once");
        }
    });
    parser->footer(
        "Exit status: 0 no mistakes, 1 warnings only, 2 errors, 3 a list cannot be read.\n"
        "With --fail-on error, 0 also for warnings only.\n"
        "Example:\n  launchlist check helpers.json");
    return {parser, [options] { return RunCheck(*options); }};
}

}  // namespace launchlist
