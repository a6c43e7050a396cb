#include "tools/launchlist/status/item_states.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "tools/launchlist/base/text.h"

namespace launchlist {

namespace {

// A supervisor restarts its program within this time, even on a busy machine.
constexpr Milliseconds kSettled = 1000;

class Decider
{
public:
    Decider(const ItemEvidence& evidence, LauncherStatus& launcher)
        : m_evidence(evidence), m_launcher(launcher), m_is_decided(evidence.items.size(), false)
    {
    }

    void Run()
    {
        AddItems();
        AddMatches();
        AddSupervisors();
        for (std::size_t i = 0; i < m_evidence.items.size(); ++i) {
            if (!m_is_decided[i]) {
                DecideByItself(i);
            }
        }
        DecideByElimination();
        AddOthers();
        CountRestarts();
        Count();
    }

private:
    void AddItems()
    {
        for (std::size_t i = 0; i < m_evidence.items.size(); ++i) {
            const ListedItem& listed = m_evidence.items[i];
            ItemStatus item;
            item.index = listed.index;
            item.name = listed.name;
            m_launcher.items.push_back(std::move(item));
            if (listed.name && listed.replaced_by) {
                m_replaced_names.insert(*listed.name);
            } else if (listed.name) {
                m_by_name[*listed.name] = i;
            }
        }
        if (m_evidence.log != nullptr) {
            m_records = m_evidence.log->Find(m_evidence.launcher);
        }
    }

    void SetProcess(std::size_t index, std::size_t process, MatchedBy by)
    {
        ItemStatus& item = m_launcher.items[index];
        item.state = ItemState::kRunning;
        item.process = m_evidence.processes[process];
        item.matched_by = by;
        item.has_further_supervisor = item.process->parent != m_evidence.launcher;
        m_is_decided[index] = true;
    }

    void AddMatches()
    {
        for (const Match& match : m_evidence.matching.matches) {
            SetProcess(match.item, match.process, match.by);
        }
        for (const IndistinguishableItems& set : m_evidence.matching.indistinguishable) {
            AddGroup(set);
        }
    }

    void AddGroup(const IndistinguishableItems& set)
    {
        ItemGroup group;
        group.running = set.processes.size();
        for (std::size_t i = 0; i < set.items.size(); ++i) {
            const std::size_t index = set.items[i];
            ItemStatus& item = m_launcher.items[index];
            group.items.push_back(item.index);
            item.group = m_launcher.groups.size();
            if (set.items.size() == set.processes.size()) {
                SetProcess(index, set.processes[i], set.by);
            } else {
                item.reason = std::to_string(set.processes.size()) + " of " +
                              counted(set.items.size(), "item") +
                              " that cannot be told apart are running; which ones is unknown";
                m_is_decided[index] = true;
            }
        }
        m_launcher.groups.push_back(std::move(group));
    }

    // The first supervisor of each chain is a child of the launcher, and the others belong to the
    // same item. A chain is known by what any of it wrote to the log, or by a program that one of
    // them runs.
    void AddSupervisors()
    {
        for (const auto* processes : {&m_evidence.supervisors, &m_evidence.processes}) {
            for (const ProcessStatus& process : *processes) {
                m_parents.insert(process.parent);
            }
        }
        std::unordered_map<pid_t, std::size_t> chains;
        for (const ProcessStatus& process : m_evidence.supervisors) {
            const auto parent = chains.find(process.parent);
            const bool is_first = parent == chains.end();
            const std::size_t chain = is_first ? m_chains.size() : parent->second;
            if (is_first) {
                m_chains.push_back({});
            }
            chains[process.id] = chain;
            m_chains[chain].members.push_back(process);
            if (const ProcessRecords* records = RecordsOf(process.id)) {
                const auto item = m_by_name.find(records->last_item);
                if (item != m_by_name.end()) {
                    m_chains[chain].item = item->second;
                }
            }
        }
        for (std::size_t i = 0; i < m_launcher.items.size(); ++i) {
            const ItemStatus& item = m_launcher.items[i];
            const auto chain = item.process ? chains.find(item.process->parent) : chains.end();
            if (chain != chains.end() && !item.group) {
                m_chains[chain->second].item = i;
            }
        }
        for (const Chain& chain : m_chains) {
            if (chain.item && !m_is_decided[*chain.item]) {
                SetSupervised(*chain.item, HasFailed(chain));
            }
        }
    }

    const ProcessRecords* RecordsOf(pid_t process) const
    {
        return m_evidence.log == nullptr ? nullptr : m_evidence.log->Find(process);
    }

    struct Chain
    {
        std::vector<ProcessStatus> members;
        std::optional<std::size_t> item;
    };

    // Whether a supervisor has certainly failed to execute its program: it has forked, or written
    // to the log. How long it has existed proves nothing, since the execution itself may take long.
    bool HasFailed(const ProcessStatus& supervisor) const
    {
        return m_parents.count(supervisor.id) != 0 || RecordsOf(supervisor.id) != nullptr;
    }

    bool HasFailed(const Chain& chain) const { return HasFailed(chain.members.front()); }

    void SetSupervised(std::size_t index, bool is_failing)
    {
        ItemStatus& item = m_launcher.items[index];
        item.state = is_failing ? ItemState::kFailing : ItemState::kStarting;
        item.reason = is_failing ? "its program cannot be executed"
                                 : "its child has not executed the program yet";
        m_is_decided[index] = true;
    }

    void Set(std::size_t index, ItemState state, std::string reason)
    {
        m_launcher.items[index].state = state;
        m_launcher.items[index].reason = std::move(reason);
        m_is_decided[index] = true;
    }

    const ItemRecords* ItemRecordsOf(std::size_t index) const
    {
        if (m_records == nullptr || !m_evidence.items[index].name) {
            return nullptr;
        }
        const auto found = m_records->items.find(*m_evidence.items[index].name);
        return found == m_records->items.end() ? nullptr : &found->second;
    }

    // What needs no comparison with other items.
    void DecideByItself(std::size_t index)
    {
        const ListedItem& listed = m_evidence.items[index];
        const ItemRecords* const records = ItemRecordsOf(index);
        if (!listed.name) {
            Set(index, ItemState::kNeverStarted, "it has no name, so the launcher skips it");
        } else if (listed.replaced_by) {
            Set(index, ItemState::kReplaced,
                "item " + std::to_string(*listed.replaced_by) + " has the same name");
        } else if (records != nullptr && records->is_fork_failure_last) {
            const std::string when = " at " + FormatForPeople(*records->failed_fork) + " UTC";
            SetByRecord(index, *records->failed_fork, ItemState::kAbandoned,
                        "the launcher could not fork" + when + ", and does not try again",
                        "the launcher could not fork an item of this name" + when);
        } else if (records != nullptr && IsRecent(records->last_end) &&
                   records->last_start.value_or(0) <= *records->last_end) {
            const std::string when =
                FormatDuration(std::max<Milliseconds>(m_evidence.now - *records->last_end, 0)) +
                " ago";
            SetByRecord(index, *records->last_end, ItemState::kBetweenRuns,
                        TextOf(records->how) + ", " + when,
                        "an item of this name ended " + when + " (" + TextOf(records->how) + ")");
        } else if (records != nullptr && IsRecent(records->last_start)) {
            SetByRecord(index, *records->last_start, ItemState::kStarting,
                        "the launcher is starting it",
                        "the launcher is starting an item of this name");
        } else if (!listed.command_line) {
            Set(index, ItemState::kFailing, listed.problem);
        }
    }

    // Decides the state by a record that was written at `time` about the item's name. An earlier
    // item of the same name may have written it, unless this one had been started before.
    void SetByRecord(std::size_t index, Milliseconds time, ItemState state,
                     const std::string& reason, const std::string& reason_if_shared)
    {
        if (m_replaced_names.count(*m_evidence.items[index].name) == 0 ||
            IsStartedBefore(index, time)) {
            Set(index, state, reason);
        } else {
            Set(index, ItemState::kUnknown,
                reason_if_shared +
                    "; the log does not say whether it was this one or an earlier one");
        }
    }

    // Whether the launcher had started the item before `time`, as the process of a later item
    // shows: it starts the items in their order, and one only after it has ended those that it
    // replaces.
    bool IsStartedBefore(std::size_t index, Milliseconds time) const
    {
        for (std::size_t i = index + 1; i < m_launcher.items.size(); ++i) {
            const ItemStatus& later = m_launcher.items[i];
            if (later.process && !later.group && !later.has_further_supervisor &&
                later.process->start + kClockSlack < time) {
                return true;
            }
        }
        return false;
    }

    bool IsRecent(const std::optional<Milliseconds>& time) const
    {
        return time && m_evidence.now - *time < kSettled;
    }

    // Every child of the launcher belongs to exactly one item, so as many chains as items without a
    // process belong to these.
    void DecideByElimination()
    {
        std::vector<std::size_t> open_items;
        std::vector<Chain*> chains;
        for (std::size_t i = 0; i < m_is_decided.size(); ++i) {
            if (!m_is_decided[i]) {
                open_items.push_back(i);
            }
        }
        for (Chain& chain : m_chains) {
            if (!chain.item) {
                chains.push_back(&chain);
            }
        }
        const bool is_complete = m_evidence.matching.unmatched.empty() && UndecidedGroups() == 0 &&
                                 !m_evidence.list_may_have_changed;
        const auto failed_count = static_cast<std::size_t>(std::count_if(
            chains.begin(), chains.end(), [this](Chain* chain) { return HasFailed(*chain); }));
        const bool is_decided = is_complete && !chains.empty() &&
                                chains.size() == open_items.size() &&
                                (failed_count == 0 || failed_count == chains.size());
        for (const std::size_t index : open_items) {
            if (is_decided) {
                SetSupervised(index, failed_count > 0);
            } else {
                DecideWithoutEvidence(index, chains.size());
            }
        }
        if (is_decided && chains.size() == 1) {
            chains.front()->item = open_items.front();
        }
    }

    std::size_t UndecidedGroups() const
    {
        const auto is_undecided = [](const ItemGroup& group) {
            return group.running < group.items.size();
        };
        return static_cast<std::size_t>(
            std::count_if(m_launcher.groups.begin(), m_launcher.groups.end(), is_undecided));
    }

    void DecideWithoutEvidence(std::size_t index, std::size_t chains)
    {
        const bool has_starts = m_records != nullptr && m_records->has_starts;
        if (has_starts && ItemRecordsOf(index) == nullptr && !m_launcher.log_may_lack_records) {
            Set(index, ItemState::kNeverStarted, "the log has no start of it by this launcher");
            return;
        }
        std::string reason = "no process of it was found";
        if (chains > 0) {
            reason += "; the launcher has " + counted(chains, "child") +
                      " that may be trying to execute its program";
        } else if (!m_evidence.matching.unmatched.empty()) {
            reason += "; a child of the launcher that matches no item may be its process";
        } else if (m_evidence.list_may_have_changed) {
            reason += "; the list may have changed since the launcher read it";
        } else if (m_evidence.now - m_evidence.launcher_start < kSettled) {
            reason += "; the launcher was started less than a second ago";
        } else if (m_evidence.log == nullptr) {
            reason += ", and no log says why";
        } else {
            reason += ", and the log does not say why";
        }
        Set(index, ItemState::kUnknown, reason);
    }

    void AddOthers()
    {
        for (const std::size_t process : m_evidence.matching.unmatched) {
            m_launcher.others.push_back(
                {m_evidence.processes[process], m_evidence.command_lines[process]});
        }
        for (const Chain& chain : m_chains) {
            for (const ProcessStatus& process : chain.members) {
                SupervisorStatus supervisor;
                supervisor.process = process;
                supervisor.has_failed = HasFailed(supervisor.process);
                if (chain.item) {
                    supervisor.item = m_evidence.items[*chain.item].index;
                    m_launcher.items[*chain.item].supervisors += supervisor.has_failed ? 1U : 0U;
                }
                m_launcher.supervisors.push_back(supervisor);
            }
        }
        m_launcher.log_has_starts = m_records != nullptr && m_records->has_starts;
    }

    // Every logged end but one without a later start is a restart. The log does not distinguish
    // items of one name.
    void CountRestarts()
    {
        if (m_evidence.log == nullptr) {
            return;
        }
        for (std::size_t i = 0; i < m_launcher.items.size(); ++i) {
            ItemStatus& item = m_launcher.items[i];
            if (!item.name || m_replaced_names.count(*item.name) != 0) {
                continue;
            }
            item.restarts = 0;
            item.restarts_last_hour = 0;
            AddRestarts(item, m_records);
            if (const ItemRecords* records = ItemRecordsOf(i)) {
                WithoutLastEnd(item, *records);
            }
        }
        for (const SupervisorStatus& supervisor : m_launcher.supervisors) {
            if (supervisor.item) {
                ItemStatus& item = m_launcher.items[static_cast<std::size_t>(*supervisor.item)];
                AddRestarts(item, RecordsOf(supervisor.process.id));
            }
        }
    }

    static void AddRestarts(ItemStatus& item, const ProcessRecords* records)
    {
        if (records == nullptr || !item.restarts) {
            return;
        }
        const auto found = records->items.find(*item.name);
        if (found != records->items.end()) {
            *item.restarts += found->second.ends;
            *item.restarts_last_hour += found->second.recent_ends.size();
        }
    }

    static void WithoutLastEnd(ItemStatus& item, const ItemRecords& records)
    {
        const bool has_restarted = item.process || item.group ||
                                   item.state == ItemState::kFailing ||
                                   item.state == ItemState::kStarting ||
                                   records.last_start.value_or(0) > records.last_end.value_or(0);
        if (!has_restarted && *item.restarts > 0) {
            --*item.restarts;
            *item.restarts_last_hour -= *item.restarts_last_hour > 0 ? 1 : 0;
        }
    }

    void Count()
    {
        m_launcher.running = 0;
        for (const ItemStatus& item : m_launcher.items) {
            m_launcher.expected += item.state != ItemState::kReplaced ? 1U : 0U;
            m_launcher.running += item.state == ItemState::kRunning ? 1U : 0U;
        }
        for (const ItemGroup& group : m_launcher.groups) {
            m_launcher.running += group.running < group.items.size() ? group.running : 0;
        }
    }

    const ItemEvidence& m_evidence;
    LauncherStatus& m_launcher;
    std::vector<bool> m_is_decided;
    std::unordered_map<std::string, std::size_t> m_by_name;  // Without items that are replaced.
    std::unordered_set<std::string> m_replaced_names;        // Those of several items.
    std::unordered_set<pid_t> m_parents;                     // Of children of every kind.
    std::vector<Chain> m_chains;
    const ProcessRecords* m_records = nullptr;  // Of the launcher itself.
};

}  // namespace

void DecideItems(const ItemEvidence& evidence, LauncherStatus& launcher)
{
    Decider(evidence, launcher).Run();
}

}  // namespace launchlist
