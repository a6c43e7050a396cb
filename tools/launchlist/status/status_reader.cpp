#include "tools/launchlist/status/status_reader.h"

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "config/ini_profile.h"
#include "logging/log_path.h"
#include "tools/launchlist/base/files.h"
#include "tools/launchlist/status/item_states.h"
#include "tools/launchlist/status/launcher_program.h"
#include "tools/launchlist/status/leftovers.h"
#include "tools/launchlist/status/snapshot.h"

namespace launchlist {

namespace {

// A launcher that ends while it is examined makes the snapshot useless. After this many attempts it
// is omitted.
constexpr int kAttempts = 3;

// The system's clock may have been adjusted by this much since a process wrote its records.
constexpr Milliseconds kLogSlack = 1000;

Milliseconds ToMilliseconds(const timespec& time)
{
    return static_cast<Milliseconds>(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
}

// When the file was changed or renamed for the last time.
Milliseconds ChangeOf(const struct stat& file)
{
#ifdef __APPLE__
    return std::max(ToMilliseconds(file.st_mtimespec), ToMilliseconds(file.st_ctimespec));
#else
    return std::max(ToMilliseconds(file.st_mtim), ToMilliseconds(file.st_ctim));
#endif
}

bool IsUnchanged(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mode == b.st_mode && ChangeOf(a) == ChangeOf(b);
}

bool IsSameList(const std::string& a, const std::string& b)
{
    return a == b || (!RealPath(a).empty() && RealPath(a) == RealPath(b));
}

// Whether the file was changed so recently that another change may give it the same times.
bool IsJustChanged(const struct stat& file)
{
    constexpr Milliseconds kCoarsestTime = 2000;
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return ToMilliseconds(now) - ChangeOf(file) <= kCoarsestTime;
}

// Whether the log of a launcher that wrote no record says that nothing ended.
bool LogsEnds(const std::string& level_file, Milliseconds launcher_start)
{
    char level[1024] = {};
    GetPrivateProfileString("LOG", "LEVEL", "ERROR", level, sizeof level, level_file);
    struct stat file = {};
    const bool may_have_changed =
        stat(level_file.c_str(), &file) == 0 && ChangeOf(file) > launcher_start + kClockSlack;
    return std::string(level) != "CRITICAL" && !may_have_changed;
}

// Reads the status of one moment.
class MomentReader
{
public:
    MomentReader(ProcessTable& table, KnownProcesses& known, Milliseconds now,
                 Milliseconds previous,
                 const std::map<std::pair<pid_t, std::uint64_t>, Milliseconds>& cpu)
        : m_table(table), m_known(known), m_now(now), m_previous(previous), m_cpu(cpu)
    {
    }

    bool TakeSnapshot(const std::optional<std::string>& list, std::string& error)
    {
        for (int attempt = 0; attempt < kAttempts; ++attempt) {
            if (!m_snapshot.Take(m_table, getuid(), m_known, error)) {
                return false;
            }
            auto& families = m_snapshot.families;
            const auto is_other = [&](const Family& family) {
                return list && !IsSameList(family.AbsoluteList(), *list);
            };
            families.erase(std::remove_if(families.begin(), families.end(), is_other),
                           families.end());
            ReadChildren();
            const auto has_ended = [this](const Family& family) {
                return !m_table.IsSame(m_snapshot[family.root]);
            };
            const auto ended = std::remove_if(families.begin(), families.end(), has_ended);
            if (ended == families.end()) {
                break;
            }
            families.erase(ended, families.end());
        }
        return true;
    }

    Snapshot& GetSnapshot() { return m_snapshot; }

    ProcessStatus Measure(const Process& process) const
    {
        ProcessStatus status;
        status.id = process.id;
        status.parent = process.parent;
        status.start = process.start;
        status.cpu = process.cpu;
        status.memory = process.memory;
        const auto previous = m_cpu.find({process.id, process.birth});
        const bool is_known = previous != m_cpu.end();
        const Milliseconds time = m_now - (is_known ? m_previous : process.start);
        const Milliseconds used = process.cpu - (is_known ? previous->second : 0);
        if (time > 0) {
            status.cpu_percent = 100.0 * static_cast<double>(used) / static_cast<double>(time);
        }
        return status;
    }

    LauncherStatus Describe(const Family& family, const LauncherFiles& files,
                            const LauncherLog& log, const ListedItems& items,
                            const std::string& list_error, const struct stat& list_file) const
    {
        LauncherStatus launcher;
        launcher.process = Measure(m_snapshot[family.root]);
        launcher.executable = family.executable;
        launcher.is_deleted = family.is_deleted;
        launcher.application = family.application;
        launcher.list = family.AbsoluteList();
        launcher.list_error = list_error;
        launcher.log = files.log;
        launcher.log_error = log.Error();
        launcher.log_may_lack_records = log.MayLackRecordsSince(launcher.process.start);
        launcher.list_may_have_changed = ChangeOf(list_file) > launcher.process.start + kClockSlack;

        ItemEvidence evidence;
        evidence.launcher = launcher.process.id;
        evidence.launcher_start = launcher.process.start;
        evidence.now = m_now;
        evidence.items = items.items;
        evidence.list_may_have_changed = launcher.list_may_have_changed || !list_error.empty();
        const bool says_ends = log.Find(launcher.process.id) != nullptr ||
                               LogsEnds(files.level, launcher.process.start);
        evidence.log = log.Error().empty() && says_ends ? &log : nullptr;
        for (const std::size_t index : family.supervisors) {
            if (m_table.IsSame(m_snapshot[index])) {
                evidence.supervisors.push_back(Measure(m_snapshot[index]));
            }
        }
        MatchChildren(family, evidence);
        Remember(family, evidence.matching);
        DecideItems(evidence, launcher);
        return launcher;
    }

private:
    // The command lines of the children of every family, while they can still be read. A known one
    // is that of the process which has just been listed.
    void ReadChildren()
    {
        m_command_lines.clear();
        for (Family& family : m_snapshot.families) {
            std::vector<std::size_t> alive;
            for (const std::size_t index : family.children) {
                const Process& process = m_snapshot[index];
                if (const std::string* known = m_known.CommandLineOf(process)) {
                    m_command_lines[index] = *known;
                    alive.push_back(index);
                    continue;
                }
                auto command_line = m_table.CommandLineOf(process);
                if (m_table.IsSame(process)) {
                    m_command_lines[index] = std::move(command_line);
                    alive.push_back(index);
                }
            }
            family.children = std::move(alive);
        }
    }

    // Remembers the command lines by which processes were recognized. Any other process may write
    // another one, which is then shown.
    void Remember(const Family& family, const Matching& matching) const
    {
        const auto remember = [&](std::size_t child) {
            const std::size_t index = family.children[child];
            if (const auto& command_line = m_command_lines.at(index)) {
                m_known.SetCommandLine(m_snapshot[index], *command_line);
            }
        };
        for (const Match& match : matching.matches) {
            if (match.by != MatchedBy::kExecutable) {
                remember(match.process);
            }
        }
        for (const IndistinguishableItems& set : matching.indistinguishable) {
            if (set.by != MatchedBy::kExecutable) {
                std::for_each(set.processes.begin(), set.processes.end(), remember);
            }
        }
    }

    void MatchChildren(const Family& family, ItemEvidence& evidence) const
    {
        std::vector<MatchedProcess> processes;
        for (const std::size_t index : family.children) {
            const auto& command_line = m_command_lines.at(index);
            evidence.processes.push_back(Measure(m_snapshot[index]));
            evidence.command_lines.push_back(CommandText(command_line));
            processes.push_back({command_line, ""});
        }
        std::vector<MatchedItem> items;
        for (const ListedItem& item : evidence.items) {
            items.push_back(
                {item.name ? item.command_line : std::nullopt, "", item.replaced_by.has_value()});
        }
        evidence.matching = MatchProcesses(items, processes);
        if (evidence.matching.unmatched.empty()) {
            return;
        }
        // Only now are the paths of executables needed.
        for (std::size_t i = 0; i < processes.size(); ++i) {
            processes[i].executable = m_table.ExecutableOf(m_snapshot[family.children[i]]).path;
        }
        for (std::size_t i = 0; i < items.size(); ++i) {
            const std::string& program = evidence.items[i].program;
            if (items[i].command_line && !program.empty()) {
                items[i].executable = RealPath(AbsolutePath(family.directory, program));
            }
        }
        evidence.matching = MatchProcesses(items, processes);
    }

    ProcessTable& m_table;
    KnownProcesses& m_known;
    const Milliseconds m_now;
    const Milliseconds m_previous;
    const std::map<std::pair<pid_t, std::uint64_t>, Milliseconds>& m_cpu;
    Snapshot m_snapshot;
    std::map<std::size_t, std::optional<std::string>> m_command_lines;  // Of children.
};

}  // namespace

// Reads the list again only if its file has changed.
const StatusReader::ReadList& StatusReader::ListAt(const std::string& path)
{
    ReadList& list = m_lists[path];
    struct stat file = {};
    const bool exists = stat(path.c_str(), &file) == 0;
    if (exists && !list.may_change_unseen && IsUnchanged(file, list.file)) {
        return list;
    }
    list = ReadList();
    list.file = file;
    list.may_change_unseen = IsJustChanged(file);
    std::string bytes;
    if (exists && !S_ISREG(file.st_mode)) {
        list.error = "it is not a regular file";
    } else if (ReadFile(path, bytes, list.error)) {
        list.items = ReadItems(bytes);
        if (list.items.is_rejected) {
            list.error = "the launcher would reject it";
            list.items.items.clear();
        }
    }
    return list;
}

bool StatusReader::Signs::operator==(const Signs& other) const
{
    const auto is_same = [](const std::optional<struct stat>& a,
                            const std::optional<struct stat>& b) {
        return a.has_value() == b.has_value() && (!a || IsUnchanged(*a, *b));
    };
    return ids == other.ids &&
           std::equal(files.begin(), files.end(), other.files.begin(), other.files.end(), is_same);
}

StatusReader::Signs StatusReader::ReadSigns()
{
    Signs signs;
    std::string error;  // Read reports it.
    m_processes.ListIds(signs.ids, error);
    std::sort(signs.ids.begin(), signs.ids.end());
    const auto add = [&signs](const std::string& path) {
        struct stat file = {};
        const bool exists = stat(path.c_str(), &file) == 0;
        signs.files.push_back(exists ? std::optional<struct stat>(file) : std::nullopt);
    };
    for (const auto& entry : m_logs) {
        add(entry.first);
    }
    for (const auto& entry : m_lists) {
        add(entry.first);
    }
    return signs;
}

bool StatusReader::MayHaveChanged()
{
    return m_was_changing || !(ReadSigns() == m_signs);
}

Status StatusReader::Read(Milliseconds now)
{
    Status status;
    status.time = now;
    Signs signs = ReadSigns();
    m_was_changing = !(signs == m_signs);
    m_signs = std::move(signs);
    MomentReader reader(m_processes, m_known, now, m_previous, m_cpu);
    if (!reader.TakeSnapshot(m_list, status.error)) {
        return status;
    }
    const Snapshot& snapshot = reader.GetSnapshot();
    status.unexamined = snapshot.unexamined;

    LeftoverFinder finder(m_processes, getuid());
    finder.AddLog(GetLogPath());
    std::map<std::string, ProcessTimes> writers;  // By the path of their log.
    for (const Family& family : snapshot.families) {
        const std::string log = FilesOf(family.executable).log;
        finder.AddLog(log);
        finder.AddList(family.AbsoluteList(), ListAt(family.AbsoluteList()).items.items);
        ProcessTimes& processes = writers[log];
        processes[snapshot[family.root].id] = snapshot[family.root].start - kLogSlack;
        for (const std::size_t index : family.supervisors) {
            processes[snapshot[index].id] = snapshot[index].start - kLogSlack;
        }
    }
    if (m_list) {
        finder.AddList(*m_list, ListAt(*m_list).items.items);
    }
    for (const auto& [path, processes] : writers) {
        auto& log = m_logs[path];
        if (log == nullptr) {
            log = std::make_unique<LauncherLog>(path);
        }
        log->Update(processes, now);
    }
    for (const Family& family : snapshot.families) {
        if (!family.is_orphaned) {
            const LauncherFiles files = FilesOf(family.executable);
            const ReadList& list = ListAt(family.AbsoluteList());
            status.launchers.push_back(reader.Describe(family, files, *m_logs.at(files.log),
                                                       list.items, list.error, list.file));
        }
    }
    status.leftovers = finder.Find(snapshot, m_list.has_value(), [&reader](const Process& process) {
        return reader.Measure(process);
    });
    m_previous = now;
    m_cpu.clear();
    for (std::size_t i = 0; i < snapshot.Size(); ++i) {
        m_cpu[{snapshot[i].id, snapshot[i].birth}] = snapshot[i].cpu;
    }
    return status;
}

}  // namespace launchlist
