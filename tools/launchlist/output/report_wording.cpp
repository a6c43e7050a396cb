#include "tools/launchlist/output/report_wording.h"

#include <algorithm>

#include "tools/launchlist/base/text.h"
#include "util/string_util.h"

namespace launchlist {

namespace {

constexpr Milliseconds kHour = 3600000;

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

std::string TitleOf(const Launcher& launcher)
{
    return LauncherName(launcher.process, launcher.may_be_child_of);
}

std::string LauncherCount(const Report& report)
{
    const std::vector<const Launcher*> launchers = LaunchersOf(report);
    const auto is_doubtful = [](const Launcher* launcher) {
        return launcher->may_be_child_of.has_value();
    };
    const auto doubtful = std::count_if(launchers.begin(), launchers.end(), is_doubtful);
    const std::size_t certain = launchers.size() - static_cast<std::size_t>(doubtful);
    return (doubtful == 0 ? "" : std::to_string(certain) + (doubtful == 1 ? " or " : " to ")) +
           counted(launchers.size(), "launcher");
}

// "123 an hour", "1.5 an hour".
std::string HourlyRate(double per_hour)
{
    return string_format(per_hour < 10 ? "%.1f an hour" : "%.0f an hour", per_hour);
}

// What the unexpected ends have in common.
std::string EndsSummary(const ItemReport& item)
{
    if (item.crashes == 0) {
        return "exits repeatedly: " + counted(item.clean_ends, "exit") + " with status 0";
    }
    std::string text = "crashes repeatedly: " + std::to_string(item.crashes) +
                       (item.crashes == 1 ? " crash" : " crashes");
    if (item.clean_ends > 0) {
        text += " and " + counted(item.clean_ends, "exit") + " with status 0";
    }
    return text;
}

std::string RateNote(const ItemReport& item)
{
    const Rate& rate = *item.rate;
    const Milliseconds span = rate.last - rate.first;
    std::string text = EndsSummary(item) + " in " + FormatDuration(span);
    if (span > kHour) {
        text += " (" + HourlyRate(rate.per_hour) + "), at worst " +
                std::to_string(rate.worst_hour) + " in the hour from " +
                FormatForPeople(rate.worst_hour_from);
    }
    const auto known = static_cast<double>(item.running + item.down);
    if (item.down > 0) {
        text += string_format(", down for %.1f %% of the known time",
                              100 * static_cast<double>(item.down) / known);
    }
    return text + (rate.continues ? "; continues at the end of the report"
                                  : "; the last at " + FormatForPeople(rate.last) + " UTC");
}

}  // namespace

std::string LauncherName(std::int64_t process, const std::optional<std::int64_t>& may_be_child_of)
{
    const std::string id = std::to_string(process);
    return may_be_child_of ? "process " + id + ", a launcher or a child of launcher " +
                                 std::to_string(*may_be_child_of)
                           : "launcher " + id;
}

std::string ReportTitle(const Report& report)
{
    if (!report.last_record) {
        return "no records";
    }
    if (!report.first) {
        return "no records in this period; the last record of the log is from " +
               FormatForPeople(*report.last_record) + " UTC";
    }
    return FormatRange(*report.first, *report.last) + " (" +
           FormatDuration(*report.last - *report.first) + "), " + LauncherCount(report) + ", " +
           counted(report.items.size(), "item") + ", " + counted(report.records, "record");
}

std::vector<const Launcher*> LaunchersOf(const Report& report)
{
    std::vector<const Launcher*> launchers;
    for (const Launcher& launcher : report.launchers) {
        if (launcher.is_selected && report.first && launcher.to >= *report.first &&
            launcher.from <= *report.last) {
            launchers.push_back(&launcher);
        }
    }
    return launchers;
}

const char* NameOf(LauncherEnd end)
{
    static constexpr const char* kWords[] = {"unknown", "running", "stopped", "vanished",
                                             "rejected"};
    return kWords[static_cast<int>(end)];
}

std::string LauncherText(const Launcher& launcher)
{
    std::string how;
    switch (launcher.end) {
        case LauncherEnd::kStopped:
            how = launcher.is_certain ? "stopped" : "probably stopped";
            break;
        case LauncherEnd::kVanished:
            how = launcher.is_certain
                      ? "vanished: no stop is logged, and another process got its id"
                      : "probably vanished: no stop is logged, and a later launcher started its "
                        "items";
            break;
        case LauncherEnd::kRejected:
            // A thread that cannot be created leaves the same record.
            how = "could not use its list, or could not create a thread";
            break;
        case LauncherEnd::kRunning:
            how = "running at the last record of the log";
            break;
        case LauncherEnd::kUnknown:
            how = "whether it still runs is unknown";
            break;
    }
    return TitleOf(launcher) + ": records from " + FormatRange(launcher.from, launcher.to) + "; " +
           how;
}

std::vector<std::string> LauncherProblems(const Report& report)
{
    std::vector<const Launcher*> rejected;
    std::vector<const Launcher*> vanished;
    for (const Launcher* launcher : LaunchersOf(report)) {
        if (launcher->end == LauncherEnd::kRejected) {
            rejected.push_back(launcher);
        } else if (launcher->end == LauncherEnd::kVanished) {
            vanished.push_back(launcher);
        }
    }
    const auto who = [](const std::vector<const Launcher*>& launchers) {
        return launchers.size() == 1 ? TitleOf(*launchers[0])
                                     : std::to_string(launchers.size()) + " launchers";
    };
    std::vector<std::string> problems;
    if (!rejected.empty()) {
        problems.push_back(who(rejected) + " could not use " +
                           (rejected.size() == 1 ? "its" : "their") +
                           " list, or could not create a thread; `launchlist check` shows the "
                           "mistakes of a list");
    }
    if (!vanished.empty()) {
        const auto is_certain = [](const Launcher* launcher) { return launcher->is_certain; };
        const bool are_certain = std::all_of(vanished.begin(), vanished.end(), is_certain);
        problems.push_back(who(vanished) + (are_certain ? "" : " probably") + " vanished, " +
                           (vanished.size() == 1 ? "after " : "the last after ") +
                           FormatForPeople(vanished.back()->to) + " UTC");
    }
    if (report.nameless_items > 0) {
        problems.push_back("an item without a name was skipped " + Times(report.nameless_items));
    }
    return problems;
}

std::string ItemTitle(const ItemReport& item)
{
    return item.name.empty() ? "\"\"" : printable(item.name);
}

std::string Shortened(const std::string& text, std::size_t width)
{
    if (text.size() <= width || display_width(text) <= width) {
        return text;
    }
    const std::size_t room = width - 3;
    // The end of a name is more distinctive than its beginning: "com.kestrane.helper.indexer".
    const auto is_inside = [&](std::size_t at) {
        return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80;
    };
    std::size_t begin = text.size() - std::min(text.size(), 4 * room);
    while (begin < text.size() &&
           (is_inside(begin) || display_width(text.substr(begin)) > room - room / 2)) {
        ++begin;
    }
    std::size_t end = std::min(text.size(), 4 * room);
    while (end > 0 && (is_inside(end) || display_width(text.substr(0, end)) > room / 2)) {
        --end;
    }
    return text.substr(0, end) + "..." + text.substr(begin);
}

const char* NameOf(State state)
{
    static constexpr const char* kWords[] = {"unknown", "running", "started",  "ended",
                                             "stopped", "failing", "abandoned"};
    return kWords[static_cast<int>(state)];
}

const char* NameOf(ItemSeverity severity)
{
    static constexpr const char* kWords[] = {"healthy", "notable", "troubled", "broken"};
    return kWords[static_cast<int>(severity)];
}

std::vector<Figure> FiguresOf(const ItemReport& item)
{
    const std::size_t unknown = item.unknown_runs;
    return {
        item.starts ? CountFigure("starts", "starts", *item.starts)
                    : Figure{"starts", "starts", "unknown", "null"},
        CountFigure("ends", "ends", item.ends),
        CountFigure("crashes", "crashes", item.crashes),
        CountFigure("restarts", "restarts", item.restarts),
        CountFigure("peak/min", "most_restarts_a_minute", item.worst_minute),
        LengthFigure("shortest", "shortest_run_ms", item.shortest, unknown),
        LengthFigure("median", "median_run_ms", item.median, unknown),
        LengthFigure("longest", "longest_run_ms", item.longest, unknown),
        {"at end", "state", NameOf(item.state), NameOf(item.state)},
    };
}

std::vector<std::string> ReportNotes(const Report& report, const std::string& level_file)
{
    std::vector<std::string> notes;
    for (const LogFile& file : report.files) {
        if (!file.error.empty()) {
            notes.push_back(printable(file.path) +
                            " could not be read, so records may be missing: " + file.error);
        }
    }
    const auto lacks_starts = [](const ItemReport& item) { return !item.starts; };
    if (std::any_of(report.items.begin(), report.items.end(), lacks_starts)) {
        notes.push_back(
            "Starts and first runs are unknown where the log holds no DEBUG records. To log them, "
            "set LEVEL=DEBUG in the section [LOG] of " +
            (level_file.empty() ? "the log.ini of the user whose launcher wrote the log"
                                : printable(level_file)) +
            " and restart the launcher.");
    }
    if (report.unread > 0) {
        notes.push_back(counted(report.unread, "line") +
                        " could not be parsed (torn, or written by another program). The first:");
        notes.insert(notes.end(), report.unread_samples.begin(), report.unread_samples.end());
    }
    if (report.lost_records > 0) {
        notes.push_back(counted(report.lost_records, "record") + " could not be written and " +
                        (report.lost_records == 1 ? "is" : "are") + " missing from the log.");
    }
    if (report.clock_set_back > 0) {
        notes.push_back("The time in the log goes back by a second or more (" +
                        Times(report.clock_set_back) +
                        "), as if the clock had been set back; the lengths of runs around that "
                        "time may be wrong.");
    }
    if (report.other_records > 0) {
        notes.push_back(counted(report.other_records, "record") +
                        (report.other_records == 1 ? " was" : " were") +
                        " ignored: written by another program, or with an unknown text.");
    }
    return notes;
}

std::vector<std::string> ItemNotes(const ItemReport& item)
{
    std::vector<std::string> notes;
    if (item.failed_starts > 0) {
        notes.push_back("could not be started " + Times(item.failed_starts) +
                        "; the log does not say why, `launchlist check` may");
    }
    if (item.no_program > 0) {
        notes.push_back("has no program (logged " + Times(item.no_program) + ")");
    }
    if (item.failed_forks > 0) {
        notes.push_back("abandoned: fork failed" +
                        (item.failed_forks > 1 ? " " + Times(item.failed_forks) : std::string()));
    }
    if (item.loop || (item.rate && item.rate->worst_hour >= kFrequentEnds)) {
        notes.push_back(RateNote(item));
        if (item.loop) {
            notes.push_back("longest loop: " + counted(item.loop->runs, "run") + " of less than " +
                            std::to_string(kShortRun / 1000) + " s in a row, " +
                            FormatRange(item.loop->from, item.loop->to));
        }
    } else if (item.crashes > 0) {
        notes.push_back("crashed " + Times(item.crashes));
    }
    if (item.unknown_ends > 0) {
        notes.push_back("waitpid failed " + Times(item.unknown_ends) +
                        ": when and how the program ended is unknown");
    }
    return notes;
}

std::string EndsOf(const ItemReport& item)
{
    std::string text;
    const auto add = [&text](const std::string& words, std::size_t count) {
        if (count > 0) {
            text += (text.empty() ? "" : ", ") + words + " (" + Times(count) + ")";
        }
    };
    for (const auto& [cause, count] : item.causes) {
        add(TextOf(cause), count);
    }
    add("killed by its launcher", item.stops);
    add("killed by SIGKILL, perhaps at a stop", item.possible_stops);
    add("unknown: waitpid failed", item.unknown_ends);
    return text;
}

std::vector<const ItemReport*> WorstFirst(const Report& report)
{
    std::vector<const ItemReport*> items;
    items.reserve(report.items.size());
    for (const ItemReport& item : report.items) {
        items.push_back(&item);
    }
    const auto is_worse = [](const ItemReport* a, const ItemReport* b) {
        const auto ends = [](const ItemReport* item) {
            return item->crashes + item->failed_starts + item->clean_ends;
        };
        return a->severity != b->severity ? a->severity > b->severity : ends(a) > ends(b);
    };
    std::stable_sort(items.begin(), items.end(), is_worse);
    return items;
}

std::vector<const ItemReport*> InOrder(const Report& report, ItemOrder usual)
{
    const ItemOrder order = report.order.value_or(usual);
    if (order == ItemOrder::kWorst) {
        return WorstFirst(report);
    }
    // What is unknown comes last.
    const auto figure = [order](const ItemReport& item) -> std::int64_t {
        switch (order) {
            case ItemOrder::kStarts:
                return item.starts ? static_cast<std::int64_t>(*item.starts) : -1;
            case ItemOrder::kEnds:
                return static_cast<std::int64_t>(item.ends);
            case ItemOrder::kCrashes:
                return static_cast<std::int64_t>(item.crashes);
            case ItemOrder::kRestarts:
                return static_cast<std::int64_t>(item.restarts);
            case ItemOrder::kMedian:
                return item.median.value_or(-1);
            case ItemOrder::kDown:
                return item.down;
            default:
                return 0;
        }
    };
    std::vector<const ItemReport*> items;
    items.reserve(report.items.size());
    for (const ItemReport& item : report.items) {
        items.push_back(&item);
    }
    std::stable_sort(items.begin(), items.end(), [&](const ItemReport* a, const ItemReport* b) {
        return order == ItemOrder::kName ? a->name < b->name : figure(*a) > figure(*b);
    });
    return items;
}

}  // namespace launchlist
