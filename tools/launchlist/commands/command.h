// What the subcommands share: exit statuses, reading lists, colour, printing, failures.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "tools/launchlist/list/finding.h"

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
constexpr int kUnreadable = 3;  // Also: the output could not be written.
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

// Prints `text`, which must be printable. Returns `status`, or reports a failed write and returns
// kUnreadable.
int Print(const std::string& text, int status);

// Reports that `path` could not be read or written. Returns kUnreadable.
int FailOn(const std::string& path, const std::string& error);

}  // namespace launchlist
