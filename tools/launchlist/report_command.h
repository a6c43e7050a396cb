// The subcommand "report": its options and what it does.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace launchlist {

struct ReportOptions
{
    std::vector<std::string> logs;  // Empty: the log of this user's launcher.
    std::string since;
    std::string until;
    std::string html;
    bool is_forced = false;
    bool json = false;
};

// Adds the subcommand to `app`. Parsing fills `options`, which must outlive `app`.
CLI::App* AddReportCommand(CLI::App& app, ReportOptions& options);

// Runs the subcommand; returns the exit status.
int RunReport(ReportOptions options);

}  // namespace launchlist
