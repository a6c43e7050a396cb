#include "tools/launchlist/commands/command.h"

#include <errno.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/launchlist/base/files.h"
#include "tools/launchlist/base/text.h"

namespace launchlist {

void AddFailOn(CLI::App& parser, std::string& severity)
{
    parser
        .add_option("--fail-on", severity,
                    "The lowest severity for which the exit status is not 0: warning (the "
                    "default) or error")
        ->type_name("SEVERITY")
        ->check(CLI::IsMember({kFailOnWarnings, kFailOnErrors}));
}

int StatusOf(const Findings& findings, const std::string& fail_on)
{
    const bool has_warnings = findings.warnings > 0 && fail_on == kFailOnWarnings;
    return findings.errors > 0 ? kErrors : has_warnings ? kWarnings : kSuccess;
}

bool ReadList(const std::string& path, std::string& bytes, std::string& error)
{
    return path == "-" ? ReadDescriptor(STDIN_FILENO, bytes, error) : ReadFile(path, bytes, error);
}

bool UseColor()
{
    const char* no_color = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return IsTerminal() && (no_color == nullptr || *no_color == '\0') &&
           (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

bool IsTerminal()
{
    return isatty(STDOUT_FILENO) != 0;
}

std::optional<std::size_t> TerminalWidth()
{
    constexpr std::size_t kUsualWidth = 80;
    winsize size = {};
    if (!IsTerminal()) {
        return std::nullopt;
    }
    const bool has_width = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return has_width ? size.ws_col : kUsualWidth;
}

Milliseconds Now()
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<Milliseconds>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

std::string CheckMoment(const std::string& text, Zone zone)
{
    return ParseMoment(text, Now(), zone) ? ""
                                          : "invalid time \"" + printable(text) +
                                                "\"; use 2026-11-21T02:26, 90s, 15m, 2h or 3d";
}

std::optional<Milliseconds> MomentOf(const std::string& text, Zone zone)
{
    return text.empty() ? std::nullopt : ParseMoment(text, Now(), zone);
}

bool IsReversed(const std::string& since, std::optional<Milliseconds> since_time,
                const std::string& until, std::optional<Milliseconds> until_time)
{
    if (!since_time || !until_time || *until_time >= *since_time) {
        return false;
    }
    std::fprintf(stderr,
                 "launchlist: --until %s is earlier than --since %s\n"
                 "Try \"launchlist --help\".\n",
                 printable(until).c_str(), printable(since).c_str());
    return true;
}

int Print(const std::string& text, int status)
{
    const bool is_written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    return std::fflush(stdout) == 0 && is_written
               ? status
               : ReportFailure("standard output", std::strerror(errno));
}

int ReportFailure(const std::string& path, const std::string& error)
{
    std::fprintf(stderr, "launchlist: %s: %s\n", printable(path).c_str(), error.c_str());
    return kFailure;
}

int ReportUnknownItem(const std::string& log, const std::string& name,
                      const std::vector<std::string>& items)
{
    const std::string nearest = closest_word(name, items);
    return ReportFailure(log,
                         "mentions no item " + quoted(name) +
                             (nearest.empty() ? "" : "; did you mean " + quoted(nearest) + "?"));
}

}  // namespace launchlist
