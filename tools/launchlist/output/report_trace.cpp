#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/output/json_writer.h"
#include "tools/launchlist/output/report_formats.h"
#include "tools/launchlist/output/report_wording.h"

namespace launchlist {

namespace {

constexpr long long kMicroseconds = 1000;  // Of a millisecond.

struct Span
{
    Milliseconds from = 0;
    Milliseconds to = 0;
    std::string what;
    const char* category = "run";
    std::uint32_t launcher = 0;
};

std::string EndOf(const Run& run)
{
    if (run.ended_by == EndedBy::kLauncher) {
        return "killed by its launcher";
    }
    return TextOf(run.termination) +
           (run.ended_by == EndedBy::kMaybeLauncher ? ", perhaps by its launcher" : "");
}

Span SpanOf(const Run& run)
{
    Span span = {run.from, run.to, "running", "run", run.launcher};
    if (run.role == Role::kFailed) {
        span.from = span.to = run.start.value_or(run.from);
        span.category = "failure";
        span.what = run.is_abandoned    ? "abandoned: fork failed"
                    : run.lacks_program ? "no program"
                                        : "could not be executed";
    } else if (run.end) {
        span.what = EndOf(run);
    } else if (run.role == Role::kAttempt) {
        span.what = "started";
    }
    return span;
}

// Writes an event that names a process or a track.
void WriteName(JsonWriter& json, const char* kind, std::int64_t process, std::size_t track,
               const std::string& name)
{
    json.BeginObject();
    json.Text("name", kind);
    json.Text("ph", "M");
    json.Count("pid", process);
    json.Count("tid", track);
    json.BeginObject("args");
    json.Text("name", name);
    json.EndObject();
    json.EndObject();
}

// Writes the runs of items. A viewer shows the events of one "pid" and "tid" in one track, where
// events may nest, but not overlap. Viewers expect integers; metadata events carry the names. The
// numbers of tracks begin at 1, because viewers take thread 0 for an idle processor.
class TraceWriter
{
public:
    TraceWriter(const Report& report, JsonWriter& json) : m_report(report), m_json(json) {}

    // `title` must differ from that of every other item.
    void Write(const ItemReport& item, const std::string& title)
    {
        m_tracks.clear();
        for (const Run& run : item.runs) {
            Span span = SpanOf(run);
            span.from = std::max(span.from, *m_report.first);
            span.to = std::min(span.to, *m_report.last);
            if (span.from <= span.to) {
                Put(item, title, span);
            }
        }
    }

private:
    struct Track
    {
        std::size_t number = 0;
        Milliseconds end = 0;  // Of its last event.
    };

    void Put(const ItemReport& item, const std::string& title, const Span& span)
    {
        const std::int64_t process = m_report.launchers[span.launcher].process;
        const Track& track = TrackFor(process, title, span);
        m_json.BeginObject();
        m_json.Text("name", ItemTitle(item) + ": " + span.what);
        m_json.Text("cat", span.category);
        m_json.Text("ph", "X");
        m_json.Count("ts", span.from * kMicroseconds);
        m_json.Count("dur", (span.to - span.from) * kMicroseconds);
        m_json.Count("pid", process);
        m_json.Count("tid", track.number);
        m_json.BeginObject("args");
        m_json.Text("item", item.name);
        m_json.Text("from", FormatTimeStamp(span.from));
        m_json.EndObject();
        m_json.EndObject();
    }

    // The first track of the item that is free at the beginning of `span`. Two items of one name
    // can run at the same time while one replaces the other.
    const Track& TrackFor(std::int64_t process, const std::string& title, const Span& span)
    {
        std::vector<Track>& tracks = m_tracks[process];
        std::size_t index = 0;
        while (index < tracks.size() && tracks[index].end > span.from) {
            ++index;
        }
        if (index == tracks.size()) {
            if (m_processes.insert(process).second) {
                WriteName(m_json, "process_name", process, 0, "launcher");
            }
            tracks.push_back({++m_count, 0});
            WriteName(m_json, "thread_name", process, m_count,
                      title + (index == 0 ? "" : " (" + std::to_string(index + 1) + ")"));
        }
        tracks[index].end = span.to;
        return tracks[index];
    }

    const Report& m_report;
    JsonWriter& m_json;
    std::map<std::int64_t, std::vector<Track>> m_tracks;  // Of the item, by launcher.
    std::set<std::int64_t> m_processes;                   // Those that have a name.
    std::size_t m_count = 0;                              // Of all tracks.
};

}  // namespace

const std::string_view kTraceMark = "{\n  \"creator\": \"launchlist\"";

std::string ReportTrace(const Report& report)
{
    std::string trace;
    JsonWriter json([&trace](std::string_view piece) { trace += piece; });
    json.BeginObject();
    json.Text("creator", "launchlist");
    json.Text("displayTimeUnit", "ms");
    json.BeginArray("traceEvents");
    TraceWriter writer(report, json);
    std::set<std::string> titles;
    for (const ItemReport& item : report.items) {
        // Two names may look alike.
        std::string title = ItemTitle(item);
        for (int number = 2; !titles.insert(title).second; ++number) {
            title = ItemTitle(item) + " [" + std::to_string(number) + "]";
        }
        writer.Write(item, title);
    }
    json.EndArray();
    json.EndObject();
    json.Finish();
    return trace;
}

}  // namespace launchlist
