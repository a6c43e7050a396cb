#include "tools/launchlist/status/known_processes.h"

#include <utility>

namespace launchlist {

void KnownProcesses::KeepOnly(const std::vector<Process>& processes)
{
    std::unordered_map<pid_t, Known> kept;
    for (const Process& process : processes) {
        if (Find(process) != nullptr) {
            kept.emplace(process.id, std::move(m_known[process.id]));
        }
    }
    m_known = std::move(kept);
}

const KnownProcesses::Known* KnownProcesses::Find(const Process& process) const
{
    const auto found = m_known.find(process.id);
    // Of those that are remembered, none has the image 0.
    const bool is_same = found != m_known.end() && found->second.image == process.image &&
                         found->second.birth == process.birth &&
                         found->second.has_executed == process.has_executed;
    return is_same ? &found->second : nullptr;
}

// Null if nothing can be remembered about the process.
KnownProcesses::Known* KnownProcesses::Get(const Process& process)
{
    if (process.image == 0) {
        return nullptr;
    }
    if (Find(process) == nullptr) {
        m_known.erase(process.id);
        Known& known = m_known[process.id];
        known.birth = process.birth;
        known.image = process.image;
        known.has_executed = process.has_executed;
    }
    return &m_known[process.id];
}

bool KnownProcesses::IsNoLauncher(const Process& process) const
{
    const Known* const known = Find(process);
    return known != nullptr && known->is_no_launcher;
}

void KnownProcesses::SetNoLauncher(const Process& process)
{
    if (Known* const known = Get(process)) {
        known->is_no_launcher = true;
    }
}

const std::string* KnownProcesses::CommandLineOf(const Process& process) const
{
    const Known* const known = Find(process);
    return known != nullptr && known->command_line ? &*known->command_line : nullptr;
}

void KnownProcesses::SetCommandLine(const Process& process, const std::string& command_line)
{
    if (Known* const known = Get(process)) {
        known->command_line = command_line;
    }
}

}  // namespace launchlist
