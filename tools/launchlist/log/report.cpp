#include "tools/launchlist/log/report.h"

#include <algorithm>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/log/history.h"

namespace launchlist {

namespace {

// So many pieces that are no records are shown; all are counted.
constexpr std::size_t kSamples = 5;

class Reporter
{
public:
    explicit Reporter(const ReportRange& range) : m_range(range) {}

    void AddRecord(const qv7log::Record& record)
    {
        const auto time = ParseTimeStamp(record.time);
        if (!time) {
            ++m_report.other_records;
            return;
        }
        if ((m_range.since && *time < *m_range.since) ||
            (m_range.until && *time > *m_range.until)) {
            return;
        }
        ++m_report.records;
        m_report.first = std::min(m_report.first.value_or(*time), *time);
        m_report.last = std::max(m_report.last.value_or(*time), *time);
        if (record.name == "launcher" && record.cut == 0) {
            AddEvent(ReadEvent(record.level, record.text), record.process, *time);
        } else {
            ++m_report.other_records;
        }
    }

    void AddUnread(const Unread& unread)
    {
        if (m_report.unread < kSamples) {
            m_report.unread_samples.push_back(printable(unread.path) + ":" +
                                              std::to_string(unread.line) + ": " +
                                              quoted(std::string(unread.text)));
        }
        ++m_report.unread;
    }

    Report Finish(std::vector<LogFile> files)
    {
        m_report.files = std::move(files);
        m_history.Finish(m_report);
        return std::move(m_report);
    }

private:
    void AddEvent(const Event& event, std::int64_t process, Milliseconds time)
    {
        switch (event.kind) {
            case EventKind::kNoName:
                ++m_report.nameless_items;
                m_history.AddProcess(process, time);
                break;
            case EventKind::kListRefused:
                ++m_report.refused_lists;
                m_history.AddProcess(process, time);
                break;
            case EventKind::kRecordsLost:
                m_report.lost_records += event.number;
                break;
            case EventKind::kOther:
                ++m_report.other_records;
                break;
            default:
                m_history.Add(event, process, time);
        }
    }

    const ReportRange m_range;
    Report m_report;
    History m_history;
};

}  // namespace

Report MakeReport(const std::vector<std::string>& paths, const ReportRange& range)
{
    Reporter reporter(range);
    std::vector<LogFile> files = ReadLogs(
        paths, [&](const qv7log::Record& record) { reporter.AddRecord(record); },
        [&](const Unread& unread) { reporter.AddUnread(unread); });
    return reporter.Finish(std::move(files));
}

}  // namespace launchlist
