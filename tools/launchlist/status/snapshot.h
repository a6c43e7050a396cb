// The processes of one moment, with launchers, their supervisors and their programs.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/launchlist/processes/processes.h"
#include "tools/launchlist/status/known_processes.h"

namespace launchlist {

// A launcher, or the first of the supervisors that one left behind, with its descendants.
struct Family
{
    std::size_t root = 0;
    bool is_orphaned = false;  // The launcher has ended; `root` is a supervisor.
    std::string executable;
    bool is_deleted = false;
    std::string application;
    std::string list;  // As the launcher got it.
    std::string directory;
    // Children that have not executed a program and look like the launcher: they are about to
    // execute one, or could not and continue as supervisors. They are in the order of their start.
    std::vector<std::size_t> supervisors;
    // The other children of the launcher and of its supervisors.
    std::vector<std::size_t> children;

    std::string AbsoluteList() const;
};

class Snapshot
{
public:
    // Lists the processes of `user`. What `known` says about them is not asked again. On false,
    // `error` says why they are unknown.
    bool Take(ProcessTable& table, uid_t user, KnownProcesses& known, std::string& error);

    const Process& operator[](std::size_t index) const { return m_processes[index]; }
    std::size_t Size() const { return m_processes.size(); }

    // Nothing if it has ended or is not visible.
    std::optional<std::size_t> ParentOf(std::size_t index) const;

    // Whether the process is a launcher or a supervisor, or has one among its ancestors.
    bool IsInFamily(std::size_t index) const;

    std::vector<Family> families;
    std::vector<pid_t> unexamined;  // See Status.

private:
    enum class Kind : char
    {
        kOther,
        kLauncher,
        kSupervisor
    };

    void FindLaunchers(ProcessTable& table, uid_t user, KnownProcesses& known);
    bool ReadArguments(ProcessTable& table, std::size_t index);
    void FindSupervisors();
    void BuildFamilies(ProcessTable& table);
    std::size_t RootOf(std::size_t index) const;

    std::vector<Process> m_processes;
    std::unordered_map<pid_t, std::size_t> m_by_id;
    std::vector<Kind> m_kinds;
    std::unordered_map<std::size_t, Executable> m_executables;     // Of both kinds.
    std::unordered_map<std::size_t, std::string> m_command_lines;  // Of both kinds.
};

// The arguments in `command_line`, as ProcessTable::CommandLineOf returns it.
std::vector<std::string> SplitArguments(const std::string& command_line);

}  // namespace launchlist
