#include "tools/launchlist/report_command.h"

#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "logging/log_path.h"
#include "tools/launchlist/base/files.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/command.h"
#include "tools/launchlist/log/report.h"
#include "tools/launchlist/output/report_output.h"

namespace launchlist {

namespace {

Milliseconds Now()
{
    return static_cast<Milliseconds>(time(nullptr)) * 1000;
}

// Whether `text` is a moment, for CLI11: "" if it is, else what is wrong with it.
std::string CheckMoment(const std::string& text)
{
    return ParseMoment(text, Now()) ? "" : "no time: " + printable(text);
}

std::optional<Milliseconds> MomentOf(const std::string& text)
{
    return text.empty() ? std::nullopt : ParseMoment(text, Now());
}

Terminal OwnTerminal()
{
    Terminal terminal;
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        terminal.width = size.ws_col;
    }
    terminal.color = UseColor();
    return terminal;
}

}  // namespace

CLI::App* AddReportCommand(CLI::App& app, ReportOptions& options)
{
    CLI::App* command = app.add_subcommand("report", "Tell from the log how the items fared.");
    const CLI::Validator moment(CheckMoment, "TIME", "time");
    command->add_option("LOG", options.logs,
                        "Logs, each with its old files LOG.1, LOG.2, ...; without one, the log of "
                        "this user's launcher");
    command->add_option("--since", options.since, "Leave out what is older")->check(moment);
    command->add_option("--until", options.until, "Leave out what is newer")->check(moment);
    command->add_option("--html", options.html, "Write the report as a page to this file, too")
        ->type_name("FILE");
    command->add_flag("--json", options.json, "Print JSON, for programs");
    command->footer(
        "TIME is in UTC, 2026-11-21 or \"2026-11-21 02:26\", or an age: 90s, 15m, 2h, 3d.\n"
        "Exit status: 0 the report is there, 3 no log can be read.\n"
        "Example:\n  launchlist report --since 2h --html report.html");
    return command;
}

int RunReport(ReportOptions options)
{
    if (options.logs.empty()) {
        options.logs.push_back(GetLogPath());
    }
    const Report report =
        MakeReport(options.logs, {MomentOf(options.since), MomentOf(options.until)});
    const auto is_read = [](const LogFile& file) { return file.error.empty(); };
    if (std::none_of(report.files.begin(), report.files.end(), is_read)) {
        return FailOn(report.files.front().path, report.files.front().error);
    }
    const std::string level_file = GetLevelPath();
    std::string error;
    if (!options.html.empty() && !WriteFile(options.html, ReportHtml(report, level_file), error)) {
        return FailOn(options.html, error);
    }
    return Print(options.json ? ReportJson(report) : ReportText(report, level_file, OwnTerminal()),
                 kNothing);
}

}  // namespace launchlist
