// What is remembered about processes from one status to the next, so that watching costs little.
//
// Only what cannot have changed is remembered: for a process with the same birth that executes the
// same program. Where the system does not say whether it does, nothing is.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/launchlist/processes/processes.h"

namespace launchlist {

class KnownProcesses
{
public:
    // Forgets all processes that are not listed, or not in the same state as before.
    void KeepOnly(const std::vector<Process>& processes);

    // Whether the file name of its executable differs from a launcher's.
    bool IsNoLauncher(const Process& process) const;
    void SetNoLauncher(const Process& process);

    // Null if it is unknown.
    const std::string* CommandLineOf(const Process& process) const;
    void SetCommandLine(const Process& process, const std::string& command_line);

private:
    struct Known
    {
        std::uint64_t birth = 0;
        std::uint64_t image = 0;
        bool has_executed = true;
        bool is_no_launcher = false;
        std::optional<std::string> command_line;
    };

    const Known* Find(const Process& process) const;
    Known* Get(const Process& process);

    std::unordered_map<pid_t, Known> m_known;
};

}  // namespace launchlist
