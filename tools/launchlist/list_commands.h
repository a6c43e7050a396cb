// The subcommands "check" and "explain": their options and what they do.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace launchlist {

struct ListOptions
{
    std::vector<std::string> lists;  // "-" is standard input. Exactly one for "explain".
    bool json = false;
};

// Add a subcommand to `app`. Parsing fills `options`, which must outlive `app`.
CLI::App* AddCheckCommand(CLI::App& app, ListOptions& options);
CLI::App* AddExplainCommand(CLI::App& app, ListOptions& options);

// Run a subcommand; return the exit status.
int RunCheck(const ListOptions& options);
int RunExplain(const ListOptions& options);

}  // namespace launchlist
