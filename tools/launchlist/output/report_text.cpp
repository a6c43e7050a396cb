#include <algorithm>
#include <array>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/output/report_output.h"
#include "tools/launchlist/output/terminal_style.h"
#include "tools/launchlist/output/timeline.h"

namespace launchlist {

namespace {

constexpr std::size_t kMostNameWidth = 24;
constexpr std::size_t kLeastCells = 20;
constexpr std::size_t kMostCells = 160;

using TableRow = std::vector<std::string>;

std::string Cut(const std::string& text)
{
    if (display_width(text) <= kMostNameWidth) {
        return text;
    }
    std::string cut = text;
    while (display_width(cut) + 3 > kMostNameWidth || !is_utf8(cut)) {
        cut.pop_back();
    }
    return cut + "...";
}

// The heading and the rows of the table of figures.
std::vector<TableRow> TableOf(const Report& report)
{
    std::vector<TableRow> rows(1, {"item"});
    for (const Figure& figure : FiguresOf(ItemReport())) {
        rows.front().push_back(figure.label);
    }
    for (const ItemReport& item : report.items) {
        rows.push_back({Cut(ItemTitle(item))});
        for (const Figure& figure : FiguresOf(item)) {
            rows.back().push_back(figure.text);
        }
    }
    return rows;
}

std::string TableText(const std::vector<TableRow>& rows, bool color)
{
    std::vector<std::size_t> widths(rows.front().size());
    for (const TableRow& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], display_width(row[i]));
        }
    }
    std::string text;
    for (std::size_t r = 0; r < rows.size(); ++r) {
        std::string line = pad_right(rows[r][0], widths[0]);
        for (std::size_t i = 1; i < rows[r].size(); ++i) {
            line += "  " + pad_left(rows[r][i], widths[i]);
        }
        text += styled(line, Style::kBold, color && r == 0) + "\n";
    }
    return text;
}

struct CellLook
{
    char sign;
    Style style;
};

CellLook LookOf(Cell cell)
{
    static constexpr std::array<CellLook, 5> kLooks = {{{'.', Style::kDim},
                                                        {'=', Style::kGreen},
                                                        {'|', Style::kCyan},
                                                        {'x', Style::kRed},
                                                        {'!', Style::kYellow}}};
    return kLooks[static_cast<std::size_t>(cell)];
}

std::string RowText(const ItemReport& item, const Report& report, std::size_t cells, bool color)
{
    std::string text;
    for (const Stretch& stretch : Stretches(Timeline(item, *report.first, *report.last, cells))) {
        const CellLook look = LookOf(stretch.cell);
        text += styled(std::string(stretch.end - stretch.begin, look.sign), look.style, color);
    }
    return text;
}

std::string TimelineText(const Report& report, Terminal terminal)
{
    std::size_t names = 0;
    for (const ItemReport& item : report.items) {
        names = std::max(names, display_width(Cut(ItemTitle(item))));
    }
    const std::size_t room = terminal.width - std::min(terminal.width, names + 2);
    const std::size_t cells = std::clamp(room, kLeastCells, kMostCells);
    std::string from = FormatForPeople(*report.first);
    std::string to = FormatForPeople(*report.last);
    if (from.substr(0, 10) == to.substr(0, 10)) {
        to = to.substr(11);
    }
    std::string text = pad_right("", names + 2) + from +
                       pad_left(to, std::max(cells, from.size() + 1 + to.size()) - from.size()) +
                       "\n";
    for (const ItemReport& item : report.items) {
        text += pad_right(Cut(ItemTitle(item)), names + 2) +
                RowText(item, report, cells, terminal.color) + "\n";
    }
    return text +
           styled(
               "= running   | ended with status 0   x ended otherwise   ! could not be started   "
               ". not running",
               Style::kDim, terminal.color) +
           "\n";
}

std::string DetailsText(const Report& report, bool color)
{
    std::string text;
    for (const ItemReport& item : report.items) {
        const std::string title = styled(printable(quoted(item.name)), Style::kCyan, color);
        for (const std::string& note : ItemNotes(item)) {
            text += title + " " + styled(note, Style::kRed, color) + "\n";
        }
        if (!item.ends_in_words.empty()) {
            text += title + " ended: " + EndsOf(item) + "\n";
        }
    }
    return text;
}

}  // namespace

std::string ReportText(const Report& report, const std::string& level_file, Terminal terminal)
{
    std::string text = styled(ReportTitle(report), Style::kBold, terminal.color) + "\n";
    if (!report.items.empty()) {
        text += "\n" + TableText(TableOf(report), terminal.color);
        text += "\n" + TimelineText(report, terminal);
        text += "\n" + DetailsText(report, terminal.color);
    }
    const std::vector<std::string> notes = ReportNotes(report, level_file);
    if (!notes.empty()) {
        text += "\n";
    }
    for (const std::string& note : notes) {
        text += note + "\n";
    }
    return text;
}

}  // namespace launchlist
