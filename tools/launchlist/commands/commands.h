// The subcommands. Each function adds one to `app`, with its options and its help.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/launchlist/commands/command.h"

namespace launchlist {

Command AddCheckCommand(CLI::App& app);
Command AddCompletionCommand(CLI::App& app);
Command AddExplainCommand(CLI::App& app);
Command AddLogCommand(CLI::App& app);
Command AddReportCommand(CLI::App& app);
Command AddStatusCommand(CLI::App& app);

}  // namespace launchlist
