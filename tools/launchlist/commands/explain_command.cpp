#include <memory>

#include "tools/launchlist/commands/commands.h"
#include "tools/launchlist/list/explain.h"
#include "tools/launchlist/output/list_output.h"

namespace launchlist {

namespace {

struct ExplainOptions
{
    std::string list;
    bool json = false;
};

int RunExplain(const ExplainOptions& options)
{
    std::string bytes;
    std::string error;
    if (!ReadList(options.list, bytes, error)) {
        return ReportFailure(options.list, error);
    }
    const Explanation explanation = ExplainList(bytes);
    return Print(options.json ? ExplanationJson(options.list, explanation)
                              : ExplanationText(explanation, UseColor()),
                 EndsPossibly(explanation.outcomes) ? kErrors : kSuccess);
}

}  // namespace

Command AddExplainCommand(CLI::App& app)
{
    CLI::App* parser =
        app.add_subcommand("explain", "Show what the launcher does with each item of a list.");
    const auto options = std::make_shared<ExplainOptions>();
    parser->add_option("LIST", options->list, "The launch list; - is standard input")->required();
    parser->add_flag("--json", options->json, "Print JSON");
    parser->footer(
        "Exit status: 0 the launcher keeps running until SIGTERM, 2 it ends, or may end, before\n"
        "that, 3 the list cannot be read.\n"
        "Example:\n  launchlist explain helpers.json");
    return {parser, [options] { return RunExplain(*options); }};
}

}  // namespace launchlist
