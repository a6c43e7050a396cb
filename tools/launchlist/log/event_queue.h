// The events of a log, each with what the rest of the log shows about it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qv7log/record_reader.h"
#include "tools/launchlist/log/history.h"
#include "tools/launchlist/log/launcher_event.h"
#include "tools/launchlist/log/log_follower.h"
#include "tools/launchlist/log/log_reader.h"
#include "tools/launchlist/log/log_time.h"

namespace launchlist {

enum class EntryKind
{
    kLauncherRecord,  // A record whose meaning is known; `kind` says which.
    kOtherRecord,     // Of another program, or with a text that the launcher never logs.
    kUnparsed,        // Not a record.
    kTruncated,       // Not an entry: the log was truncated here.
    kReplaced         // Not an entry: the log was replaced here.
};

// A process that keeps items running. Two launchers may have the same process id at different
// times.
struct LauncherId
{
    std::size_t number = 0;
    std::int64_t process = 0;
    std::optional<std::int64_t> may_be_child_of;  // As in report.h.
};

struct LogEvent
{
    EntryKind entry = EntryKind::kLauncherRecord;
    std::optional<Milliseconds> time;  // Only of a record.
    std::string text;   // The entry as it is in the log; only of other records, of what
                        // was not parsed, and in a raw selection.
    std::string place;  // "qv7log:12"; only of what was not parsed.

    // Of a launcher's record:
    EventKind kind = EventKind::kOther;
    std::int64_t process = 0;            // That wrote it.
    std::int64_t child = 0;              // kEnd: the child's process id.
    std::uint64_t number = 0;            // kRecordsLost.
    std::optional<LauncherId> launcher;  // Nothing if the log does not show whose record it is.
    std::string name;                    // The item's.
    std::optional<Run> run;              // kStart, kEnd: the run that began or ended.
    bool is_restarted = false;           // kEnd: the log shows that the program was started again.
    bool is_continued = false;  // kStart: written by a child that could not execute the program.
};

// Which events to show.
struct EventSelection
{
    std::vector<std::string> names;  // Of items, as they are or as they are printed; empty: all.
    std::optional<Milliseconds> since;
    std::optional<Milliseconds> until;
    std::optional<std::size_t> last;  // Only this many, the last ones.
    bool is_raw = false;              // Every event has its text.
};

// The history of this many events takes about 100 MB.
constexpr std::size_t kMaxHistory = 1000000;

// Holds events until the log shows what became of them. Not thread-safe.
class EventQueue
{
public:
    // After `max_history` events it forgets the older ones, so that it can follow a log for weeks.
    // Then the length of each item's present run is unknown.
    explicit EventQueue(EventSelection selection, std::size_t max_history = kMaxHistory);

    // Entries must be added in their order.
    void AddRecord(const qv7log::Record& record, std::string_view raw);
    void AddUnparsed(const UnparsedEntry& entry);
    void AddUnreadableFile() { m_history.AddUnreadableFile(); }
    void AddChange(LogChange change);

    // Removes events from the front and passes them to `show`. With `is_growing`, an event of
    // the last second whose outcome further records may show stays, and so do all after it.
    void Release(Milliseconds now, bool is_growing,
                 const std::function<void(const LogEvent&)>& show);

    // From now on, the number of events is not limited to the last ones.
    void RemoveLimit() { m_selection.last.reset(); }

    // The selected names that the log has not mentioned yet.
    std::vector<std::string> UnknownNames() const;
    // The names of all items that the log has mentioned.
    std::vector<std::string> ItemNames() const { return m_history.ItemNames(); }

private:
    struct Pending
    {
        EntryKind entry = EntryKind::kLauncherRecord;
        EventKind kind = EventKind::kOther;
        std::optional<Milliseconds> time;
        std::int64_t process = 0;
        std::int64_t child = 0;
        std::uint64_t number = 0;
        History::Place place;
        std::string text;
        std::string line;
    };

    bool IsSelected(std::string_view name) const;
    bool IsWithin() const;
    void Push(Pending pending, std::string_view text);

    EventSelection m_selection;
    const std::size_t m_max_history;
    History m_history;
    std::deque<Pending> m_pending;
    std::optional<Milliseconds> m_last_time;    // Of the last record.
    std::optional<Milliseconds> m_last_record;  // The latest time of a record.
    std::size_t m_first_launcher = 0;           // The number of the history's first launcher.
    std::size_t m_added = 0;                    // Events in the history.
};

}  // namespace launchlist
