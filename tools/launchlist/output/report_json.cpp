#include "tools/launchlist/output/json_output.h"
#include "tools/launchlist/output/report_output.h"

namespace launchlist {

namespace {

void PutTime(JsonObject& object, const char* key, const std::optional<Milliseconds>& time)
{
    if (time) {
        PutText(object, key, FormatTimeStamp(*time));
    } else {
        PutNull(object, key);
    }
}

void PutLength(JsonObject& object, const char* key, const std::optional<Milliseconds>& length)
{
    if (length) {
        PutNumber(object, key, *length);
    } else {
        PutNull(object, key);
    }
}

JsonObject EndsObject(const ItemReport& item)
{
    JsonObject list = EmptyList();
    for (const auto& [words, count] : item.ends_in_words) {
        JsonObject entry = JsonObject::GetEmptyObject();
        PutText(entry, "how", words);
        PutNumber(entry, "count", count);
        list.InsertArrayItem(entry);
    }
    return list;
}

void PutLoop(JsonObject& object, const std::optional<Loop>& loop)
{
    if (!loop) {
        PutNull(object, "loop");
        return;
    }
    JsonObject entry = JsonObject::GetEmptyObject();
    PutNumber(entry, "runs", loop->runs);
    PutTime(entry, "from", loop->from);
    PutTime(entry, "to", loop->to);
    PutTruth(entry, "crash", loop->is_crash);
    PutValue(object, "loop", entry);
}

JsonObject ItemObject(const ItemReport& item)
{
    JsonObject object = JsonObject::GetEmptyObject();
    PutText(object, "name", item.name);
    if (item.starts) {
        PutNumber(object, "starts", *item.starts);
    } else {
        PutNull(object, "starts");
    }
    PutNumber(object, "ends", item.ends);
    PutValue(object, "ended", EndsObject(item));
    PutLength(object, "shortest_run_ms", item.shortest);
    PutLength(object, "median_run_ms", item.median);
    PutLength(object, "longest_run_ms", item.longest);
    PutNumber(object, "unknown_runs", item.unknown_runs);
    PutNumber(object, "restarts", item.restarts);
    PutNumber(object, "most_restarts_a_minute", item.worst_minute);
    PutNumber(object, "failed_starts", item.failed_starts);
    PutNumber(object, "without_program", item.no_program);
    PutNumber(object, "failed_forks", item.failed_forks);
    PutLoop(object, item.loop);
    PutText(object, "state", StateInWords(item.state));
    return object;
}

JsonObject FileObject(const LogFile& file)
{
    JsonObject object = JsonObject::GetEmptyObject();
    PutText(object, "path", file.path);
    PutNumber(object, "bytes", file.size);
    if (file.error.empty()) {
        PutNull(object, "error");
    } else {
        PutText(object, "error", file.error);
    }
    return object;
}

}  // namespace

std::string ReportJson(const Report& report)
{
    JsonObject files = EmptyList();
    for (const LogFile& file : report.files) {
        JsonObject object = FileObject(file);
        files.InsertArrayItem(object);
    }
    JsonObject samples = EmptyList();
    for (const std::string& sample : report.unread_samples) {
        samples.InsertArrayItem(sample);
    }
    JsonObject items = EmptyList();
    for (const ItemReport& item : report.items) {
        JsonObject object = ItemObject(item);
        items.InsertArrayItem(object);
    }
    JsonObject result = JsonObject::GetEmptyObject();
    PutValue(result, "files", files);
    PutTime(result, "from", report.first);
    PutTime(result, "to", report.last);
    PutNumber(result, "records", report.records);
    PutNumber(result, "other_records", report.other_records);
    PutNumber(result, "unread", report.unread);
    PutValue(result, "unread_samples", samples);
    PutNumber(result, "lost_records", report.lost_records);
    PutNumber(result, "launchers", report.launchers);
    PutNumber(result, "nameless_items", report.nameless_items);
    PutNumber(result, "refused_lists", report.refused_lists);
    PutTruth(result, "has_debug_records", report.has_starts);
    PutValue(result, "items", items);
    return Finished(result);
}

}  // namespace launchlist
