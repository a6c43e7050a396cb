#include <algorithm>
#include <array>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/output/report_formats.h"
#include "tools/launchlist/output/report_wording.h"
#include "tools/launchlist/output/terminal_style.h"
#include "tools/launchlist/output/timeline.h"

namespace launchlist {

namespace {

constexpr std::size_t kUsualWidth = 80;
constexpr std::size_t kMinNameWidth = 12;
constexpr std::size_t kMaxNameWidth = 32;
constexpr std::size_t kMinCells = 20;
constexpr std::size_t kMaxCells = 160;
constexpr std::size_t kMaxItems = 1000;
constexpr std::size_t kMaxProblems = 20;
constexpr std::size_t kMaxLaunchers = 10;

using TableRow = std::vector<std::string>;
using Items = std::vector<const ItemReport*>;

// The columns that a narrow terminal lacks, in the order in which they are dropped.
constexpr const char* kDispensable[] = {"shortest_run_ms",
                                        "most_restarts_a_minute",
                                        "longest_run_ms",
                                        "restarts",
                                        "starts",
                                        "median_run_ms",
                                        "ends"};

class TextReport
{
public:
    TextReport(const Report& report, const std::string& level_file, Terminal terminal)
        : m_report(report),
          m_level_file(level_file),
          m_width(terminal.width),
          m_color(terminal.color),
          m_items(InOrder(report, ItemOrder::kWorst))
    {
        if (m_items.size() > kMaxItems) {
            m_omitted = m_items.size() - kMaxItems;
            m_items.resize(kMaxItems);
        }
        m_name_width = kMaxNameWidth;
        if (m_width) {
            m_name_width = std::clamp(*m_width / 3, kMinNameWidth, kMaxNameWidth);
        }
    }

    std::string Text() const
    {
        std::string text = styled(ReportTitle(m_report), Style::kBold, m_color) + "\n";
        text += Launchers();
        if (m_report.first) {
            text += "\n" + Problems();
        }
        if (!m_items.empty()) {
            text += "\n" + Table() + Omitted() + "\n" + TimelineRows();
            const std::string ends = Ends();
            text += ends.empty() ? "" : "\n" + ends;
        }
        const std::vector<std::string> notes = ReportNotes(m_report, m_level_file);
        text += notes.empty() ? "" : "\n";
        for (const std::string& note : notes) {
            text += note + "\n";
        }
        return text;
    }

private:
    std::string Launchers() const
    {
        const std::vector<const Launcher*> launchers = LaunchersOf(m_report);
        const std::size_t omitted = launchers.size() - std::min(launchers.size(), kMaxLaunchers);
        std::string text;
        if (omitted > 0) {
            text += counted(omitted, "earlier launcher") + " not shown\n";
        }
        for (std::size_t i = omitted; i < launchers.size(); ++i) {
            text += LauncherText(*launchers[i]) + "\n";
        }
        return text;
    }

    std::string Problems() const
    {
        std::string text;
        std::size_t count = 0;
        for (const std::string& problem : LauncherProblems(m_report)) {
            text += "  " + styled(problem, Style::kRed, m_color) + "\n";
            ++count;
        }
        for (const ItemReport* item : WorstFirst(m_report)) {
            for (const std::string& note : ItemNotes(*item)) {
                if (count < kMaxProblems) {
                    text += "  " + Title(*item) + " " +
                            styled(note,
                                   item->severity >= ItemSeverity::kTroubled ? Style::kRed
                                                                             : Style::kYellow,
                                   m_color) +
                            "\n";
                }
                ++count;
            }
        }
        if (count == 0) {
            return "No problems found.\n";
        }
        if (count > kMaxProblems) {
            text += "  and " + std::to_string(count - kMaxProblems) + " more\n";
        }
        return styled("Problems, the worst first:", Style::kBold, m_color) + "\n" + text;
    }

    std::string Omitted() const
    {
        return m_omitted == 0 ? ""
                              : counted(m_omitted, "more item") +
                                    (m_report.order ? " not shown; --json has all\n"
                                                    : " not shown, none of them worse; --json has "
                                                      "all\n");
    }

    std::string Title(const ItemReport& item) const
    {
        const std::string name = printable(item.name);
        return styled("\"" + (m_width ? Shortened(name, 2 * m_name_width) : name) + "\"",
                      Style::kCyan, m_color);
    }

    // The name as it stands in the table; whole unless a terminal limits it.
    std::string Name(const ItemReport& item) const
    {
        return m_width ? Shortened(ItemTitle(item), m_name_width) : ItemTitle(item);
    }

    std::string Table() const
    {
        std::vector<std::string> keys(1);
        std::vector<TableRow> rows(1, {"item"});
        for (const Figure& figure : FiguresOf(ItemReport())) {
            keys.push_back(figure.key);
            rows.front().push_back(figure.label);
        }
        for (const ItemReport* item : m_items) {
            rows.push_back({Name(*item)});
            for (const Figure& figure : FiguresOf(*item)) {
                rows.back().push_back(figure.text);
            }
        }
        std::vector<std::size_t> widths(keys.size());
        for (const TableRow& row : rows) {
            for (std::size_t i = 0; i < row.size(); ++i) {
                widths[i] = std::max(widths[i], display_width(row[i]));
            }
        }
        return TableText(rows, widths, ColumnsThatFit(keys, widths));
    }

    std::vector<std::size_t> ColumnsThatFit(const std::vector<std::string>& keys,
                                            const std::vector<std::size_t>& widths) const
    {
        std::vector<std::size_t> columns(keys.size());
        std::size_t width = 0;
        for (std::size_t i = 0; i < keys.size(); ++i) {
            columns[i] = i;
            width += widths[i] + (i > 0 ? 2 : 0);
        }
        for (const char* key : kDispensable) {
            if (!m_width || width <= *m_width) {
                break;
            }
            const auto has_key = [&](std::size_t column) { return keys[column] == key; };
            const auto found = std::find_if(columns.begin(), columns.end(), has_key);
            width -= widths[*found] + 2;
            columns.erase(found);
        }
        return columns;
    }

    std::string TableText(const std::vector<TableRow>& rows, const std::vector<std::size_t>& widths,
                          const std::vector<std::size_t>& columns) const
    {
        std::string text;
        for (std::size_t r = 0; r < rows.size(); ++r) {
            std::string line = pad_right(rows[r][0], widths[0]);
            for (std::size_t i = 1; i < columns.size(); ++i) {
                line += "  " + pad_left(rows[r][columns[i]], widths[columns[i]]);
            }
            text += styled(line, Style::kBold, m_color && r == 0) + "\n";
        }
        return text;
    }

    std::string TimelineRows() const
    {
        std::size_t names = 0;
        for (const ItemReport* item : m_items) {
            names = std::max(names, display_width(Shortened(ItemTitle(*item), m_name_width)));
        }
        const std::size_t width = m_width.value_or(kUsualWidth);
        const std::size_t room = width - std::min(width, names + 2);
        const std::size_t cells = std::clamp(room, kMinCells, kMaxCells);
        std::string text = pad_right("", names + 2) + Axis(cells) + "\n";
        for (const ItemReport* item : m_items) {
            text += pad_right(Shortened(ItemTitle(*item), m_name_width), names + 2) +
                    Cells(*item, cells) + "\n";
        }
        return text + Legend();
    }

    std::string Axis(std::size_t cells) const
    {
        const std::string from = FormatForPeople(*m_report.first);
        std::string to = FormatForPeople(*m_report.last);
        if (from.substr(0, 10) == to.substr(0, 10)) {
            to = to.substr(11);
        }
        const std::size_t width = std::max(cells, from.size() + 1 + to.size());
        return from + pad_left(to, width - from.size());
    }

    struct CellStyle
    {
        char sign;
        Style style;
        const char* words;
    };

    static const CellStyle& StyleOf(Cell cell)
    {
        static constexpr std::array<CellStyle, kCellKinds> kStyles = {
            {{'?', Style::kDim, "unknown"},
             {'.', Style::kDim, "not running"},
             {'=', Style::kGreen, "running"},
             {'s', Style::kCyan, "stopped"},
             {'~', Style::kCyan, "stopped or killed"},
             {'|', Style::kCyan, "exited with status 0"},
             {'x', Style::kRed, "crashed"},
             {'!', Style::kYellow, "could not be started"}}};
        return kStyles[static_cast<std::size_t>(cell)];
    }

    std::string Cells(const ItemReport& item, std::size_t count) const
    {
        std::vector<Cell> kinds;
        for (const TimelineCell& cell : Timeline(item, *m_report.first, *m_report.last, count)) {
            kinds.push_back(cell.cell);
        }
        std::string text;
        for (const Stretch& stretch : Stretches(kinds)) {
            const CellStyle& style = StyleOf(stretch.cell);
            text +=
                styled(std::string(stretch.end - stretch.begin, style.sign), style.style, m_color);
        }
        return text;
    }

    std::string Legend() const
    {
        const std::size_t width = m_width.value_or(kUsualWidth);
        std::string text;
        std::string line;
        for (const Cell cell : {Cell::kRunning, Cell::kDown, Cell::kUnknown, Cell::kEnd,
                                Cell::kCrash, Cell::kFailed, Cell::kStop, Cell::kMaybeStop}) {
            const CellStyle& style = StyleOf(cell);
            const std::string entry = std::string(1, style.sign) + " " + style.words;
            if (!line.empty() && line.size() + 3 + entry.size() > width) {
                text += styled(line, Style::kDim, m_color) + "\n";
                line.clear();
            }
            line += (line.empty() ? "" : "   ") + entry;
        }
        return text + styled(line, Style::kDim, m_color) + "\n";
    }

    std::string Ends() const
    {
        std::string text;
        for (const ItemReport* item : m_items) {
            const std::string ends = EndsOf(*item);
            text += ends.empty() ? "" : Title(*item) + " ended: " + ends + "\n";
        }
        return text;
    }

    const Report& m_report;
    const std::string& m_level_file;
    const std::optional<std::size_t> m_width;
    const bool m_color;
    Items m_items;
    std::size_t m_omitted = 0;
    std::size_t m_name_width = 0;
};

}  // namespace

std::string ReportText(const Report& report, const std::string& level_file, Terminal terminal)
{
    return TextReport(report, level_file, terminal).Text();
}

}  // namespace launchlist
