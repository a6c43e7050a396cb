// What the subcommands share: exit statuses, colour, printing, failures.
#pragma once

#include <string>

namespace launchlist {

// Exit statuses; launchlist(1) lists them.
constexpr int kNothing = 0;
constexpr int kWarnings = 1;
constexpr int kErrors = 2;
constexpr int kUnreadable = 3;  // Also: the output could not be written.
constexpr int kUsage = 64;

// Whether standard output gets colour: only a terminal does, unless NO_COLOR is set
// or TERM is "dumb".
bool UseColor();

// Prints `text`, which must be printable. Returns `status`; if writing fails, reports this
// and returns kUnreadable.
int Print(const std::string& text, int status);

// Reports that `path` could not be read or written. Returns kUnreadable.
int FailOn(const std::string& path, const std::string& error);

}  // namespace launchlist
