#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
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

struct Options
{
    std::vector<std::string> logs;  // Empty: the log of this user's launcher.
    std::string since;
    std::string until;
    std::string html;
    bool is_forced = false;
    bool json = false;
};

Milliseconds Now()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<Milliseconds>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// For CLI11: "" if `text` is a time, otherwise what is wrong with it.
std::string CheckMoment(const std::string& text)
{
    return ParseMoment(text, Now()) ? ""
                                    : "invalid time \"" + printable(text) +
                                          "\"; use 2026-11-21T02:26, 90s, 15m, 2h or 3d";
}

std::optional<Milliseconds> MomentOf(const std::string& text)
{
    return text.empty() ? std::nullopt : ParseMoment(text, Now());
}

// A terminal that reports no width counts as one of the usual width.
Terminal OwnTerminal()
{
    constexpr std::size_t kUsualWidth = 80;
    Terminal terminal;
    winsize size = {};
    if (isatty(STDOUT_FILENO) != 0) {
        const bool has_width = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
        terminal.width = has_width ? size.ws_col : kUsualWidth;
    }
    terminal.color = UseColor();
    return terminal;
}

int PrintReport(const Report& report, const std::string& level_file, bool json)
{
    if (!json) {
        return Print(ReportText(report, level_file, OwnTerminal()), kSuccess);
    }
    int status = kSuccess;
    WriteReportJson(report, [&status](std::string_view piece) {
        // After a failure the rest is dropped.
        status = status == kSuccess ? Print(std::string(piece), kSuccess) : status;
    });
    return status;
}

int RunReport(Options options)
{
    const ReportRange range = {MomentOf(options.since), MomentOf(options.until), Now()};
    if (range.since && range.until && *range.until < *range.since) {
        std::fprintf(stderr,
                     "launchlist: --until %s is earlier than --since %s\n"
                     "Try \"launchlist --help\".\n",
                     printable(options.until).c_str(), printable(options.since).c_str());
        return kUsage;
    }
    // This user's level file is known to apply only to this user's own launcher.
    const std::string level_file = options.logs.empty() ? GetLevelPath() : "";
    if (options.logs.empty()) {
        options.logs.push_back(GetLogPath());
    }
    const Report report = MakeReport(options.logs, range);
    const auto is_read = [](const LogFile& file) { return file.error.empty(); };
    if (std::none_of(report.files.begin(), report.files.end(), is_read)) {
        return FailOn(report.files.front().path, report.files.front().error);
    }
    std::string error;
    if (!options.html.empty() && !WritePage(options.html, ReportHtml(report, level_file),
                                            report.files, options.is_forced, error)) {
        return FailOn(options.html, error);
    }
    return PrintReport(report, level_file, options.json);
}

}  // namespace

Command AddReportCommand(CLI::App& app)
{
    CLI::App* parser = app.add_subcommand(
        "report", "Summarize from the log how often items ran, ended and crashed.");
    const auto options = std::make_shared<Options>();
    const CLI::Validator moment(CheckMoment, "TIME", "time");
    parser->add_option("LOG", options->logs,
                       "Logs, each with its old files LOG.1, LOG.2, ...; - is standard input; "
                       "default: the log of this user's launcher");
    parser->add_option("--since", options->since, "Report on the time from TIME on")->check(moment);
    parser->add_option("--until", options->until, "Report on the time up to TIME")->check(moment);
    parser->add_option("--html", options->html, "Also write the report to FILE, as a web page")
        ->type_name("FILE");
    parser->add_flag("--force", options->is_forced, "Let --html replace any regular file");
    parser->add_flag("--json", options->json, "Print JSON, for programs");
    parser->footer(
        "TIME is in UTC, 2026-11-21 or \"2026-11-21 02:26\", or an age: 90s, 15m, 2h, 3d.\n"
        "A log may be compressed by gzip.\n"
        "Exit status: 0 reported, 3 no log can be read or the output cannot be written,\n"
        "64 invalid arguments.\n"
        "Example:\n  launchlist report --since 2h --html report.html");
    return {parser, [options] { return RunReport(*options); }};
}

}  // namespace launchlist
