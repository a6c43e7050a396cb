#include "tools/launchlist/log/history.h"

#include <algorithm>
#include <utility>

#include "launcher/supervision.h"

namespace launchlist {

namespace {

constexpr Milliseconds kPause = kRestartPause.count();

// A child that could not execute its program writes its first record one restart pause after its
// own start, and on a busy machine somewhat later.
constexpr Milliseconds kCarryOnWithin = 1000;

constexpr Milliseconds kMinute = 60000;

// Fills in the lengths of the runs.
void MeasureRuns(ItemReport& report)
{
    std::vector<Milliseconds> lengths;
    for (const Run& run : report.runs) {
        if (run.is_failed || !run.end) {
            continue;
        }
        if (const auto length = run.Length()) {
            lengths.push_back(*length);
        } else {
            ++report.unknown_runs;
        }
    }
    if (lengths.empty()) {
        return;
    }
    std::sort(lengths.begin(), lengths.end());
    report.shortest = lengths.front();
    report.median = (lengths[(lengths.size() - 1) / 2] + lengths[lengths.size() / 2]) / 2;
    report.longest = lengths.back();
}

void FindLoop(ItemReport& report)
{
    Loop row;
    Loop longest;
    for (const Run& run : report.runs) {
        if (run.is_failed || !run.end) {
            continue;
        }
        const auto length = run.Length();
        if (!length || *length >= kShortRun) {
            row = Loop();
            continue;
        }
        row.from = row.runs == 0 ? *run.start : row.from;
        row.to = *run.end;
        row.is_crash = row.is_crash || !run.is_clean;
        ++row.runs;
        if (row.runs > longest.runs) {
            longest = row;
        }
    }
    if (longest.runs >= kLoopRuns) {
        report.loop = longest;
    }
}

std::size_t WorstMinute(std::vector<Milliseconds> moments)
{
    std::sort(moments.begin(), moments.end());
    std::size_t worst = 0;
    std::size_t first = 0;
    for (std::size_t last = 0; last < moments.size(); ++last) {
        while (moments[last] - moments[first] >= kMinute) {
            ++first;
        }
        worst = std::max(worst, last - first + 1);
    }
    return worst;
}

}  // namespace

std::optional<Milliseconds> Run::Length() const
{
    // A clock that was set back makes no length.
    if (!start || !end || *end < *start) {
        return std::nullopt;
    }
    return *end - *start;
}

void History::Add(const Event& event, std::int64_t process, Milliseconds time)
{
    const std::size_t item = ItemOf(event.name);
    switch (event.kind) {
        case EventKind::kStart:
            AddStart(process, item, time);
            break;
        case EventKind::kEnd:
            AddEnd(event, process, item, time);
            break;
        case EventKind::kNoProgram:
            AddNoProgram(process, item);
            break;
        case EventKind::kForkFailed:
            AddForkFailed(process, item, time);
            break;
        default:
            break;
    }
}

void History::AddProcess(std::int64_t process, Milliseconds time)
{
    bool is_new = false;
    ProcessOf(process, time, is_new);
}

std::size_t History::ItemOf(std::string_view name)
{
    const auto [entry, is_new] = m_by_name.emplace(name, m_items.size());
    if (is_new) {
        m_items.emplace_back();
        m_items.back().report.name = name;
    }
    return entry->second;
}

// A process that is new counts as a launcher until something shows that it is none.
History::Process& History::ProcessOf(std::int64_t id, Milliseconds time, bool& is_new)
{
    const auto [entry, was_new] = m_processes.try_emplace(id);
    is_new = was_new;
    if (is_new) {
        entry->second.first = time;
        ++m_launchers;
        m_last_launcher = id;
    }
    return entry->second;
}

History::Supervision& History::SupervisionOf(std::int64_t id, std::size_t index, Milliseconds time)
{
    bool is_new = false;
    Process& process = ProcessOf(id, time, is_new);
    if (process.carries_on && process.carried_item != index) {
        // It writes about a second item: a launcher after all, whatever its first record was like.
        process.carries_on = false;
        ItemReport& report = m_items[process.carried_item].report;
        report.runs[process.carried_run].is_failed = false;
        --report.failed_starts;
        ++m_launchers;
        m_last_launcher = id;
    }
    const auto [supervision, is_first] = process.items.try_emplace(index);
    if (is_first) {
        m_items[index].supervisors.push_back(id);
    }
    return supervision->second;
}

// Whether a new process that starts `item` at `time` may be the child of the item's last start.
bool History::CarriesOn(const Item& item, Milliseconds time) const
{
    return item.last_run && !item.report.runs[*item.last_run].end && time >= item.last_start &&
           time - item.last_start <= kCarryOnWithin;
}

void History::AddStart(std::int64_t id, std::size_t index, Milliseconds time)
{
    Item& item = m_items[index];
    const std::int64_t launcher = m_last_launcher;
    bool is_new = false;
    Process& process = ProcessOf(id, time, is_new);
    if (is_new && CarriesOn(item, time)) {
        process.carries_on = true;
        process.carried_item = index;
        process.carried_run = *item.last_run;
        FailRun(index, *item.last_run);
        --m_launchers;
        m_last_launcher = launcher;
    }
    process.writes_starts = true;
    m_has_starts = true;
    Supervision& supervision = SupervisionOf(id, index, time);
    if (supervision.last_end) {
        item.restarts.push_back(time);
    }
    supervision.run = item.report.runs.size();
    item.report.runs.push_back({});
    item.report.runs.back().start = time;
    item.report.starts = item.report.starts.value_or(0) + 1;
    item.last_run = supervision.run;
    item.last_starter = id;
    item.last_start = time;
}

void History::AddEnd(const Event& event, std::int64_t id, std::size_t index, Milliseconds time)
{
    Item& item = m_items[index];
    Supervision& supervision = SupervisionOf(id, index, time);
    if (!supervision.run) {
        supervision.run = item.report.runs.size();
        item.report.runs.push_back({});
        if (supervision.last_end) {
            item.report.runs.back().start = *supervision.last_end + kPause;
            item.restarts.push_back(*supervision.last_end + kPause);
        }
    }
    Run& run = item.report.runs[*supervision.run];
    run.end = time;
    run.is_clean = event.result >= 0 && event.wait_status == 0;
    if (event.child != id) {
        const Milliseconds since = run.start.value_or(supervision.last_end.value_or(0));
        TakeInChild(event, index, *supervision.run, since);
    }
    if (!run.is_failed) {
        ++item.report.ends;
        ++item.report.ends_in_words[EndInWords(event.result, event.wait_status)];
    }
    supervision.run.reset();
    supervision.last_end = time;
}

// The end of a process that wrote to the log itself since the run began, about this item alone: it
// was a supervisor that carried on, and never the program. An older one only had the same number.
void History::TakeInChild(const Event& event, std::size_t index, std::size_t run,
                          Milliseconds since)
{
    const auto child = m_processes.find(event.child);
    if (child == m_processes.end()) {
        return;
    }
    const Process& process = child->second;
    if (!process.carries_on && process.first >= since && process.items.size() == 1 &&
        process.items.count(index) != 0) {
        FailRun(index, run);
        --m_launchers;
    }
    m_processes.erase(child);
}

// Written by the child of the item's last start, which has only this to say.
void History::AddNoProgram(std::int64_t id, std::size_t index)
{
    Item& item = m_items[index];
    ++item.report.no_program;
    if (item.last_run && item.last_starter != id) {
        item.report.runs[*item.last_run].is_failed = true;
    }
}

void History::AddForkFailed(std::int64_t id, std::size_t index, Milliseconds time)
{
    Item& item = m_items[index];
    ++item.report.failed_forks;
    Supervision& supervision = SupervisionOf(id, index, time);
    if (supervision.run) {
        item.report.runs[*supervision.run].is_failed = true;
        supervision.run.reset();
    }
}

void History::FailRun(std::size_t item, std::size_t run)
{
    m_items[item].report.runs[run].is_failed = true;
    ++m_items[item].report.failed_starts;
}

bool History::LacksStarts(const Item& item) const
{
    return std::any_of(item.supervisors.begin(), item.supervisors.end(), [this](std::int64_t id) {
        const auto process = m_processes.find(id);
        return process != m_processes.end() && !process->second.writes_starts;
    });
}

State History::StateOf(const Item& item, Milliseconds last) const
{
    const auto starter = m_processes.find(item.last_starter);
    if (!item.last_run || starter == m_processes.end() ||
        (item.last_starter != m_last_launcher && !starter->second.carries_on)) {
        return State::kUnknown;
    }
    const Run& run = item.report.runs[*item.last_run];
    // What could not be started again and again has not been started because the log ends.
    const bool may_fail = starter->second.carries_on && last - item.last_start <= kCarryOnWithin;
    if (run.is_failed || (!run.end && may_fail)) {
        return State::kUnknown;
    }
    return run.end ? State::kEnded : State::kRunning;
}

void History::Finish(Report& report)
{
    report.launchers = m_launchers;
    report.has_starts = m_has_starts;
    for (Item& item : m_items) {
        if (LacksStarts(item)) {
            item.report.starts.reset();
        }
        item.report.state = StateOf(item, report.last.value_or(0));
        item.report.restarts = item.restarts.size();
        item.report.worst_minute = WorstMinute(std::move(item.restarts));
        MeasureRuns(item.report);
        FindLoop(item.report);
        report.items.push_back(std::move(item.report));
    }
}

}  // namespace launchlist
