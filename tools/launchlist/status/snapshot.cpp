#include "tools/launchlist/status/snapshot.h"

#include <algorithm>

#include "tools/launchlist/status/launcher_program.h"
#include "util/string_util.h"

namespace launchlist {

namespace {

// The launcher's name, its application and its list.
constexpr std::size_t kLauncherArguments = 3;

// Whether the command line, which can say anything, is one that a launcher has.
bool LooksLikeLauncher(const std::string& command_line)
{
    const std::vector<std::string> arguments = SplitArguments(command_line);
    return arguments.size() >= kLauncherArguments &&
           (arguments[0] == "launcher" || ends_with(arguments[0], "/launcher"));
}

}  // namespace

std::vector<std::string> SplitArguments(const std::string& command_line)
{
    std::vector<std::string> arguments;
    for (std::size_t at = 0; at < command_line.size();) {
        const std::size_t end = std::min(command_line.find('\0', at), command_line.size());
        arguments.push_back(command_line.substr(at, end - at));
        at = end + 1;
    }
    return arguments;
}

std::string Family::AbsoluteList() const
{
    return AbsolutePath(directory, list);
}

bool Snapshot::Take(ProcessTable& table, uid_t user, KnownProcesses& known, std::string& error)
{
    families.clear();
    unexamined.clear();
    m_by_id.clear();
    m_executables.clear();
    m_command_lines.clear();
    if (!table.List(m_processes, error)) {
        return false;
    }
    for (std::size_t i = 0; i < m_processes.size(); ++i) {
        m_by_id[m_processes[i].id] = i;
    }
    m_kinds.assign(m_processes.size(), Kind::kOther);
    known.KeepOnly(m_processes);
    FindLaunchers(table, user, known);
    FindSupervisors();
    BuildFamilies(table);
    return true;
}

std::optional<std::size_t> Snapshot::ParentOf(std::size_t index) const
{
    const auto found = m_by_id.find(m_processes[index].parent);
    // A process that is younger than its child has the id of a parent that has ended.
    return found == m_by_id.end() || m_processes[found->second].birth > m_processes[index].birth
               ? std::nullopt
               : std::optional<std::size_t>(found->second);
}

bool Snapshot::IsInFamily(std::size_t index) const
{
    std::optional<std::size_t> at = index;
    for (std::size_t steps = 0; at && steps <= m_processes.size(); ++steps) {
        if (m_kinds[*at] != Kind::kOther) {
            return true;
        }
        at = ParentOf(*at);
    }
    return false;
}

void Snapshot::FindLaunchers(ProcessTable& table, uid_t user, KnownProcesses& known)
{
    for (std::size_t i = 0; i < m_processes.size(); ++i) {
        const Process& process = m_processes[i];
        if (process.is_zombie || known.IsNoLauncher(process)) {
            continue;
        }
        const Executable executable = table.ExecutableOf(process);
        if (executable.is_denied) {
            const auto command_line = table.CommandLineOf(process);
            if (command_line && LooksLikeLauncher(*command_line) && table.UserOf(process) == user) {
                unexamined.push_back(process.id);
            }
        } else if (IsLauncher(executable) && table.UserOf(process) == user &&
                   ReadArguments(table, i)) {
            m_executables[i] = executable;
            m_kinds[i] = Kind::kLauncher;
        } else if (!executable.path.empty() && !ends_with(executable.path, "/launcher")) {
            known.SetNoLauncher(process);
        }
    }
}

// False for a launcher without a list, which is about to end.
bool Snapshot::ReadArguments(ProcessTable& table, std::size_t index)
{
    const auto command_line = table.CommandLineOf(m_processes[index]);
    if (!command_line || SplitArguments(*command_line).size() < kLauncherArguments) {
        return false;
    }
    m_command_lines[index] = *command_line;
    return true;
}

// A forked child of a launcher has its executable and its arguments until it executes its program.
// Where the system does not tell whether a process has executed one, a child with the same
// arguments counts as forked; where it does, a launcher may be a helper of another one.
void Snapshot::FindSupervisors()
{
    std::vector<std::size_t> forked;
    for (const auto& [index, command_line] : m_command_lines) {
        const std::optional<std::size_t> parent = ParentOf(index);
        const auto parents_line = parent ? m_command_lines.find(*parent) : m_command_lines.end();
        const bool has_parents_line =
            parents_line != m_command_lines.end() && parents_line->second == command_line;
        if (!m_processes[index].has_executed || has_parents_line) {
            forked.push_back(index);
        }
    }
    for (const std::size_t index : forked) {
        m_kinds[index] = Kind::kSupervisor;
    }
}

// The launcher of a supervisor, or the first supervisor that is left.
std::size_t Snapshot::RootOf(std::size_t index) const
{
    for (std::size_t steps = 0; steps <= m_processes.size(); ++steps) {
        const std::optional<std::size_t> parent = ParentOf(index);
        if (m_kinds[index] == Kind::kLauncher || !parent || m_kinds[*parent] == Kind::kOther) {
            break;
        }
        index = *parent;
    }
    return index;
}

void Snapshot::BuildFamilies(ProcessTable& table)
{
    std::unordered_map<std::size_t, std::size_t> family_of_root;
    const auto family_of = [&](std::size_t index) -> Family& {
        const std::size_t root = RootOf(index);
        const auto [entry, is_new] = family_of_root.emplace(root, families.size());
        if (is_new) {
            Family family;
            family.root = root;
            family.is_orphaned = m_kinds[root] == Kind::kSupervisor;
            family.executable = m_executables[root].path;
            family.is_deleted = m_executables[root].is_deleted;
            const std::vector<std::string> arguments = SplitArguments(m_command_lines[root]);
            family.application = arguments[1];
            family.list = arguments[2];
            family.directory = table.DirectoryOf(m_processes[root]);
            families.push_back(std::move(family));
        }
        return families[entry->second];
    };
    for (std::size_t i = 0; i < m_processes.size(); ++i) {
        const std::optional<std::size_t> parent = ParentOf(i);
        if (m_kinds[i] == Kind::kSupervisor) {
            family_of(i).supervisors.push_back(i);
        } else if (m_kinds[i] == Kind::kLauncher) {
            family_of(i);
        }
        // A launcher can be the program of another one's item.
        if (m_kinds[i] != Kind::kSupervisor && parent && m_kinds[*parent] != Kind::kOther &&
            !m_processes[i].is_zombie) {
            family_of(*parent).children.push_back(i);
        }
    }
    const auto is_older = [this](std::size_t a, std::size_t b) {
        return std::make_pair(m_processes[a].birth, m_processes[a].id) <
               std::make_pair(m_processes[b].birth, m_processes[b].id);
    };
    for (Family& family : families) {
        std::sort(family.supervisors.begin(), family.supervisors.end(), is_older);
        std::sort(family.children.begin(), family.children.end(), is_older);
    }
    std::sort(families.begin(), families.end(),
              [&](const Family& a, const Family& b) { return is_older(a.root, b.root); });
}

}  // namespace launchlist
