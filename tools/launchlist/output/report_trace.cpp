#include <algorithm>
#include <map>
#include <set>
#include <utility>
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

// Writes the runs of one item. A viewer shows the events of one "tid" in one track, which it calls
// by the "tid" if that is a text. There, events may nest, but not overlap.
class ItemTracks
{
public:
    ItemTracks(const Report& report, const ItemReport& item, std::string title, JsonWriter& json)
        : m_report(report), m_item(item), m_title(std::move(title)), m_json(json)
    {
    }

    void Write()
    {
        for (const Run& run : m_item.runs) {
            Put(SpanOf(run));
        }
    }

private:
    void Put(Span span)
    {
        span.from = std::max(span.from, *m_report.first);
        span.to = std::min(span.to, *m_report.last);
        if (span.from > span.to) {
            return;
        }
        // Two items of one name can run at the same time while one replaces the other.
        std::vector<Milliseconds>& tracks = m_tracks[span.launcher];
        std::size_t track = 0;
        while (track < tracks.size() && tracks[track] > span.from) {
            ++track;
        }
        tracks.resize(std::max(tracks.size(), track + 1));
        tracks[track] = span.to;
        m_json.BeginObject();
        m_json.Text("name", ItemTitle(m_item) + ": " + span.what);
        m_json.Text("cat", span.category);
        m_json.Text("ph", "X");
        m_json.Count("ts", span.from * kMicroseconds);
        m_json.Count("dur", (span.to - span.from) * kMicroseconds);
        m_json.Count("pid", m_report.launchers[span.launcher].process);
        m_json.Text("tid", m_title + (track == 0 ? "" : " (" + std::to_string(track + 1) + ")"));
        m_json.BeginObject("args");
        m_json.Text("item", m_item.name);
        m_json.Text("from", FormatTimeStamp(span.from));
        m_json.EndObject();
        m_json.EndObject();
    }

    const Report& m_report;
    const ItemReport& m_item;
    const std::string m_title;
    JsonWriter& m_json;
    std::map<std::uint32_t, std::vector<Milliseconds>> m_tracks;  // Until when each is in use.
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
    std::set<std::string> titles;
    for (const ItemReport& item : report.items) {
        // Two names may look alike.
        std::string title = ItemTitle(item);
        for (int number = 2; !titles.insert(title).second; ++number) {
            title = ItemTitle(item) + " [" + std::to_string(number) + "]";
        }
        ItemTracks(report, item, title, json).Write();
    }
    json.EndArray();
    json.EndObject();
    json.Finish();
    return trace;
}

}  // namespace launchlist
