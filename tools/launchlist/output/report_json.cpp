#include "tools/launchlist/output/json_writer.h"
#include "tools/launchlist/output/report_formats.h"
#include "tools/launchlist/output/report_wording.h"

namespace launchlist {

namespace {

// Increases with every change that may break a program that reads the JSON.
constexpr int kFormatVersion = 3;

void PutTime(JsonWriter& json, const char* key, const std::optional<Milliseconds>& time)
{
    if (time) {
        json.Text(key, FormatTimeStamp(*time));
    } else {
        json.Null(key);
    }
}

void PutFiles(JsonWriter& json, const Report& report)
{
    json.BeginArray("files");
    for (const LogFile& file : report.files) {
        json.BeginObject();
        json.Text("path", file.path);
        json.Count("bytes", file.size);
        if (file.error.empty()) {
            json.Null("error");
        } else {
            json.Text("error", file.error);
        }
        json.EndObject();
    }
    json.EndArray();
}

void PutLaunchers(JsonWriter& json, const Report& report)
{
    json.BeginArray("launchers");
    for (const Launcher* launcher : LaunchersOf(report)) {
        json.BeginObject();
        json.Count("process", launcher->process);
        PutTime(json, "from", launcher->from);
        PutTime(json, "to", launcher->to);
        json.Text("end", NameOf(launcher->end));
        json.Bool("end_is_certain", launcher->is_certain);
        json.Bool("has_debug_records", launcher->has_starts);
        json.Count("items", launcher->items);
        json.Count("may_be_child_of", launcher->may_be_child_of);
        json.EndObject();
    }
    json.EndArray();
}

void PutCauses(JsonWriter& json, const ItemReport& item)
{
    json.BeginArray("causes");
    for (const auto& [cause, count] : item.causes) {
        json.BeginObject();
        json.Text("how", TextOf(cause));
        json.Count("exit_status", ExitStatusOf(cause));
        json.Count("signal", SignalOf(cause));
        json.Bool("core_dumped", HasCore(cause));
        json.Count("count", count);
        json.EndObject();
    }
    json.EndArray();
}

void PutLoop(JsonWriter& json, const std::optional<Loop>& loop)
{
    if (!loop) {
        json.Null("loop");
        return;
    }
    json.BeginObject("loop");
    json.Count("runs", loop->runs);
    PutTime(json, "from", loop->from);
    PutTime(json, "to", loop->to);
    json.Bool("crash", loop->is_crash);
    json.EndObject();
}

void PutRate(JsonWriter& json, const std::optional<Rate>& rate)
{
    if (!rate) {
        json.Null("rate");
        return;
    }
    json.BeginObject("rate");
    PutTime(json, "first", rate->first);
    PutTime(json, "last", rate->last);
    json.Number("per_hour", rate->per_hour);
    json.Count("worst_hour", rate->worst_hour);
    PutTime(json, "worst_hour_from", rate->worst_hour_from);
    json.Bool("continues", rate->continues);
    json.EndObject();
}

void PutItem(JsonWriter& json, const ItemReport& item)
{
    json.BeginObject();
    json.Text("name", item.name);
    json.Text("severity", NameOf(item.severity));
    json.Text("state", NameOf(item.state));
    json.Count("starts", item.starts);
    json.Count("ends", item.ends);
    json.Count("crashes", item.crashes);
    json.Count("clean_ends", item.clean_ends);
    json.Count("stops", item.stops);
    json.Count("possible_stops", item.possible_stops);
    json.Count("unknown_ends", item.unknown_ends);
    PutCauses(json, item);
    json.Count("shortest_run_ms", item.shortest);
    json.Count("median_run_ms", item.median);
    json.Count("longest_run_ms", item.longest);
    json.Count("unknown_runs", item.unknown_runs);
    json.Count("restarts", item.restarts);
    json.Count("most_restarts_a_minute", item.worst_minute);
    json.Count("failed_starts", item.failed_starts);
    json.Count("without_program", item.no_program);
    json.Count("failed_forks", item.failed_forks);
    json.Count("running_ms", item.running);
    json.Count("down_ms", item.down);
    json.Count("unknown_ms", item.unknown);
    PutLoop(json, item.loop);
    PutRate(json, item.rate);
    json.EndObject();
}

}  // namespace

void WriteReportJson(const Report& report, const std::function<void(std::string_view)>& write)
{
    JsonWriter json(write);
    json.BeginObject();
    json.Count("format_version", kFormatVersion);
    PutFiles(json, report);
    PutTime(json, "from", report.first);
    PutTime(json, "to", report.last);
    PutTime(json, "last_record", report.last_record);
    json.Count("records", report.records);
    json.Count("other_records", report.other_records);
    json.Count("unread", report.unread);
    json.BeginArray("unread_samples");
    for (const std::string& sample : report.unread_samples) {
        json.Text(nullptr, sample);
    }
    json.EndArray();
    json.Count("lost_records", report.lost_records);
    json.Count("clock_set_back", report.clock_set_back);
    json.Count("nameless_items", report.nameless_items);
    json.Count("rejected_lists", report.rejected_lists);
    json.Bool("has_debug_records", report.has_starts);
    PutLaunchers(json, report);
    json.BeginArray("items");
    for (const ItemReport* item : InOrder(report, ItemOrder::kLog)) {
        PutItem(json, *item);
    }
    json.EndArray();
    json.EndObject();
    json.Finish();
}

std::string ReportJson(const Report& report)
{
    std::string json;
    WriteReportJson(report, [&json](std::string_view piece) { json += piece; });
    return json;
}

}  // namespace launchlist
