#include <algorithm>
#include <map>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/output/report_wording.h"
#include "tools/launchlist/output/status_formats.h"
#include "tools/launchlist/output/terminal_style.h"
#include "util/string_util.h"

namespace launchlist {

namespace {

constexpr std::size_t kMinNameWidth = 12;
constexpr std::size_t kMaxNameWidth = 32;

// This many remarks of a kind are printed; the others are counted.
constexpr std::size_t kMaxRemarks = 20;

Style StyleOf(ItemState state)
{
    switch (state) {
        case ItemState::kRunning:
            return Style::kGreen;
        case ItemState::kStarting:
        case ItemState::kBetweenRuns:
        case ItemState::kUnknown:
            return Style::kYellow;
        case ItemState::kReplaced:
            return Style::kDim;
        default:
            return Style::kRed;
    }
}

std::string MemoryText(const std::optional<std::uint64_t>& bytes)
{
    if (!bytes) {
        return "?";
    }
    const double megabytes = static_cast<double>(*bytes) / 1e6;
    return megabytes < 1000 ? string_format("%.1f MB", megabytes)
                            : string_format("%.1f GB", megabytes / 1000);
}

std::string PercentText(const std::optional<double>& percent)
{
    return percent ? string_format("%.1f %%", *percent) : "?";
}

class StatusPrinter
{
public:
    StatusPrinter(const Status& status, const std::string& list, std::optional<std::size_t> width,
                  bool color)
        : m_status(status), m_list(list), m_width(width), m_color(color)
    {
        m_name_width = width ? std::clamp(*width / 3, kMinNameWidth, kMaxNameWidth) : kMaxNameWidth;
    }

    std::string Text() const
    {
        std::string text;
        for (const LauncherStatus& launcher : m_status.launchers) {
            text += (text.empty() ? "" : "\n") + LauncherText(launcher);
        }
        if (m_status.launchers.empty()) {
            text = m_list.empty() ? "No launcher of this user is running.\n"
                                  : "No launcher of this user is running with the list " +
                                        printable(m_list) + ".\n";
        }
        for (const pid_t process : m_status.unexamined) {
            text += Remark("Process " + std::to_string(process) +
                           " may be a launcher, but this user may not examine it.");
        }
        return text + LeftoverText();
    }

private:
    using TableRow = std::vector<std::string>;

    struct Column
    {
        const char* label;
        int rank;  // The columns with the highest ranks are dropped first; 0 is always shown.
    };

    static constexpr Column kColumns[] = {{"item", 0},        {"state", 0},    {"pid", 0},
                                          {"started UTC", 2}, {"restarts", 0}, {"last hour", 3},
                                          {"memory", 1},      {"CPU", 1}};
    static constexpr std::size_t kStateColumn = 1;

    std::string Remark(const std::string& text) const
    {
        return styled(text, Style::kYellow, m_color) + "\n";
    }

    std::string Name(const ItemStatus& item) const
    {
        if (!item.name) {
            return "(item " + std::to_string(item.index) + ", no name)";
        }
        const std::string name = item.name->empty() ? "\"\"" : printable(*item.name);
        return m_width ? Shortened(name, m_name_width) : name;
    }

    static std::string Title(const ItemStatus& item)
    {
        return item.name ? quoted(*item.name) : "item " + std::to_string(item.index);
    }

    // The date is omitted if it is today's.
    std::string Moment(Milliseconds time) const
    {
        constexpr std::size_t kDateSize = sizeof "2026-11-21" - 1;
        const std::string text = FormatForPeople(time);
        const bool is_today =
            text.substr(0, kDateSize) == FormatForPeople(m_status.time).substr(0, kDateSize);
        return is_today ? text.substr(kDateSize + 1) : text;
    }

    std::string Row(const char* label, const std::string& value) const
    {
        return "    " + styled(pad_right(label, 13), Style::kDim, m_color) + value + "\n";
    }

    std::string LauncherText(const LauncherStatus& launcher) const
    {
        const bool has_items = launcher.list_error.empty();
        std::string text = "launcher " + std::to_string(launcher.process.id);
        text = styled(text, Style::kBold, m_color);
        if (has_items) {
            text += ": " + std::to_string(launcher.running) + " of " +
                    counted(launcher.expected, "item") +
                    (launcher.expected == 1 ? " runs" : " run");
        }
        text += "\n" + Row("application", printable(launcher.application));
        text += Row("started", FormatForPeople(launcher.process.start) + " UTC");
        text += Row("list", printable(launcher.list));
        text += Row("log", printable(launcher.log));
        text += Row("memory", MemoryText(launcher.process.memory));
        text += Row("CPU", PercentText(launcher.process.cpu_percent));
        text += LauncherRemarks(launcher);
        if (!launcher.items.empty()) {
            text += "\n" + Table(launcher);
        }
        return text + ItemRemarks(launcher) + SupervisorText(launcher) + OtherChildren(launcher);
    }

    std::string LauncherRemarks(const LauncherStatus& launcher) const
    {
        std::string text;
        if (launcher.is_deleted) {
            text += Remark("Its program file " + printable(launcher.executable) +
                           " has been removed or replaced since it was started.");
        }
        if (!launcher.list_error.empty()) {
            text +=
                Remark("The list, as it is now, cannot be used: " + printable(launcher.list_error) +
                       ". Items are unknown.");
        } else if (launcher.list_may_have_changed) {
            text += Remark(
                "The list may have changed since the launcher read it. What follows is about the "
                "list as it is now.");
        }
        if (!launcher.log_error.empty()) {
            text += Remark("The log cannot be read: " + printable(launcher.log_error) +
                           ". Restarts are unknown.");
        } else if (launcher.log_may_lack_records) {
            text += Remark(
                "The log may lack records of this launcher; there may be more restarts than "
                "shown.");
        }
        return text;
    }

    TableRow RowOf(const ItemStatus& item, bool is_minimum) const
    {
        const auto count = [&](const std::optional<std::size_t>& number) {
            return number ? std::to_string(*number) + (is_minimum ? "+" : "") : "?";
        };
        TableRow row = {Name(item),
                        WordsOf(item.state),
                        "-",
                        "-",
                        count(item.restarts),
                        count(item.restarts_last_hour),
                        "-",
                        "-"};
        if (item.process) {
            row[2] = std::to_string(item.process->id);
            row[3] = Moment(item.process->start);
            row[6] = MemoryText(item.process->memory);
            row[7] = PercentText(item.process->cpu_percent);
        }
        return row;
    }

    std::string Table(const LauncherStatus& launcher) const
    {
        std::vector<TableRow> rows(1);
        for (const Column& column : kColumns) {
            rows.front().emplace_back(column.label);
        }
        for (const ItemStatus& item : launcher.items) {
            rows.push_back(RowOf(item, launcher.log_may_lack_records));
        }
        std::vector<std::size_t> widths(std::size(kColumns));
        for (const TableRow& row : rows) {
            for (std::size_t i = 0; i < row.size(); ++i) {
                widths[i] = std::max(widths[i], display_width(row[i]));
            }
        }
        const std::vector<std::size_t> columns = ColumnsThatFit(widths);
        std::string text;
        for (std::size_t r = 0; r < rows.size(); ++r) {
            std::string line;
            for (const std::size_t column : columns) {
                const std::string& cell = rows[r][column];
                // The first two columns are words, the others are numbers.
                std::string padded = column <= kStateColumn ? pad_right(cell, widths[column])
                                                            : pad_left(cell, widths[column]);
                if (r > 0 && column == kStateColumn) {
                    padded = styled(padded, StyleOf(launcher.items[r - 1].state), m_color);
                }
                line += (line.empty() ? "" : "  ") + padded;
            }
            text += styled(line, Style::kBold, m_color && r == 0) + "\n";
        }
        return text;
    }

    std::vector<std::size_t> ColumnsThatFit(const std::vector<std::size_t>& widths) const
    {
        std::vector<std::size_t> columns(widths.size());
        std::size_t width = 0;
        for (std::size_t i = 0; i < widths.size(); ++i) {
            columns[i] = i;
            width += widths[i] + (i > 0 ? 2 : 0);
        }
        while (m_width && width > *m_width) {
            const auto last = std::max_element(
                columns.begin(), columns.end(),
                [](std::size_t a, std::size_t b) { return kColumns[a].rank < kColumns[b].rank; });
            if (kColumns[*last].rank == 0) {
                break;
            }
            width -= widths[*last] + 2;
            columns.erase(last);
        }
        return columns;
    }

    std::string ItemRemarks(const LauncherStatus& launcher) const
    {
        std::vector<std::string> remarks;
        for (const ItemStatus& item : launcher.items) {
            if (!item.reason.empty()) {
                remarks.push_back(Title(item) + ": " + WordsOf(item.state) + ": " +
                                  printable(item.reason));
            }
            if (item.has_further_supervisor) {
                remarks.push_back(Title(item) +
                                  ": runs under a further supervisor; stopping the launcher does "
                                  "not end it");
            }
            if (item.process && item.matched_by == MatchedBy::kExecutable) {
                remarks.push_back(Title(item) +
                                  ": the command line of its process differs from the list; the "
                                  "process was recognized by its program file");
            }
        }
        for (const ItemGroup& group : launcher.groups) {
            remarks.push_back(GroupText(launcher, group));
        }
        return Limited(remarks, "remark");
    }

    static std::string GroupText(const LauncherStatus& launcher, const ItemGroup& group)
    {
        std::string text;
        const std::size_t shown = std::min(group.items.size(), kMaxRemarks);
        for (std::size_t i = 0; i < shown; ++i) {
            text += (i == 0 ? "" : ", ") +
                    Title(launcher.items[static_cast<std::size_t>(group.items[i])]);
        }
        if (shown < group.items.size()) {
            text += " and " + std::to_string(group.items.size() - shown) + " more";
        }
        return text + ": the same command line or program; " + std::to_string(group.running) +
               " of them " + (group.running == 1 ? "runs" : "run") +
               ", but which process belongs to which item is unknown";
    }

    std::string Limited(const std::vector<std::string>& remarks, const char* noun) const
    {
        std::string text;
        for (std::size_t i = 0; i < std::min(remarks.size(), kMaxRemarks); ++i) {
            text += remarks[i] + "\n";
        }
        if (remarks.size() > kMaxRemarks) {
            text += counted(remarks.size() - kMaxRemarks, std::string("more ") + noun) +
                    " not shown; --json has all\n";
        }
        return text.empty() ? "" : "\n" + text;
    }

    // Children that have just been forked are about to execute their program, and not mentioned.
    std::string SupervisorText(const LauncherStatus& launcher) const
    {
        const auto has_failed = [](const SupervisorStatus& supervisor) {
            return supervisor.has_failed;
        };
        const auto count = static_cast<std::size_t>(
            std::count_if(launcher.supervisors.begin(), launcher.supervisors.end(), has_failed));
        if (count == 0) {
            return "";
        }
        std::size_t unknown = count;
        std::string items;
        std::size_t shown = 0;
        for (const ItemStatus& item : launcher.items) {
            unknown -= item.supervisors;
            if (item.supervisors > 0 && ++shown <= kMaxRemarks) {
                items += (items.empty() ? "" : ", ") + std::to_string(item.supervisors) + " of " +
                         Title(item);
            }
        }
        if (shown > kMaxRemarks) {
            items += " and those of " + counted(shown - kMaxRemarks, "more item");
        }
        if (unknown > 0) {
            items += (items.empty() ? "" : ", ") + std::to_string(unknown) + " of unknown items";
        }
        return "\n" + Remark(counted(count, "further supervisor") +
                             ", left behind by failed starts: " + items +
                             ". Each waits for the next one, and stopping the launcher ends only "
                             "the first of each item.");
    }

    std::string OtherChildren(const LauncherStatus& launcher) const
    {
        std::vector<std::string> remarks;
        for (const OtherProcess& other : launcher.others) {
            remarks.push_back(
                "Process " + std::to_string(other.process.id) +
                " is a child of the launcher, but matches no item: " + quoted(other.command));
        }
        return Limited(remarks, "process");
    }

    static std::string Origin(const Leftover& leftover)
    {
        if (leftover.items.empty()) {
            return quoted(leftover.command);
        }
        return quoted(leftover.names.front()) +
               (leftover.items.size() > 1 ? " or " + counted(leftover.items.size() - 1, "more item")
                                          : "") +
               " of " + printable(leftover.list);
    }

    std::string LeftoverText() const
    {
        std::vector<std::string> remarks;
        std::map<std::string, std::size_t> supervisors;  // By list.
        for (const Leftover& leftover : m_status.leftovers) {
            const std::string process = "Process " + std::to_string(leftover.process.id) +
                                        ", started " + Moment(leftover.process.start) + " UTC, ";
            switch (leftover.kind) {
                case LeftoverKind::kSupervisor:
                    ++supervisors[leftover.list];
                    break;
                case LeftoverKind::kHelper:
                    remarks.push_back(process +
                                      "is a helper whose launcher or supervisor has "
                                      "ended: " +
                                      Origin(leftover));
                    break;
                case LeftoverKind::kHasLog:
                    remarks.push_back(process +
                                      "has the launcher's log as its descriptor 0: a helper whose "
                                      "launcher has ended, or a program that a helper started: " +
                                      Origin(leftover));
                    break;
                case LeftoverKind::kSameCommand:
                    remarks.push_back(process +
                                      "has the command line of an item, but not the launcher's "
                                      "log, so perhaps no launcher started it: " +
                                      Origin(leftover));
                    break;
            }
        }
        for (const auto& [list, count] : supervisors) {
            remarks.push_back(
                counted(count, "supervisor") +
                " whose launcher or supervisor has ended, of the list " + printable(list) +
                ": left behind by failed starts, and still trying to start a program");
        }
        return Limited(remarks, "process");
    }

    const Status& m_status;
    const std::string& m_list;
    const std::optional<std::size_t> m_width;
    const bool m_color;
    std::size_t m_name_width = 0;
};

}  // namespace

const char* WordsOf(ItemState state)
{
    switch (state) {
        case ItemState::kBetweenRuns:
            return "between runs";
        case ItemState::kFailing:
            return "failing to start";
        case ItemState::kNeverStarted:
            return "never started";
        default:
            return NameOf(state);
    }
}

std::string StatusText(const Status& status, const std::string& list,
                       std::optional<std::size_t> width, bool color)
{
    return StatusPrinter(status, list, width, color).Text();
}

}  // namespace launchlist
