#include <array>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/output/page_style.h"
#include "tools/launchlist/output/report_output.h"
#include "tools/launchlist/output/timeline.h"

namespace launchlist {

namespace {

constexpr std::size_t kCells = 600;

// What may be shown is told to the browser, too: a mistake in here runs no script and loads
// nothing.
constexpr char kHead[] =
    "<!doctype html>\n"
    "<html lang=\"en\">\n"
    "<head>\n"
    "<meta charset=\"utf-8\">\n"
    "<meta http-equiv=\"Content-Security-Policy\" "
    "content=\"default-src 'none'; style-src 'unsafe-inline'\">\n"
    "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
    "<meta name=\"color-scheme\" content=\"light dark\">\n"
    "<title>Launch report</title>\n";

// A kind of cell: its class, its words, and how high it stands, so that colour is not all.
struct CellShape
{
    const char* name;
    const char* words;
    int top;
    int height;
};

const CellShape& ShapeOf(Cell cell)
{
    static constexpr std::array<CellShape, 5> kShapes = {
        {{"nothing", "not running", 5, 0},
         {"running", "running", 4, 3},
         {"end", "ended with status 0", 2, 6},
         {"crash", "ended otherwise", 0, 10},
         {"failed", "could not be started", 6, 4}}};
    return kShapes[static_cast<std::size_t>(cell)];
}

std::string Rectangle(const CellShape& shape, std::size_t x, std::size_t width)
{
    return "<rect class=\"" + std::string(shape.name) + "\" x=\"" + std::to_string(x) + "\" y=\"" +
           std::to_string(shape.top) + "\" width=\"" + std::to_string(width) + "\" height=\"" +
           std::to_string(shape.height) + "\"";
}

Milliseconds TimeAt(const Report& report, std::size_t cell)
{
    const double part = static_cast<double>(cell) / static_cast<double>(kCells);
    return *report.first +
           static_cast<Milliseconds>(part * static_cast<double>(*report.last - *report.first));
}

// The row in one sentence, for those who do not see it.
std::string BarLabel(const ItemReport& item)
{
    std::string label = ItemTitle(item) + ": now " + StateInWords(item.state) + ", " +
                        counted(item.ends, "end") + ", " + counted(item.restarts, "restart");
    for (const std::string& note : ItemNotes(item)) {
        label += "; " + note;
    }
    return label;
}

std::string Bar(const ItemReport& item, const Report& report)
{
    std::string svg = "<svg class=\"bar\" viewBox=\"0 0 " + std::to_string(kCells) +
                      " 10\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"" +
                      html(BarLabel(item)) + "\">\n";
    for (const Stretch& stretch : Stretches(Timeline(item, *report.first, *report.last, kCells))) {
        if (stretch.cell != Cell::kNothing) {
            const CellShape& shape = ShapeOf(stretch.cell);
            svg += Rectangle(shape, stretch.begin, stretch.end - stretch.begin) + "><title>" +
                   shape.words + ", " +
                   FormatRange(TimeAt(report, stretch.begin), TimeAt(report, stretch.end)) +
                   "</title></rect>\n";
        }
    }
    return svg + "</svg>\n";
}

std::string ItemId(std::size_t index)
{
    return "item-" + std::to_string(index);
}

std::string Legend()
{
    std::string list = "<ul class=\"legend soft\">\n";
    for (const Cell cell : {Cell::kRunning, Cell::kEnd, Cell::kCrash, Cell::kFailed}) {
        const CellShape& shape = ShapeOf(cell);
        list += "<li><svg viewBox=\"0 0 10 10\" aria-hidden=\"true\">" + Rectangle(shape, 0, 10) +
                "/></svg>" + shape.words + "</li>\n";
    }
    return list + "</ul>\n";
}

std::string TimelineSection(const Report& report)
{
    std::string section =
        "<section aria-labelledby=\"timeline\">\n<h2 id=\"timeline\">Timeline</h2>\n"
        "<div class=\"rows\">\n";
    for (std::size_t i = 0; i < report.items.size(); ++i) {
        section += "<div class=\"row\"><a href=\"#" + ItemId(i) + "\">" +
                   html(ItemTitle(report.items[i])) + "</a>\n" + Bar(report.items[i], report) +
                   "</div>\n";
    }
    return section + "<div class=\"axis soft\"><span>" + FormatForPeople(*report.first) +
           "</span><span>" + FormatForPeople(*report.last) + " UTC</span></div>\n" + Legend() +
           "</div>\n</section>\n";
}

std::string FigureList(const ItemReport& item)
{
    std::string list = "<dl>\n";
    for (const Figure& figure : FiguresOf(item)) {
        list += "<div><dt>" + figure.label + "</dt><dd><data class=\"" + figure.key +
                "\" value=\"" + figure.value + "\">" + figure.text + "</data></dd></div>\n";
    }
    return list + "</dl>\n";
}

std::string ItemCard(const ItemReport& item, std::size_t index)
{
    std::string card = "<article class=\"item\" id=\"" + ItemId(index) + "\">\n<h3>" +
                       html(ItemTitle(item)) + "</h3>\n";
    for (const std::string& note : ItemNotes(item)) {
        card += "<p class=\"alarm\">" + html(note) + "</p>\n";
    }
    card += FigureList(item);
    if (!item.ends_in_words.empty()) {
        card += "<p><span class=\"soft\">ended:</span> <span class=\"ended\">" +
                html(EndsOf(item)) + "</span></p>\n";
    }
    return card + "</article>\n";
}

std::string ItemsSection(const Report& report)
{
    std::string section =
        "<section aria-labelledby=\"items\">\n<h2 id=\"items\">Items</h2>\n"
        "<div class=\"items\">\n";
    for (std::size_t i = 0; i < report.items.size(); ++i) {
        section += ItemCard(report.items[i], i);
    }
    return section + "</div>\n</section>\n";
}

std::string LogSection(const Report& report, const std::string& level_file)
{
    std::string section =
        "<section aria-labelledby=\"log\">\n<h2 id=\"log\">The log</h2>\n"
        "<ul class=\"notes\">\n";
    for (const std::string& note : ReportNotes(report, level_file)) {
        section += "<li>" + html(note) + "</li>\n";
    }
    for (const LogFile& file : report.files) {
        if (file.error.empty()) {
            section += "<li class=\"soft\">" + html(file.path) + ", " + counted(file.size, "byte") +
                       "</li>\n";
        }
    }
    return section + "</ul>\n</section>\n";
}

}  // namespace

std::string ReportHtml(const Report& report, const std::string& level_file)
{
    std::string page = kHead;
    page += "<style>" + std::string(kReportStyle) + "</style>\n</head>\n<body>\n";
    page += "<a class=\"skip\" href=\"#items\">To the items</a>\n";
    page += "<header>\n<h1>Launch report</h1>\n<p class=\"soft\">" + html(ReportTitle(report)) +
            "</p>\n</header>\n<main>\n";
    if (!report.items.empty()) {
        page += TimelineSection(report) + ItemsSection(report);
    }
    return page + LogSection(report, level_file) + "</main>\n</body>\n</html>\n";
}

}  // namespace launchlist
