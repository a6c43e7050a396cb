#include "tools/launchlist/log/history.h"

#include <signal.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "launcher/supervision.h"

namespace launchlist {

namespace {

constexpr Milliseconds kPause = kRestartPause.count();

// Within this time after a start, a child that could not execute its program has written its first
// record: it does so after one restart pause, and on a busy machine somewhat later. A supervisor
// that has not restarted its program within this time has stopped.
constexpr Milliseconds kSettled = 1000;

// A child that could not execute its program may write its first record later than that: on a
// machine that is too busy, and on one that sleeps. Until this time after a start, a new process
// may be such a child.
constexpr Milliseconds kLate = 60000;

// A stop waits for one restart pause between two children. The clock may be slewed meanwhile.
constexpr Milliseconds kStopGap = kPause - 1;

// The longest time that a killed child is expected to take to end.
constexpr Milliseconds kLongestKill = 10000;

// A process id is assumed not to be used again within this time.
constexpr Milliseconds kReuse = 10000;

// Without DEBUG records, a silence this long may hide a stop and the start of another launcher with
// the same id.
constexpr Milliseconds kSilence = 60000;

bool IsKill(const Termination& how)
{
    return SignalOf(how) == SIGKILL;
}

}  // namespace

const History::Supervision* History::Writer::Find(std::size_t index) const
{
    if (item == index) {
        return &supervision;
    }
    if (more == nullptr) {
        return nullptr;
    }
    const auto found = more->find(index);
    return found == more->end() ? nullptr : &found->second;
}

History::Supervision* History::Writer::Find(std::size_t index)
{
    return const_cast<Supervision*>(static_cast<const Writer*>(this)->Find(index));
}

History::Supervision& History::Writer::Get(std::size_t index)
{
    if (item == kNone) {
        item = index;
    }
    if (item == index) {
        return supervision;
    }
    if (more == nullptr) {
        more = std::make_unique<std::unordered_map<std::size_t, Supervision>>();
    }
    return (*more)[index];
}

std::size_t History::Writer::CountItems() const
{
    return (item == kNone ? 0 : 1) + (more == nullptr ? 0 : more->size());
}

template <typename Visit>
void History::Writer::ForEach(Visit visit)
{
    if (item != kNone) {
        visit(item, supervision);
    }
    if (more != nullptr) {
        for (auto& [index, other] : *more) {
            visit(index, other);
        }
    }
}

History::Place History::Add(const Event& event, std::int64_t process, Milliseconds time)
{
    m_ends_unreadable = false;
    m_last_event = std::max(m_last_event, time);
    const bool has_item =
        event.kind != EventKind::kNoName && event.kind != EventKind::kListRejected;
    const std::size_t item = has_item ? ItemOf(event.name) : kNone;
    const std::size_t known = m_writers.size();
    // The child of an item without a program writes this one record only, and is not a supervisor.
    if (event.kind == EventKind::kNoProgram) {
        AddNoProgram(item, process, time);
        return {kNone, item, kNone};
    }
    const std::size_t writer = WriterOf(event, process, item, time);
    const bool is_new = m_writers.size() > known;
    Place place = {writer, item, kNone};
    switch (event.kind) {
        case EventKind::kStart:
            place.run = AddStart(writer, item, time, is_new);
            break;
        case EventKind::kEnd:
            place.run = AddEnd(event, writer, item, time);
            break;
        case EventKind::kForkFailed:
            AddForkFailed(writer, item, time);
            break;
        case EventKind::kListRejected:
            m_writers[writer].is_rejected = true;
            break;
        default:
            break;
    }
    m_writers[writer].last = std::max(m_writers[writer].last, time);
    return place;
}

std::size_t History::ItemOf(std::string_view name)
{
    const auto [entry, is_new] = m_by_name.emplace(name, m_items.size());
    if (is_new) {
        m_items.emplace_back();
        m_items.back().name = name;
    }
    return entry->second;
}

std::size_t History::NewWriter(std::int64_t process, Milliseconds time)
{
    m_writers.emplace_back();
    Writer& writer = m_writers.back();
    writer.process = process;
    writer.first = time;
    writer.last = time;
    writer.gaps = m_gaps;
    return m_writers.size() - 1;
}

// A new process counts as a launcher until something shows that it is a child.
std::size_t History::WriterOf(const Event& event, std::int64_t process, std::size_t item,
                              Milliseconds time)
{
    const auto [entry, is_new] = m_by_process.try_emplace(process, m_writers.size());
    if (is_new) {
        return NewWriter(process, time);
    }
    Writer& writer = m_writers[entry->second];
    if (IsReused(writer, event, item, time)) {
        writer.is_gone = true;
        entry->second = m_writers.size();
        return NewWriter(process, time);
    }
    // Programs that something else kills one after another leave the same records as a stop, so
    // this is still counted as one launcher. But nothing is concluded from one side of the silence
    // about the other.
    std::size_t killed = 0;
    if (!writer.writes_starts && time - writer.last >= kSilence && FindStop(writer, killed)) {
        writer.may_be_other_after = writer.last;
    }
    // It writes about a second item, so it is a launcher.
    const bool has_second_item = item == kNone || writer.item != item;
    if (writer.possible_parent != kNone && has_second_item) {
        RemovePossibleParent(writer);
    }
    if (writer.parent != kNone && has_second_item) {
        Run& run = m_items[writer.item].runs[writer.parent_run];
        run.role = Role::kRun;
        run.is_open = !run.end;
        run.down_until.reset();
        writer.parent = kNone;
    }
    return entry->second;
}

// Whether the event cannot come from the launcher that used the process id before.
bool History::IsReused(Writer& writer, const Event& event, std::size_t item,
                       Milliseconds time) const
{
    const Milliseconds silence = time - writer.last;
    if (silence < kReuse && time - writer.first < kReuse) {
        return false;
    }
    if (writer.is_rejected && silence >= kReuse) {
        return true;
    }
    const bool is_whole = writer.gaps == m_gaps;
    Supervision* supervision = item == kNone ? nullptr : writer.Find(item);
    if (event.kind == EventKind::kStart) {
        if (!writer.writes_starts) {
            // If it wrote DEBUG records, one would have followed soon after its first end.
            return is_whole && writer.has_ends && time - writer.first >= kReuse;
        }
        if (supervision != nullptr && supervision->run != kNone && supervision->gaps == m_gaps) {
            const Run& run = m_items[item].runs[supervision->run];
            return run.role != Role::kFailed && run.start && time - *run.start >= kReuse;
        }
    }
    if (silence < kReuse || !writer.writes_starts || !is_whole) {
        return false;
    }
    std::size_t killed = 0;
    const bool is_orphan = event.kind == EventKind::kEnd && supervision != nullptr &&
                           supervision->run == kNone && supervision->older == kNone;
    return is_orphan || (writer.open_runs == 0 && FindStop(writer, killed));
}

// The item's last attempt, if a new process that starts the item may be its child.
std::size_t History::ParentOf(const Item& item, Milliseconds time) const
{
    if (item.last_start == kNone) {
        return kNone;
    }
    const Run& run = item.runs[item.last_start];
    const bool may_be =
        run.is_open && run.start && time >= *run.start && time - *run.start <= kSettled;
    return may_be ? item.last_starter : kNone;
}

// The same for a new process that may be its child or another launcher. If its starter could not
// execute the program either, the next child may come at any time: a machine that sleeps suspends
// the series of failed starts.
std::size_t History::PossibleParentOf(const Item& item, Milliseconds time) const
{
    if (item.last_start == kNone) {
        return kNone;
    }
    const Run& run = item.runs[item.last_start];
    const bool is_in_time =
        run.start && time >= *run.start &&
        (time - *run.start <= kLate || m_writers[item.last_starter].parent != kNone);
    return run.is_open && is_in_time ? item.last_starter : kNone;
}

void History::RemovePossibleParent(Writer& writer)
{
    m_items[writer.item].possible_children.erase(writer.parent_run);
    writer.possible_parent = kNone;
}

std::size_t History::RootOf(std::size_t writer) const
{
    while (m_writers[writer].parent != kNone) {
        writer = m_writers[writer].parent;
    }
    return writer;
}

// Notes that the supervisor of `run` started its program again at `time`. An earlier call of Decide
// may have found that it did not.
void History::NoteRestart(Run& run, Milliseconds time)
{
    run.down_until = time;
    run.is_final = false;
    if (run.ended_by != EndedBy::kUnknown) {
        run.ended_by = EndedBy::kProgram;
    }
}

History::Supervision& History::SupervisionOf(std::size_t writer, std::size_t item)
{
    if (m_writers[writer].Find(item) == nullptr) {
        m_items[item].writers.push_back(writer);
    }
    return m_writers[writer].Get(item);
}

std::size_t History::AddStart(std::size_t index, std::size_t item_index, Milliseconds time,
                              bool is_new)
{
    Item& item = m_items[item_index];
    Writer& writer = m_writers[index];
    const std::size_t parent = is_new ? ParentOf(item, time) : kNone;
    if (parent != kNone) {
        Run& failed = item.runs[item.last_start];
        failed.role = Role::kFailed;
        failed.down_until = time;
        writer.parent = parent;
        writer.parent_run = item.last_start;
    } else if (is_new) {
        writer.possible_parent = PossibleParentOf(item, time);
        writer.parent_run = item.last_start;
        if (writer.possible_parent != kNone) {
            item.possible_children[item.last_start] = index;
        }
    }
    writer.writes_starts = true;
    Supervision& supervision = SupervisionOf(index, item_index);
    // Another supervisor of the same process: a later item of the same name replaces the earlier
    // one, whose own supervisor would have paused first.
    const bool is_replaced = supervision.last != kNone && supervision.run == kNone &&
                             supervision.is_killed && time >= supervision.last_end &&
                             time - supervision.last_end < kStopGap;
    if (supervision.last != kNone && supervision.run == kNone) {
        NoteRestart(item.runs[supervision.last], time);
    }
    if (is_replaced) {
        item.runs[supervision.last].ended_by = EndedBy::kLauncher;
    }
    if (supervision.run != kNone) {
        if (supervision.gaps == m_gaps && supervision.older == kNone) {
            // A later item of the same name starts before the earlier one is killed.
            supervision.older = supervision.run;
        } else {
            item.runs[supervision.run].is_open = false;
            --writer.open_runs;
        }
    }
    supervision.run = item.runs.size();
    supervision.gaps = m_gaps;
    ++writer.open_runs;
    item.runs.emplace_back();
    Run& run = item.runs.back();
    run.start = time;
    run.is_first = supervision.last == kNone || is_replaced;
    run.is_open = true;
    run.launcher = static_cast<std::uint32_t>(index);
    item.last_start = supervision.run;
    item.last_starter = index;
    return supervision.run;
}

std::size_t History::AddEnd(const Event& event, std::size_t index, std::size_t item_index,
                            Milliseconds time)
{
    Item& item = m_items[item_index];
    Writer& writer = m_writers[index];
    Supervision& supervision = SupervisionOf(index, item_index);
    const bool is_older = supervision.older != kNone;
    std::size_t number = is_older ? supervision.older : supervision.run;
    if (number == kNone) {
        number = item.runs.size();
        item.runs.emplace_back();
        item.runs.back().launcher = static_cast<std::uint32_t>(index);
        const bool may_be_other = MayBeOther(writer, supervision);
        if (supervision.last != kNone && may_be_other && supervision.is_killed) {
            item.runs[supervision.last].ended_by = EndedBy::kMaybeLauncher;
        }
        if (supervision.last != kNone && !may_be_other && !writer.writes_starts) {
            item.runs.back().start = supervision.last_end + kPause;
            NoteRestart(item.runs[supervision.last], supervision.last_end + kPause);
        }
        item.runs.back().is_first = supervision.last == kNone;
    } else {
        --writer.open_runs;
    }
    Run& run = item.runs[number];
    run.end = time;
    run.is_open = false;
    run.termination = {event.result >= 0, event.wait_status};
    // This record names the run's child.
    const auto possible = item.possible_children.find(number);
    if (possible != item.possible_children.end()) {
        RemovePossibleParent(m_writers[possible->second]);
    }
    if (is_older) {
        run.ended_by = IsKill(run.termination) ? EndedBy::kLauncher : EndedBy::kProgram;
        supervision.older = kNone;
    } else {
        supervision.run = kNone;
        supervision.last = number;
        supervision.gaps = m_gaps;
        supervision.last_end = time;
        supervision.is_killed = IsKill(run.termination);
    }
    if (event.child == item.child_without_program) {
        run.role = Role::kFailed;
        run.lacks_program = true;
        item.child_without_program = 0;
    }
    if (!run.termination.is_known) {
        run.ended_by = EndedBy::kUnknown;
    }
    writer.has_ends = true;
    if (event.child != writer.process) {
        AdoptChild(event.child, index, item_index, number, run.start);
    }
    return number;
}

// The child that ended at `run` may have written to the log: then it was a supervisor and never its
// program. It wrote about this item only and since the run began; otherwise an older process, which
// is gone now, had the same id.
void History::AdoptChild(std::int64_t child, std::size_t parent, std::size_t item, std::size_t run,
                         std::optional<Milliseconds> since)
{
    const auto found = m_by_process.find(child);
    if (found == m_by_process.end()) {
        return;
    }
    Writer& writer = m_writers[found->second];
    const Milliseconds begin = since.value_or(m_writers[parent].first);
    if (writer.parent == kNone && writer.item == item && writer.CountItems() == 1 &&
        writer.first >= begin && RootOf(parent) != found->second) {
        writer.parent = parent;
        writer.parent_run = run;
        m_items[item].runs[run].role = Role::kFailed;
    } else if (writer.parent == kNone) {
        writer.is_gone = true;
    }
    m_by_process.erase(found);
}

void History::AddNoProgram(std::size_t index, std::int64_t child, Milliseconds time)
{
    Item& item = m_items[index];
    const bool is_started = item.last_start != kNone && item.runs[item.last_start].is_open;
    item.no_program.push_back({time, is_started ? item.last_starter : kNone});
    item.child_without_program = child;
    if (is_started) {
        Run& run = item.runs[item.last_start];
        run.role = Role::kFailed;
        run.lacks_program = true;
        run.down_until = time;
    }
}

void History::AddForkFailed(std::size_t index, std::size_t item_index, Milliseconds time)
{
    Item& item = m_items[item_index];
    item.failed_forks.push_back({time, index});
    Supervision& supervision = SupervisionOf(index, item_index);
    supervision.is_abandoned = true;
    if (supervision.run != kNone) {
        Run& run = item.runs[supervision.run];
        run.role = Role::kFailed;
        run.is_open = false;
        run.is_abandoned = true;
        supervision.run = kNone;
        --m_writers[index].open_runs;
    }
}

// Whether a stop may have followed the last end, so that another launcher of the same process id
// wrote the later records.
bool History::MayBeOther(const Writer& writer, const Supervision& supervision)
{
    return writer.may_be_other_after && supervision.last_end <= *writer.may_be_other_after;
}

// Whether the last ends look like a stop: children were killed with signal 9 one after another,
// none of them was restarted, and no other child would have kept running. Sets `killed` to their
// number.
bool History::FindStop(Writer& writer, std::size_t& killed)
{
    std::vector<Milliseconds> kills;
    std::vector<Milliseconds> others;
    writer.ForEach([&](std::size_t, const Supervision& supervision) {
        if (supervision.last != kNone && !supervision.is_abandoned) {
            (supervision.is_killed ? kills : others).push_back(supervision.last_end);
        }
    });
    if (kills.empty()) {
        return false;
    }
    std::sort(kills.begin(), kills.end());
    std::size_t first = kills.size() - 1;
    while (first > 0 && kills[first] - kills[first - 1] >= kStopGap &&
           kills[first] - kills[first - 1] <= kLongestKill) {
        --first;
    }
    killed = kills.size() - first;
    writer.stop_from = kills[first];
    // Without DEBUG records, another item would have been killed, too, unless it was in its pause;
    // and a stopped launcher writes nothing after the last kill.
    const auto is_during = [&](Milliseconds end) { return end >= kills[first] - kSettled; };
    return writer.writes_starts || (first == 0 && writer.last <= kills.back() + kPause &&
                                    std::all_of(others.begin(), others.end(), is_during));
}

// Whether another launcher, after the last record of this one, started all items that this one was
// running.
bool History::IsReplaced(std::size_t index)
{
    Writer& writer = m_writers[index];
    std::size_t successor = kNone;
    bool is_replaced = true;
    writer.ForEach([&](std::size_t item, const Supervision& supervision) {
        if (supervision.run == kNone || !is_replaced) {
            return;
        }
        if (successor == kNone) {
            const std::vector<std::size_t>& launchers = m_items[item].launchers;
            const auto is_before = [&](Milliseconds time, std::size_t other) {
                return time < m_writers[other].first;
            };
            auto next =
                std::upper_bound(launchers.begin(), launchers.end(), writer.last, is_before);
            // Where the clock was set back, an earlier launcher may have a later time.
            while (next != launchers.end() && *next < index) {
                ++next;
            }
            successor = next == launchers.end() ? kNone : *next;
        }
        is_replaced = successor != kNone && m_writers[successor].Find(item) != nullptr;
    });
    return is_replaced && successor != kNone;
}

void History::DecideEnd(std::size_t index, Milliseconds last_record, Milliseconds now)
{
    Writer& writer = m_writers[index];
    writer.end = LauncherEnd::kUnknown;
    writer.is_certain = true;
    const bool is_settled = writer.is_gone || std::max(last_record, now) - writer.last >= kSettled;
    std::size_t killed = 0;
    const bool has_stop = writer.open_runs == 0 && FindStop(writer, killed);
    if (writer.is_rejected) {
        writer.end = LauncherEnd::kRejected;
    } else if (has_stop && (writer.writes_starts || killed >= 2)) {
        // A launcher that was killed right after its only child looks the same.
        writer.end = is_settled ? LauncherEnd::kStopped : LauncherEnd::kUnknown;
        writer.is_certain = writer.writes_starts && killed >= 2 && writer.gaps == m_gaps;
    } else if (writer.open_runs > 0 && (writer.is_gone || IsReplaced(index))) {
        writer.end = LauncherEnd::kVanished;
        writer.is_certain = writer.is_gone;
    } else if (writer.last >= last_record && !has_stop && !writer.is_gone &&
               writer.CountItems() > 0 &&
               (writer.open_runs > 0 || !is_settled || !writer.writes_starts)) {
        writer.end = LauncherEnd::kRunning;
    }
}

// Which of the last ends the launcher caused.
void History::DecideCauses(std::size_t index)
{
    Writer& writer = m_writers[index];
    const Writer& root = m_writers[m_roots[index]];
    // Without DEBUG records the programs may have been killed by something else, and restarted.
    const bool is_stop_proven = root.end == LauncherEnd::kRejected ||
                                (root.end == LauncherEnd::kStopped && root.writes_starts);
    writer.ForEach([&](std::size_t item, Supervision& supervision) {
        if (supervision.last == kNone || supervision.run != kNone) {
            return;
        }
        Run& run = m_items[item].runs[supervision.last];
        const Milliseconds later =
            MayBeOther(writer, supervision) ? 0 : writer.last - supervision.last_end;
        // Whether a restart would have been logged, and no record is missing.
        const bool is_complete = writer.writes_starts && supervision.gaps == m_gaps;
        if (supervision.is_killed) {
            const bool is_in_stop = is_stop_proven && (root.end == LauncherEnd::kRejected ||
                                                       supervision.last_end >= root.stop_from);
            const bool is_not_restarted = is_complete && later >= kSettled;
            run.ended_by = is_in_stop || is_not_restarted               ? EndedBy::kLauncher
                           : !writer.writes_starts && later >= kSilence ? EndedBy::kProgram
                                                                        : EndedBy::kMaybeLauncher;
        }
        run.is_final =
            (is_stop_proven && writer.parent == kNone) || (is_complete && later >= kSettled);
    });
}

// Fills in when the item was certainly running, and when it was certainly not. Only the launcher's
// own records prove that it was alive: children that could not execute their program outlive it.
void History::FinishRuns(Item& item, Milliseconds last_record)
{
    for (std::size_t i = 0; i < item.runs.size(); ++i) {
        Run& run = item.runs[i];
        const Writer& writer = m_writers[run.launcher];
        const Writer& root = m_writers[m_roots[run.launcher]];
        run.from = run.to = run.start.value_or(run.end.value_or(0));
        if (run.role != Role::kFailed && run.end) {
            if (run.ended_by == EndedBy::kUnknown) {
                run.down_until.reset();
                continue;
            }
            if (run.start && *run.start <= *run.end) {
                run.to = *run.end;
            } else if (!run.start && run.is_first && writer.writes_starts &&
                       writer.gaps == m_gaps && writer.first <= *run.end) {
                // Its start would have been logged.
                run.from = writer.first;
                run.to = *run.end;
            } else {
                run.from = run.to = *run.end;
            }
        } else if (run.role != Role::kFailed) {
            const bool has_run = run.is_open && run.start && writer.parent == kNone &&
                                 item.possible_children.count(i) == 0 &&
                                 root.last - *run.start >= kSettled;
            run.role = has_run ? Role::kRun : Role::kAttempt;
            run.to = has_run ? root.last : run.from;
        }
        if (!run.down_until && (run.is_final || run.is_abandoned)) {
            if (i + 1 == item.runs.size()) {
                run.down_until = last_record;
            } else if (item.runs[i + 1].start) {
                run.down_until = item.runs[i + 1].start;
            }
        }
    }
}

// Fills in m_roots. Follows no part of a chain of children twice, because it may be long.
void History::FindRoots()
{
    m_roots.assign(m_writers.size(), kNone);
    std::vector<std::size_t> path;
    for (std::size_t i = 0; i < m_writers.size(); ++i) {
        std::size_t at = i;
        while (m_roots[at] == kNone && m_writers[at].parent != kNone) {
            path.push_back(at);
            at = m_writers[at].parent;
        }
        const std::size_t root = m_roots[at] == kNone ? at : m_roots[at];
        m_roots[at] = root;
        for (const std::size_t writer : path) {
            m_roots[writer] = root;
        }
        path.clear();
    }
}

// Fills in and sorts the launchers of each item, so that a binary search can find a later one.
void History::SortLaunchers()
{
    const auto is_launcher = [&](std::size_t writer) {
        return m_writers[writer].parent == kNone && m_writers[writer].possible_parent == kNone;
    };
    const auto began_before = [&](std::size_t a, std::size_t b) {
        return m_writers[a].first < m_writers[b].first;
    };
    for (Item& item : m_items) {
        item.launchers.clear();
        std::copy_if(item.writers.begin(), item.writers.end(), std::back_inserter(item.launchers),
                     is_launcher);
        std::stable_sort(item.launchers.begin(), item.launchers.end(), began_before);
    }
}

void History::Decide(Milliseconds last_record, Milliseconds now)
{
    FindRoots();
    SortLaunchers();
    if (m_ends_unreadable) {
        last_record = now = m_last_event;
    }
    for (std::size_t i = 0; i < m_writers.size(); ++i) {
        if (m_writers[i].parent == kNone) {
            DecideEnd(i, last_record, now);
        }
    }
    for (std::size_t i = 0; i < m_writers.size(); ++i) {
        DecideCauses(i);
    }
}

History::Knowledge History::KnowledgeOf(EventKind kind, const Place& place) const
{
    Knowledge knowledge;
    if (place.writer != kNone) {
        knowledge.launcher = m_roots[place.writer];
        knowledge.launcher_process = m_writers[knowledge.launcher].process;
        knowledge.possible_parent = PossibleLauncherOf(knowledge.launcher);
    }
    if (place.item == kNone) {
        return knowledge;
    }
    const Item& item = m_items[place.item];
    knowledge.name = item.name;
    if (place.run == kNone) {
        return knowledge;
    }
    const Writer& writer = m_writers[place.writer];
    const Run& run = item.runs[place.run];
    knowledge.run = &run;
    if (kind == EventKind::kStart) {
        // A process that writes about a second item is another launcher.
        knowledge.is_continued = writer.parent != kNone && run.is_first;
        if (knowledge.is_continued || (writer.possible_parent != kNone && run.is_first)) {
            knowledge.open_until = *run.start + kSettled;
        }
        return knowledge;
    }
    knowledge.is_restarted = run.down_until && run.ended_by != EndedBy::kLauncher;
    const Supervision& supervision = *writer.Find(place.item);
    // Then DecideEnd and DecideCauses have seen enough.
    if (writer.writes_starts && supervision.last == place.run && supervision.run == kNone &&
        supervision.gaps == m_gaps && writer.last - supervision.last_end < kSettled) {
        knowledge.open_until = writer.last + kSettled;
    }
    return knowledge;
}

// The process id of the launcher that this one may be a child of.
std::optional<std::int64_t> History::PossibleLauncherOf(std::size_t launcher) const
{
    const std::size_t parent = m_writers[launcher].possible_parent;
    return parent == kNone ? std::nullopt
                           : std::optional<std::int64_t>(m_writers[m_roots[parent]].process);
}

std::vector<std::string> History::ItemNames() const
{
    std::vector<std::string> names;
    for (const Item& item : m_items) {
        names.push_back(item.name);
    }
    return names;
}

// Whether the writer belongs to a launcher of the process id `launcher`.
bool History::IsOf(std::optional<std::int64_t> launcher, std::size_t writer) const
{
    return !launcher || (writer != kNone && m_writers[m_roots[writer]].process == *launcher);
}

std::vector<Milliseconds> History::TimesOf(const std::vector<Failure>& failures,
                                           std::optional<std::int64_t> launcher) const
{
    std::vector<Milliseconds> times;
    for (const Failure& failure : failures) {
        if (IsOf(launcher, failure.writer)) {
            times.push_back(failure.time);
        }
    }
    return times;
}

void History::Finish(Report& report, Milliseconds now, std::optional<std::int64_t> launcher,
                     const std::function<bool(const std::string&)>& is_selected)
{
    const Milliseconds last_record = report.last_record.value_or(0);
    Decide(last_record, now);
    std::vector<std::uint32_t> numbers(m_writers.size());
    for (std::size_t i = 0; i < m_writers.size(); ++i) {
        Writer& writer = m_writers[i];
        if (writer.parent == kNone && IsOf(launcher, i)) {
            numbers[i] = static_cast<std::uint32_t>(report.launchers.size());
            report.launchers.push_back({writer.process, writer.first, writer.last, writer.end,
                                        writer.is_certain, writer.writes_starts,
                                        writer.CountItems(), is_selected == nullptr,
                                        PossibleLauncherOf(i)});
        }
    }
    for (std::size_t i = 0; i < m_writers.size(); ++i) {
        report.has_starts = report.has_starts || (m_writers[i].writes_starts && IsOf(launcher, i));
    }
    const auto is_other_run = [&](const Run& run) { return !IsOf(launcher, run.launcher); };
    const auto is_other_writer = [&](std::size_t writer) { return !IsOf(launcher, writer); };
    report.items.reserve(m_items.size());
    for (Item& item : m_items) {
        FinishRuns(item, last_record);
        if (launcher) {
            item.runs.erase(std::remove_if(item.runs.begin(), item.runs.end(), is_other_run),
                            item.runs.end());
            item.writers.erase(
                std::remove_if(item.writers.begin(), item.writers.end(), is_other_writer),
                item.writers.end());
        }
        std::vector<Milliseconds> no_program = TimesOf(item.no_program, launcher);
        std::vector<Milliseconds> failed_forks = TimesOf(item.failed_forks, launcher);
        if (launcher && item.runs.empty() && no_program.empty() && failed_forks.empty()) {
            continue;
        }
        if (is_selected != nullptr && is_selected(item.name)) {
            for (const std::size_t writer : item.launchers) {
                if (IsOf(launcher, writer)) {
                    report.launchers[numbers[writer]].is_selected = true;
                }
            }
        }
        report.items.emplace_back();
        ItemReport& result = report.items.back();
        result.name = std::move(item.name);
        // The child of an item without a program writes at any level, and is not its supervisor.
        result.lacks_starts =
            item.writers.empty() ||
            std::any_of(item.writers.begin(), item.writers.end(),
                        [&](std::size_t writer) { return !m_writers[writer].writes_starts; });
        for (Run& run : item.runs) {
            run.launcher = numbers[m_roots[run.launcher]];
        }
        result.runs = std::move(item.runs);
        result.no_program_times = std::move(no_program);
        result.failed_fork_times = std::move(failed_forks);
    }
}

}  // namespace launchlist
