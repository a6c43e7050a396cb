#include "tools/launchlist/log/event_queue.h"

#include <algorithm>
#include <utility>

#include "tools/launchlist/base/text.h"

namespace launchlist {

namespace {

// How long the log may take to show what became of an event.
constexpr Milliseconds kSettled = 1000;

// Whether the record is about an item.
bool HasItem(EventKind kind)
{
    return kind == EventKind::kStart || kind == EventKind::kEnd || kind == EventKind::kForkFailed ||
           kind == EventKind::kNoProgram;
}

std::string FileName(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

EventQueue::EventQueue(EventSelection selection, std::size_t max_history)
    : m_selection(std::move(selection)), m_max_history(max_history)
{
}

bool EventQueue::IsSelected(std::string_view name) const
{
    const std::string text(name);
    const auto is_name = [&](const std::string& wanted) { return is_shown_as(text, wanted); };
    return m_selection.names.empty() ||
           std::any_of(m_selection.names.begin(), m_selection.names.end(), is_name);
}

// Whether the last record, and what follows it, is within the selected time.
bool EventQueue::IsWithin() const
{
    if (!m_last_time) {
        return !m_selection.since;
    }
    return *m_last_time >= m_selection.since.value_or(*m_last_time) &&
           *m_last_time <= m_selection.until.value_or(*m_last_time);
}

void EventQueue::Push(Pending pending, std::string_view text)
{
    if (!IsWithin()) {
        return;
    }
    pending.text = text;
    m_pending.push_back(std::move(pending));
    if (m_selection.last && m_pending.size() > *m_selection.last) {
        m_pending.pop_front();
    }
}

void EventQueue::AddRecord(const qv7log::Record& record, std::string_view raw)
{
    Pending pending;
    pending.time = ParseTimeStamp(record.time);
    pending.process = record.process;
    m_last_time = pending.time ? pending.time : m_last_time;
    m_last_record = std::max(m_last_record, pending.time);
    const bool is_whole = record.name == "launcher" && record.cut == 0 && pending.time;
    const Event event = is_whole ? ReadEvent(record.level, record.text) : Event();
    pending.kind = event.kind;
    pending.child = event.child;
    pending.number = event.number;
    if (event.kind == EventKind::kOther) {
        pending.entry = EntryKind::kOtherRecord;
        if (m_selection.names.empty()) {
            Push(std::move(pending), raw);
        }
        return;
    }
    if (event.kind == EventKind::kRecordsLost) {
        // They may have been about any item.
        m_history.AddGap();
        Push(std::move(pending), m_selection.is_raw ? raw : "");
        return;
    }
    pending.place = m_history.Add(event, record.process, *pending.time);
    ++m_added;
    const bool is_selected =
        HasItem(event.kind) ? IsSelected(event.name) : m_selection.names.empty();
    if (is_selected) {
        Push(std::move(pending), m_selection.is_raw ? raw : "");
    }
}

void EventQueue::AddUnparsed(const UnparsedEntry& entry)
{
    m_history.AddGap();
    if (m_selection.names.empty()) {
        Pending pending;
        pending.entry = EntryKind::kUnparsed;
        pending.line = FileName(entry.path) + ":" + std::to_string(entry.line);
        Push(std::move(pending), entry.text);
    }
}

void EventQueue::AddChange(LogChange change)
{
    m_history.AddGap();
    Pending pending;
    pending.entry = change == LogChange::kTruncated ? EntryKind::kTruncated : EntryKind::kReplaced;
    Push(std::move(pending), "");
}

void EventQueue::Release(Milliseconds now, bool is_growing,
                         const std::function<void(const LogEvent&)>& show)
{
    // Of a full history, nothing is held back: further records could not be connected to it.
    const bool is_full = m_added >= m_max_history;
    if (!m_pending.empty()) {
        m_history.Decide(m_last_record.value_or(0), now);
    }
    while (!m_pending.empty()) {
        Pending& pending = m_pending.front();
        LogEvent event;
        if (pending.entry == EntryKind::kLauncherRecord) {
            const History::Knowledge known = m_history.KnowledgeOf(pending.kind, pending.place);
            // No longer than that, even if the clock was set back.
            const bool is_open =
                known.open_until && now < *known.open_until && *known.open_until - now <= kSettled;
            if (is_growing && is_open && !is_full && !m_selection.is_raw) {
                return;
            }
            if (known.launcher != History::kNone) {
                event.launcher = LauncherId{m_first_launcher + known.launcher,
                                            known.launcher_process, known.possible_parent};
            }
            event.name = known.name;
            if (known.run != nullptr) {
                event.run = *known.run;
            }
            event.is_restarted = known.is_restarted;
            event.is_continued = known.is_continued;
        }
        event.entry = pending.entry;
        event.time = pending.time;
        event.text = std::move(pending.text);
        event.place = std::move(pending.line);
        event.kind = pending.kind;
        event.process = pending.process;
        event.child = pending.child;
        event.number = pending.number;
        m_pending.pop_front();
        show(event);
    }
    if (is_full) {
        m_first_launcher += m_added;
        m_added = 0;
        m_history = History();
    }
}

std::vector<std::string> EventQueue::UnknownNames() const
{
    const std::vector<std::string> items = m_history.ItemNames();
    std::vector<std::string> unknown;
    for (const std::string& name : m_selection.names) {
        const auto is_item = [&](const std::string& item) { return is_shown_as(item, name); };
        if (std::none_of(items.begin(), items.end(), is_item)) {
            unknown.push_back(name);
        }
    }
    return unknown;
}

}  // namespace launchlist
