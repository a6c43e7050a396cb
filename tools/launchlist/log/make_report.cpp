#include "tools/launchlist/log/make_report.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/log/history.h"
#include "tools/launchlist/log/item_summary.h"

namespace launchlist {

namespace {

// All entries that are not records are counted; this many of them are quoted.
constexpr std::size_t kSamples = 5;

// Records of several processes may be out of order by less than this.
constexpr Milliseconds kClockSetBack = 1000;

class Reporter
{
public:
    Reporter(const ReportRange& range, const ReportFilter& filter)
        : m_range(range), m_filter(filter)
    {
    }

    void BeginFile() { m_last_in_file.reset(); }

    void AddRecord(const qv7log::Record& record)
    {
        const auto time = ParseTimeStamp(record.time);
        if (!time) {
            m_report.other_records += m_filter.names.empty() ? 1 : 0;
            return;
        }
        m_first_record = std::min(m_first_record.value_or(*time), *time);
        m_report.last_record = std::max(m_report.last_record.value_or(*time), *time);
        if (m_last_in_file && *m_last_in_file - *time >= kClockSetBack) {
            ++m_report.clock_set_back;
        }
        m_last_in_file = *time;
        const bool is_within =
            IsWithin(*time) && record.process == m_filter.launcher.value_or(record.process);
        const bool is_whole = record.name == "launcher" && record.cut == 0;
        const Event event = is_whole ? ReadEvent(record.level, record.text) : Event();
        m_report.records += is_within && IsSelected(event) ? 1 : 0;
        AddEvent(event, record.process, *time, is_within ? 1 : 0);
    }

    void AddUnparsed(const UnparsedEntry& unread)
    {
        m_history.AddGap();
        if (m_report.unread < kSamples) {
            m_report.unread_samples.push_back(printable(unread.path) + ":" +
                                              std::to_string(unread.line) + ": " +
                                              quoted(std::string(unread.text)));
        }
        ++m_report.unread;
    }

    void AddUnreadableFile() { m_history.AddUnreadableFile(); }

    Report Finish(std::vector<LogFile> files)
    {
        m_report.files = std::move(files);
        const auto is_selected = [this](const std::string& name) { return IsSelected(name); };
        m_history.Finish(
            m_report, m_range.now, m_filter.launcher,
            m_filter.names.empty() ? std::function<bool(const std::string&)>() : is_selected);
        m_report.knows_launcher = !m_filter.launcher || !m_report.launchers.empty();
        SelectItems();
        if (!m_first_record) {
            return std::move(m_report);
        }
        Milliseconds first = std::max(*m_first_record, m_range.since.value_or(*m_first_record));
        Milliseconds last =
            std::min(*m_report.last_record, m_range.until.value_or(*m_report.last_record));
        if (m_filter.launcher) {
            Milliseconds from = last;
            Milliseconds to = first;
            for (const Launcher& launcher : m_report.launchers) {
                from = std::min(from, launcher.from);
                to = std::max(to, launcher.to);
            }
            first = std::max(first, from);
            last = std::min(last, to);
        }
        if (first > last) {
            // The range lies outside the log.
            m_report.items.clear();
            m_report.launchers.clear();
            return std::move(m_report);
        }
        m_report.first = first;
        m_report.last = last;
        SummarizeItems(first, last);
        return std::move(m_report);
    }

private:
    bool IsWithin(Milliseconds time) const
    {
        return time >= m_range.since.value_or(time) && time <= m_range.until.value_or(time);
    }

    void AddEvent(const Event& event, std::int64_t process, Milliseconds time, std::size_t count)
    {
        // Of the events without an item, only missing records may concern an item.
        const std::size_t count_without_item = m_filter.names.empty() ? count : 0;
        switch (event.kind) {
            case EventKind::kNoName:
                m_report.nameless_items += count_without_item;
                break;
            case EventKind::kListRejected:
                m_report.rejected_lists += count_without_item;
                break;
            case EventKind::kRecordsLost:
                m_report.lost_records += count * event.number;
                m_history.AddGap();
                return;
            case EventKind::kOther:
                m_report.other_records += count_without_item;
                return;
            default:
                break;
        }
        m_history.Add(event, process, time);
    }

    bool IsSelected(const std::string& name) const
    {
        return m_filter.names.empty() ||
               std::any_of(m_filter.names.begin(), m_filter.names.end(),
                           [&](const std::string& wanted) { return is_shown_as(name, wanted); });
    }

    // Whether a record of this event counts as one of the report.
    bool IsSelected(const Event& event) const
    {
        if (m_filter.names.empty()) {
            return true;
        }
        const bool is_about_item =
            event.kind == EventKind::kStart || event.kind == EventKind::kEnd ||
            event.kind == EventKind::kForkFailed || event.kind == EventKind::kNoProgram;
        return is_about_item && IsSelected(std::string(event.name));
    }

    // Drops the items that were not asked for.
    void SelectItems()
    {
        if (m_filter.names.empty()) {
            return;
        }
        for (const ItemReport& item : m_report.items) {
            m_report.known_names.push_back(item.name);
        }
        for (const std::string& name : m_filter.names) {
            const auto is_this = [&](const std::string& item) { return is_shown_as(item, name); };
            const auto& known = m_report.known_names;
            if (std::none_of(known.begin(), known.end(), is_this)) {
                m_report.unknown_names.push_back(name);
            }
        }
        for (const Launcher& launcher : m_report.launchers) {
            m_report.rejected_lists +=
                launcher.is_selected && launcher.end == LauncherEnd::kRejected ? 1 : 0;
        }
        const auto is_other = [this](const ItemReport& item) { return !IsSelected(item.name); };
        auto& items = m_report.items;
        items.erase(std::remove_if(items.begin(), items.end(), is_other), items.end());
    }

    void SummarizeItems(Milliseconds first, Milliseconds last)
    {
        for (ItemReport& item : m_report.items) {
            Summarize(item, first, last);
        }
        if (!m_range.since && !m_range.until && !m_filter.launcher) {
            return;
        }
        const auto is_outside = [](const ItemReport& item) {
            return item.runs.empty() && item.no_program + item.failed_forks == 0;
        };
        auto& items = m_report.items;
        items.erase(std::remove_if(items.begin(), items.end(), is_outside), items.end());
    }

    const ReportRange m_range;
    const ReportFilter m_filter;
    Report m_report;
    History m_history;
    std::optional<Milliseconds> m_first_record;
    std::optional<Milliseconds> m_last_in_file;
};

}  // namespace

Report MakeReport(const std::vector<std::string>& paths, const ReportRange& range,
                  const ReportFilter& filter)
{
    Reporter reporter(range, filter);
    LogSink sink;
    sink.on_file = [&] { reporter.BeginFile(); };
    sink.on_record = [&](const qv7log::Record& record, std::string_view) {
        reporter.AddRecord(record);
    };
    sink.on_unparsed = [&](const UnparsedEntry& unread) { reporter.AddUnparsed(unread); };
    sink.on_unreadable = [&](const std::string&, const std::string&) {
        reporter.AddUnreadableFile();
    };
    std::vector<LogFile> files = ReadLogs(paths, sink);
    return reporter.Finish(std::move(files));
}

}  // namespace launchlist
