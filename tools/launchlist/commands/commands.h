// The subcommands. Each function adds one to `app`, with its options and its help.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "tools/launchlist/commands/command.h"

namespace launchlist {

Command AddCheckCommand(CLI::App& app);
Command AddExplainCommand(CLI::App& app);
Command AddFixCommand(CLI::App& app);
Command AddNewCommand(CLI::App& app);
Command AddReportCommand(CLI::App& app);

// The command line in the order in which CLI11 takes it, the last argument first. All arguments of
// `new` after its options are marked as positional, because they belong to the program.
std::vector<std::string> ArgumentsForParser(int argc, char** argv);

}  // namespace launchlist
