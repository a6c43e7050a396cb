#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>

#include "logging/log_path.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/commands/commands.h"
#include "tools/launchlist/log/make_report.h"
#include "tools/launchlist/output/page_file.h"
#include "tools/launchlist/output/report_formats.h"

namespace launchlist {

namespace {

struct ReportOptions
{
    std::vector<std::string> logs;  // Empty: the log of this user's launcher.
    std::string since;
    std::string until;
    std::string html;
    std::string trace;
    ReportFilter filter;
    std::string order;
    std::vector<std::string> fail_on;
    bool is_forced = false;
    bool json = false;
};

// The orders of items, in the order of ItemOrder.
constexpr const char* kOrders[] = {"worst",   "log",      "name",   "starts", "ends",
                                   "crashes", "restarts", "median", "down"};

std::optional<ItemOrder> OrderOf(const std::string& name)
{
    const auto* const found = std::find(std::begin(kOrders), std::end(kOrders), name);
    return found == std::end(kOrders)
               ? std::nullopt
               : std::optional<ItemOrder>(static_cast<ItemOrder>(found - std::begin(kOrders)));
}

// Whether an item restarts in a loop within the time of the report.
bool HasLoop(const Report& report)
{
    return std::any_of(report.items.begin(), report.items.end(),
                       [](const ItemReport& item) { return item.loop.has_value(); });
}

// Returns `status`, or reports a failed write and returns kFailure.
int PrintReport(const Report& report, const std::string& level_file, bool json, int status)
{
    if (!json) {
        return Print(ReportText(report, level_file, {TerminalWidth(), UseColor()}), status);
    }
    bool is_written = true;
    WriteReportJson(report, [&is_written](std::string_view piece) {
        // After a failure the rest is dropped.
        is_written = is_written && Print(std::string(piece), kSuccess) == kSuccess;
    });
    return is_written ? status : kFailure;
}

int RunReport(ReportOptions options)
{
    const ReportRange range = {MomentOf(options.since, Zone::kUtc),
                               MomentOf(options.until, Zone::kUtc), Now()};
    if (IsReversed(options.since, range.since, options.until, range.until)) {
        return kUsage;
    }
    // This user's level file is known to apply only to this user's own launcher.
    const std::string level_file = options.logs.empty() ? GetLevelPath() : "";
    if (options.logs.empty()) {
        options.logs.push_back(GetLogPath());
    }
    Report report = MakeReport(options.logs, range, options.filter);
    report.order = OrderOf(options.order);
    const auto is_read = [](const LogFile& file) { return file.error.empty(); };
    if (std::none_of(report.files.begin(), report.files.end(), is_read)) {
        return ReportFailure(report.files.front().path, report.files.front().error);
    }
    if (!report.unknown_names.empty()) {
        return ReportUnknownItem(options.logs.front(), report.unknown_names.front(),
                                 report.known_names);
    }
    if (!report.knows_launcher) {
        return ReportFailure(options.logs.front(), "mentions no launcher with the process id " +
                                                       std::to_string(*options.filter.launcher));
    }
    std::string error;
    if (!options.trace.empty() &&
        !WriteTrace(options.trace, ReportTrace(report), report.files, options.is_forced, error)) {
        return ReportFailure(options.trace, error);
    }
    if (!options.html.empty() && !WritePage(options.html, ReportHtml(report, level_file),
                                            report.files, options.is_forced, error)) {
        return ReportFailure(options.html, error);
    }
    const bool fails = !options.fail_on.empty() && HasLoop(report);
    return PrintReport(report, level_file, options.json, fails ? kWarnings : kSuccess);
}

}  // namespace

Command AddReportCommand(CLI::App& app)
{
    CLI::App* parser = app.add_subcommand(
        "report", "Summarize from the log how often items ran, ended and crashed.");
    const auto options = std::make_shared<ReportOptions>();
    const CLI::Validator moment(
        [](const std::string& text) { return CheckMoment(text, Zone::kUtc); }, "", "time");
    parser->add_option("LOG", options->logs,
                       "Logs, each with its old files LOG.1, LOG.2, ...; - is standard input; "
                       "default: the log of this user's launcher");
    parser->add_option("--since", options->since, "Report only on what happened since TIME")
        ->type_name("TIME")
        ->check(moment);
    parser->add_option("--until", options->until, "Report only on what happened until TIME")
        ->type_name("TIME")
        ->check(moment);
    parser->add_option("--html", options->html, "Also write the report to FILE, as a web page")
        ->type_name("FILE");
    parser
        ->add_option("--trace", options->trace,
                     "Also write the runs to FILE, as a Chrome trace for Perfetto")
        ->type_name("FILE");
    parser->add_flag("--force", options->is_forced,
                     "Let --html and --trace replace any regular file");
    parser
        ->add_option("--item", options->filter.names,
                     "Report only on this item and the launchers that ran it; can be repeated")
        ->type_name("NAME")
        ->expected(1)
        ->take_all();
    parser
        ->add_option("--launcher", options->filter.launcher,
                     "Report only on the launcher with this process id")
        ->type_name("PID");
    parser->add_option("--sort", options->order, "The order of the items in text and JSON")
        ->type_name("ORDER")
        ->check(CLI::IsMember(std::vector<std::string>(std::begin(kOrders), std::end(kOrders))));
    parser
        ->add_option("--fail-on", options->fail_on,
                     "Exit with status 1 if an item has this problem")
        ->type_name("PROBLEM")
        ->check(CLI::IsMember({"loop"}))
        ->expected(1)
        ->take_all();
    parser->add_flag("--json", options->json, "Print JSON, for programs");
    parser->footer(
        "TIME is in UTC, 2026-11-21 or \"2026-11-21 02:26\", or an age: 90s, 15m, 2h, 3d.\n"
        "A log may be compressed by gzip.\n"
        "Exit status: 0 reported, 1 --fail-on found a problem, 3 no log can be read, the log "
        "mentions\n"
        "no such item or launcher, or the output cannot be written, 64 invalid arguments.\n"
        "Example:\n  launchlist report --since 2h --html report.html");
    return {parser, [options] { return RunReport(*options); }};
}

}  // namespace launchlist
