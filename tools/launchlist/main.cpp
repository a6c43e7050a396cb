// launchlist: tells what a launch list does before it runs, and what happened after.
//
//     launchlist check LIST | explain LIST | report [LOG...]

#include <locale.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "logging/log_path.h"
#include "tools/launchlist/base/files.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/check.h"
#include "tools/launchlist/list/explain.h"
#include "tools/launchlist/log/report.h"
#include "tools/launchlist/output/list_output.h"
#include "tools/launchlist/output/report_output.h"

namespace {

using namespace launchlist;

// Exit statuses; launchlist(1) lists them.
constexpr int kNothing = 0;
constexpr int kWarnings = 1;
constexpr int kErrors = 2;
constexpr int kUnreadable = 3;  // Or not to be written.
constexpr int kUsage = 64;

// Whether to use colour on standard output: on a terminal, unless NO_COLOR asks for none.
bool UseColor()
{
    const char* no_color = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) != 0 && (no_color == nullptr || *no_color == '\0');
}

// Prints `text`, all of which is printable; gives `status`, or the one of a failure.
int Print(const std::string& text, int status)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    return std::fflush(stdout) == 0 ? status : kUnreadable;
}

// Tells that `path` could not be read, or written.
int FailOn(const std::string& path, const std::string& error)
{
    std::fprintf(stderr, "launchlist: %s: %s\n", printable(path).c_str(), error.c_str());
    return kUnreadable;
}

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

struct ReportOptions
{
    std::vector<std::string> logs;
    std::string since;
    std::string until;
    std::string html;
    bool json = false;
};

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

int ShowReport(ReportOptions options)
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

void AddListOptions(CLI::App* command, std::string& list, bool& json)
{
    command->add_option("LIST", list, "The launch list")->required();
    command->add_flag("--json", json, "Print JSON, for programs");
}

void AddReportOptions(CLI::App* command, ReportOptions& options)
{
    const CLI::Validator moment(CheckMoment, "TIME", "time");
    command->add_option("LOG", options.logs,
                        "Logs, each with its old files LOG.1, LOG.2, ...; without one, the log of "
                        "this user's launcher");
    command->add_option("--since", options.since, "Leave out what is older")->check(moment);
    command->add_option("--until", options.until, "Leave out what is newer")->check(moment);
    command->add_option("--html", options.html, "Write the report as a page to this file, too")
        ->type_name("FILE");
    command->add_flag("--json", options.json, "Print JSON, for programs");
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

    CLI::App* report = app.add_subcommand("report", "Tell from the log how the items fared.");
    AddReportOptions(report, options);
    report->footer(
        "TIME is in UTC, 2026-11-21 or \"2026-11-21 02:26\", or an age: 90s, 15m, 2h, 3d.\n"
        "Exit status: 0 the report is there, 3 no log can be read.\n"
        "Example:\n  launchlist report --since 2h --html report.html");

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
        return ShowReport(options);
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
