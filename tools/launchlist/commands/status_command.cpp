#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/commands/commands.h"
#include "tools/launchlist/output/status_formats.h"
#include "tools/launchlist/processes/processes.h"
#include "tools/launchlist/status/launcher_program.h"
#include "tools/launchlist/status/status_reader.h"

namespace launchlist {

namespace {

constexpr int kNoLauncher = 3;

// Without SECONDS, --watch checks in this interval whether something has changed, and prints after
// this many checks in any case.
constexpr double kCheckInterval = 2;
constexpr int kMaxChecks = 5;

constexpr double kMinInterval = 0.1;
constexpr double kMaxInterval = 86400;

struct StatusOptions
{
    std::string list;
    bool json = false;
    bool watches = false;
    std::string interval;           // What followed --watch; "" if nothing did.
    std::optional<double> seconds;  // Between two statuses, if it was given.
};

std::optional<double> ParseInterval(const std::string& text)
{
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    const bool is_number = !text.empty() && *end == '\0';
    return is_number && seconds >= kMinInterval && seconds <= kMaxInterval
               ? std::optional<double>(seconds)
               : std::nullopt;
}

// What follows --watch may be the list instead of the interval.
void ReadInterval(StatusOptions& options)
{
    const std::string& text = options.interval;
    if (text.empty()) {
        return;
    }
    if (const std::optional<double> seconds = ParseInterval(text)) {
        options.seconds = *seconds;
    } else if (options.list.empty() && text.find_first_not_of("0123456789.") != std::string::npos) {
        options.list = text;
    } else {
        throw CLI::ValidationError(
            "--watch", "invalid number of seconds \"" + printable(text) + "\"; use 0.1 to 86400");
    }
}

std::string AbsoluteList(const std::string& list)
{
    if (list.empty() || list[0] == '/') {
        return list;
    }
    const std::unique_ptr<char, void (*)(void*)> directory(getcwd(nullptr, 0), std::free);
    return AbsolutePath(directory == nullptr ? "" : directory.get(), list);
}

int StatusOf(const Status& status)
{
    const auto all_run = [](const LauncherStatus& launcher) {
        return launcher.list_error.empty() && launcher.running == launcher.expected;
    };
    return status.launchers.empty()                                                 ? kNoLauncher
           : std::all_of(status.launchers.begin(), status.launchers.end(), all_run) ? kSuccess
                                                                                    : kWarnings;
}

int PrintStatus(const StatusOptions& options, const Status& status)
{
    const int result = StatusOf(status);
    if (!options.json) {
        return Print(StatusText(status, options.list, TerminalWidth(), UseColor()), result);
    }
    int printed = result;
    WriteStatusJson(status, [&](std::string_view piece) {
        // After a failure the rest is dropped.
        printed = printed == result ? Print(std::string(piece), result) : printed;
    });
    return printed;
}

void Sleep(double seconds)
{
    timespec rest = {};
    rest.tv_sec = static_cast<time_t>(seconds);
    rest.tv_nsec = static_cast<long>((seconds - static_cast<double>(rest.tv_sec)) * 1e9);
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

void AwaitNextStatus(const StatusOptions& options, StatusReader& reader)
{
    if (options.seconds) {
        Sleep(*options.seconds);
        return;
    }
    int checks = 0;
    do {
        Sleep(kCheckInterval);
    } while (++checks < kMaxChecks && !reader.MayHaveChanged());
}

// Before all but the first status. Clears a terminal that can be cleared.
std::string Separator(bool json)
{
    if (json) {
        return "";
    }
    const char* const terminal = std::getenv("TERM");
    const bool can_clear =
        IsTerminal() && terminal != nullptr && *terminal != '\0' && std::string(terminal) != "dumb";
    return can_clear ? "\x1b[H\x1b[2J" : "\n";
}

int RunStatus(const StatusOptions& options)
{
    const std::unique_ptr<ProcessTable> processes = SystemProcesses();
    std::optional<std::string> list;
    if (!options.list.empty()) {
        list = AbsoluteList(options.list);
    }
    StatusReader reader(*processes, list);
    for (bool is_first = true;; is_first = false) {
        const Status status = reader.Read(Now());
        if (!status.error.empty()) {
            return ReportFailure("processes", printable(status.error));
        }
        if (options.watches && !is_first && Print(Separator(options.json), kSuccess) != kSuccess) {
            return kFailure;
        }
        const int result = PrintStatus(options, status);
        if (!options.watches || std::ferror(stdout) != 0) {
            return result;
        }
        AwaitNextStatus(options, reader);
    }
}

}  // namespace

Command AddStatusCommand(CLI::App& app)
{
    CLI::App* parser = app.add_subcommand("status", "Show which launchers and items are running.");
    const auto options = std::make_shared<StatusOptions>();
    parser->add_option("LIST", options->list,
                       "Show only launchers with this list; default: all launchers of this user");
    parser->add_flag("--json", options->json, "Print JSON, for programs");
    CLI::Option* watch =
        parser
            ->add_option("--watch", options->interval,
                         "Print the status every SECONDS, or at changes, until Ctrl-C")
            ->expected(0, 1)
            ->type_name("[SECONDS]");
    parser->callback([options, watch] {
        options->watches = watch->count() > 0;
        ReadInterval(*options);
    });
    parser->footer(
        "Times are in UTC. Memory is the resident memory. CPU is the share of one processor that\n"
        "was used since the process was started or, with --watch, since the previous status.\n"
        "Without SECONDS, --watch looks for changes every 2 seconds, and prints at least every "
        "10.\n"
        "Exit status: 0 all items run, 1 some do not, or whether they run is unknown, 3 no "
        "launcher\n"
        "runs, or the processes cannot be listed.\n"
        "Example:\n  launchlist status helpers.json --watch 5");
    return {parser, [options] { return RunStatus(*options); }};
}

}  // namespace launchlist
