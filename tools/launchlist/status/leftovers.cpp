#include "tools/launchlist/status/leftovers.h"

#include <algorithm>

#include "tools/launchlist/status/launcher_program.h"

namespace launchlist {

namespace {

// `path` without the ".1", ".2" and so on of an old file.
std::string WithoutNumber(const std::string& path)
{
    const std::size_t end = path.find_last_not_of("0123456789");
    return end != std::string::npos && end + 1 < path.size() && path[end] == '.'
               ? path.substr(0, end)
               : path;
}

}  // namespace

std::string CommandText(const std::optional<std::string>& command_line)
{
    std::string text;
    for (const std::string& argument : SplitArguments(command_line.value_or(""))) {
        text += (text.empty() ? "" : " ") + argument;
    }
    return text;
}

void LeftoverFinder::AddList(const std::string& path, const std::vector<ListedItem>& items)
{
    for (const ListedItem& item : items) {
        if (!item.name || !item.command_line) {
            continue;
        }
        Source& source = m_sources[*item.command_line];
        if (source.list.empty()) {
            source.list = path;
        }
        if (source.list == path) {
            source.items.push_back(item.index);
            source.names.push_back(*item.name);
        }
    }
}

void LeftoverFinder::AddLog(const std::string& path)
{
    m_logs.insert(path);
    // The system names the file without symbolic links.
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "" : RealPath(path.substr(0, slash));
    if (!directory.empty()) {
        m_logs.insert(directory + path.substr(slash));
    }
}

bool LeftoverFinder::HasLog(const Process& process) const
{
    const std::string path = m_table.AppendedInputOf(process);
    return !path.empty() && m_logs.count(WithoutNumber(path)) != 0;
}

// Fills in the command and the items; returns whether there are any.
bool LeftoverFinder::Describe(const Process& process, Leftover& leftover) const
{
    const auto command_line = m_table.CommandLineOf(process);
    leftover.command = CommandText(command_line);
    const auto source = command_line ? m_sources.find(*command_line) : m_sources.end();
    if (source == m_sources.end()) {
        return false;
    }
    leftover.list = source->second.list;
    leftover.items = source->second.items;
    leftover.names = source->second.names;
    return true;
}

std::vector<Leftover> LeftoverFinder::Find(const Snapshot& snapshot, bool only_known,
                                           const Measure& measure) const
{
    std::set<std::size_t> with_log;
    std::vector<std::size_t> candidates;
    for (std::size_t i = 0; i < snapshot.Size(); ++i) {
        const Process& process = snapshot[i];
        if (process.is_zombie || !process.has_executed || snapshot.IsInFamily(i)) {
            continue;
        }
        candidates.push_back(i);
        if (HasLog(process)) {
            with_log.insert(i);
        }
    }
    std::vector<Leftover> leftovers;
    for (const std::size_t i : candidates) {
        const bool has_log = with_log.count(i) != 0;
        const std::optional<std::size_t> parent = snapshot.ParentOf(i);
        if (has_log && parent && with_log.count(*parent) != 0) {
            continue;  // Its parent started it.
        }
        Leftover leftover;
        const bool has_item = Describe(snapshot[i], leftover);
        if ((!has_item && (!has_log || only_known)) || m_table.UserOf(snapshot[i]) != m_user ||
            !m_table.IsSame(snapshot[i])) {
            continue;
        }
        leftover.kind = !has_log   ? LeftoverKind::kSameCommand
                        : has_item ? LeftoverKind::kHelper
                                   : LeftoverKind::kHasLog;
        leftover.process = measure(snapshot[i]);
        leftovers.push_back(std::move(leftover));
    }
    for (const Family& family : snapshot.families) {
        if (family.is_orphaned) {
            AddFamily(snapshot, family, measure, leftovers);
        }
    }
    return leftovers;
}

void LeftoverFinder::AddFamily(const Snapshot& snapshot, const Family& family,
                               const Measure& measure, std::vector<Leftover>& leftovers) const
{
    std::set<std::size_t> parents;
    for (const auto* members : {&family.supervisors, &family.children}) {
        for (const std::size_t i : *members) {
            parents.insert(snapshot.ParentOf(i).value_or(i));
        }
    }
    for (const std::size_t i : family.supervisors) {
        // One that has not forked may be about to execute its program.
        if (parents.count(i) != 0) {
            Leftover leftover;
            leftover.kind = LeftoverKind::kSupervisor;
            leftover.list = family.AbsoluteList();
            leftover.process = measure(snapshot[i]);
            leftovers.push_back(std::move(leftover));
        }
    }
    for (const std::size_t i : family.children) {
        Leftover leftover;
        leftover.kind =
            Describe(snapshot[i], leftover) ? LeftoverKind::kHelper : LeftoverKind::kHasLog;
        leftover.process = measure(snapshot[i]);
        leftovers.push_back(std::move(leftover));
    }
}

}  // namespace launchlist
