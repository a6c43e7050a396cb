#include <algorithm>
#include <memory>

#include "tools/launchlist/base/files.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/commands/commands.h"
#include "tools/launchlist/list/check.h"
#include "tools/launchlist/list/fix.h"
#include "tools/launchlist/output/list_output.h"
#include "tools/launchlist/output/unified_diff.h"

namespace launchlist {

namespace {

struct FixOptions
{
    std::vector<std::string> lists;
    bool is_written = false;
    std::string fail_on = kFailOnWarnings;
};

// Reports the mistakes that remain on standard error, so that standard output is only the diff.
int ReportRest(const std::string& path, const FixedList& fixed, const std::string& fail_on)
{
    const Findings findings = CheckList(fixed.bytes);
    if (!fixed.numbering_problem.empty()) {
        std::fprintf(stderr, "%s: the items are not renumbered, because %s\n",
                     printable(path).c_str(), fixed.numbering_problem.c_str());
    }
    std::fprintf(stderr, "%s", FindingsText(path, findings, false).c_str());
    return StatusOf(findings, fail_on);
}

int FixOne(const std::string& path, const FixOptions& options)
{
    std::string bytes;
    std::string error;
    if (!ReadList(path, bytes, error)) {
        return ReportFailure(path, error);
    }
    const FixedList fixed = FixList(bytes);
    std::string diff = UnifiedDiff(path, bytes, fixed.edits);
    if (IsTerminal()) {
        diff = DiffForTerminal(diff, UseColor());
    }
    const int status = Print(diff, kSuccess);
    if (status != kSuccess) {
        return status;
    }
    if (options.is_written && !fixed.edits.empty() &&
        !ReplaceContents(path, bytes, fixed.bytes, error)) {
        return ReportFailure(path, error);
    }
    return ReportRest(path, fixed, options.fail_on);
}

int RunFix(const FixOptions& options)
{
    int status = kSuccess;
    for (const std::string& path : options.lists) {
        status = std::max(status, FixOne(path, options));
    }
    return status;
}

}  // namespace

Command AddFixCommand(CLI::App& app)
{
    CLI::App* parser = app.add_subcommand(
        "fix", "Correct those mistakes in launch lists that can be corrected in only one way.");
    const auto options = std::make_shared<FixOptions>();
    parser->add_option("LIST", options->lists, "Launch lists; - is standard input")->required();
    parser->add_flag("--write", options->is_written, "Replace the lists with the corrected ones");
    AddFailOn(*parser, options->fail_on);
    parser->callback([options] {
        const auto inputs = std::count(options->lists.begin(), options->lists.end(), "-");
        if (inputs > 1) {
            throw CLI::ValidationError("LIST", "- can be given only once");
        }
        if (inputs > 0 && options->is_written) {
            throw CLI::ValidationError("LIST", "--write cannot replace standard input");
        }
    });
    parser->footer(
        "Prints the corrections as a unified diff, and the mistakes that remain to standard "
        "error.\n"
        "Exit status: 0 no mistakes remain, 1 warnings only, 2 errors, 3 a list cannot be read\n"
        "or replaced. With --fail-on error, 0 also for warnings only.\n"
        "Example:\n  launchlist fix --write helpers.json");
    return {parser, [options] { return RunFix(*options); }};
}

}  // namespace launchlist
