#include <algorithm>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/output/report_output.h"

namespace launchlist {

namespace {

std::string Times(std::size_t count)
{
    return count == 1 ? "once" : std::to_string(count) + " times";
}

Figure CountFigure(const char* label, const char* key, std::size_t count)
{
    return {label, key, std::to_string(count), std::to_string(count)};
}

Figure LengthFigure(const char* label, const char* key, const std::optional<Milliseconds>& length,
                    std::size_t unknown_runs)
{
    if (!length) {
        return {label, key, unknown_runs > 0 ? "unknown" : "-", "null"};
    }
    return {label, key, FormatDuration(*length), std::to_string(*length)};
}

}  // namespace

std::string ReportTitle(const Report& report)
{
    if (!report.first) {
        return "no records";
    }
    return FormatRange(*report.first, *report.last) + " (" +
           FormatDuration(*report.last - *report.first) + "), " +
           counted(report.launchers, "launcher") + ", " + counted(report.items.size(), "item") +
           ", " + counted(report.records, "record");
}

std::string ItemTitle(const ItemReport& item)
{
    return item.name.empty() ? "\"\"" : printable(item.name);
}

const char* StateInWords(State state)
{
    switch (state) {
        case State::kRunning:
            return "running";
        case State::kEnded:
            return "ended";
        case State::kUnknown:
            break;
    }
    return "unknown";
}

std::vector<Figure> FiguresOf(const ItemReport& item)
{
    const std::size_t unknown = item.unknown_runs;
    return {
        item.starts ? CountFigure("starts", "starts", *item.starts)
                    : Figure{"starts", "starts", "unknown", "null"},
        CountFigure("ends", "ends", item.ends),
        CountFigure("restarts", "restarts", item.restarts),
        CountFigure("most/min", "most_restarts_a_minute", item.worst_minute),
        LengthFigure("shortest", "shortest_run_ms", item.shortest, unknown),
        LengthFigure("median", "median_run_ms", item.median, unknown),
        LengthFigure("longest", "longest_run_ms", item.longest, unknown),
        {"now", "state", StateInWords(item.state), StateInWords(item.state)},
    };
}

std::vector<std::string> ReportNotes(const Report& report, const std::string& level_file)
{
    std::vector<std::string> notes;
    for (const LogFile& file : report.files) {
        if (!file.error.empty()) {
            notes.push_back(printable(file.path) + " could not be read: " + file.error);
        }
    }
    const auto is_unknown = [](const ItemReport& item) { return !item.starts; };
    if (std::any_of(report.items.begin(), report.items.end(), is_unknown)) {
        notes.push_back(
            "Starts and first runs are unknown where a launcher wrote no DEBUG records. To have "
            "them, put LEVEL=DEBUG into the section [LOG] of " +
            printable(level_file) + " and start the launcher anew.");
    }
    if (report.unread > 0) {
        notes.push_back(counted(report.unread, "piece") + " of the log " +
                        (report.unread == 1 ? "is no record" : "are no records") +
                        " (torn or foreign lines). The first of them:");
        notes.insert(notes.end(), report.unread_samples.begin(), report.unread_samples.end());
    }
    if (report.lost_records > 0) {
        notes.push_back("The log lacks " + counted(report.lost_records, "record") +
                        " that could not be written.");
    }
    if (report.other_records > 0) {
        notes.push_back(counted(report.other_records, "record") +
                        " of other programs, or with another text, " +
                        (report.other_records == 1 ? "was" : "were") + " left out.");
    }
    if (report.nameless_items > 0) {
        notes.push_back("Items without a name were skipped " + Times(report.nameless_items) + ".");
    }
    if (report.refused_lists > 0) {
        notes.push_back("A launcher refused its list and ended " + Times(report.refused_lists) +
                        "; `launchlist check` tells why.");
    }
    return notes;
}

std::vector<std::string> ItemNotes(const ItemReport& item)
{
    std::vector<std::string> notes;
    if (item.loop) {
        notes.push_back(std::string(item.loop->is_crash ? "crashes" : "ends") +
                        " in a loop: " + counted(item.loop->runs, "run") + " of less than " +
                        std::to_string(kShortRun / 1000) + " s in a row, " +
                        FormatRange(item.loop->from, item.loop->to));
    }
    if (item.failed_starts > 0) {
        notes.push_back("could not be started " + Times(item.failed_starts) +
                        "; the log holds no cause, `launchlist check` may find it");
    }
    if (item.no_program > 0) {
        notes.push_back("has no program, told " + Times(item.no_program));
    }
    if (item.failed_forks > 0) {
        notes.push_back("was given up " + Times(item.failed_forks) +
                        ", since no process could be forked");
    }
    return notes;
}

std::string EndsOf(const ItemReport& item)
{
    std::string text;
    for (const auto& [words, count] : item.ends_in_words) {
        text += (text.empty() ? "" : ", ") + words + " (" + Times(count) + ")";
    }
    return text;
}

}  // namespace launchlist
