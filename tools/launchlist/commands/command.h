// What the subcommands share: exit statuses, reading lists, colour, printing, failures.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/launchlist/list/finding.h"
#include "tools/launchlist/log/log_time.h"

namespace launchlist {

// A subcommand: what parses its arguments, and what runs it after that and returns the exit status.
struct Command
{
    const CLI::App* parser;
    std::function<int()> run;
};

// Exit statuses; launchlist(1) lists them.
constexpr int kSuccess = 0;
constexpr int kWarnings = 1;
constexpr int kErrors = 2;
constexpr int kFailure = 3;  // Something could not be read or written.
constexpr int kUsage = 64;

// The severities that --fail-on takes.
inline constexpr char kFailOnWarnings[] = "warning";
inline constexpr char kFailOnErrors[] = "error";

// Adds the option --fail-on, which sets `severity`.
void AddFailOn(CLI::App& parser, std::string& severity);

// The exit status of a check with these findings, if only those of this severity and above count.
int StatusOf(const Findings& findings, const std::string& fail_on = kFailOnWarnings);

// Reads the list at `path`; "-" is standard input. On false, `error` says why it cannot be read.
bool ReadList(const std::string& path, std::string& bytes, std::string& error);

// Whether to colour standard output: only if it is a terminal, NO_COLOR is unset or empty, and TERM
// is not "dumb".
bool UseColor();

// Whether standard output is a terminal.
bool IsTerminal();

// The width of that terminal in columns, 80 if it reports none; nothing without a terminal.
std::optional<std::size_t> TerminalWidth();

// The present time.
Milliseconds Now();

// For CLI11: "" if `text` is a time in `zone`, otherwise what is wrong with it.
std::string CheckMoment(const std::string& text, Zone zone);

// The time that an option names, which CheckMoment must accept; nothing for an option without a
// value.
std::optional<Milliseconds> MomentOf(const std::string& text, Zone zone);

// Whether --until, given as the text `until`, is earlier than --since. If so, reports that.
bool IsReversed(const std::string& since, std::optional<Milliseconds> since_time,
                const std::string& until, std::optional<Milliseconds> until_time);

// Prints `text`, which must be printable. Returns `status`, or reports a failed write and returns
// kFailure.
int Print(const std::string& text, int status);

// Reports that `path` could not be read or written. Returns kFailure.
int ReportFailure(const std::string& path, const std::string& error);

// Reports that `log` does not mention the item `name`, and suggests the most similar of `items`.
// Returns kFailure.
int ReportUnknownItem(const std::string& log, const std::string& name,
                      const std::vector<std::string>& items);

}  // namespace launchlist
