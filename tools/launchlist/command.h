// What the subcommands share: exit statuses, colour, printing, failures.
#pragma once

#include <string>

namespace launchlist {

// Exit statuses; launchlist(1) lists them.
constexpr int kSuccess = 0;
constexpr int kWarnings = 1;
constexpr int kErrors = 2;
constexpr int kUnreadable = 3;  // Also: the output could not be written.
constexpr int kUsage = 64;

// Whether to colour standard output: only if it is a terminal, NO_COLOR is unset or empty, and TERM
// is not "dumb".
bool UseColor();

// Prints `text`, which must be printable. Returns `status`, or reports a failed write and returns
// kUnreadable.
int Print(const std::string& text, int status);

// Reports that `path` could not be read or written. Returns kUnreadable.
int FailOn(const std::string& path, const std::string& error);

}  // namespace launchlist
