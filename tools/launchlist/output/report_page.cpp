#include <algorithm>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/output/page_axis.h"
#include "tools/launchlist/output/page_script.h"
#include "tools/launchlist/output/page_style.h"
#include "tools/launchlist/output/report_formats.h"
#include "tools/launchlist/output/report_wording.h"
#include "tools/launchlist/output/timeline.h"
#include "util/string_util.h"

namespace launchlist {

// Also the beginning of every page.
const std::string_view kPageMark =
    "<!doctype html>\n"
    "<html lang=\"en\">\n"
    "<head>\n"
    "<meta charset=\"utf-8\">\n"
    "<meta name=\"generator\" content=\"launchlist report\">\n";

namespace {

constexpr std::size_t kMaxProblems = 20;
constexpr std::size_t kMaxLaunchers = 50;
constexpr std::size_t kNameWidth = 30;
// Longer names are cut even in their tooltips.
constexpr std::size_t kMaxName = 500;
// No further item is shown on a page of this size.
constexpr std::size_t kMaxPage = 900000;

// How finely a bar is divided.
struct Resolution
{
    std::size_t base;
    std::size_t marks;
};

// The policy repeats to the browser what the page contains: one style and one script, known by
// their hashes, and nothing else. A name that slipped through unescaped would still run nothing.
std::string Head()
{
    return std::string(kPageMark) +
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
           "'" +
           kReportStyleHash + "'; script-src '" + kReportScriptHash +
           "'\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta name=\"color-scheme\" content=\"light dark\">\n"
           "<title>Launch report</title>\n<style>" +
           kReportStyle + "</style>\n</head>\n<body>\n";
}

std::string LimitedName(const ItemReport& item)
{
    return Shortened(ItemTitle(item), kMaxName);
}

std::string NameLink(const ItemReport& item, const std::string& id)
{
    const std::string name = LimitedName(item);
    const std::string shown = Shortened(name, kNameWidth);
    const std::string title = shown == name ? "" : " title=\"" + html(name) + "\"";
    return "<a href=#" + id + title + ">" + html(shown) + "</a>";
}

// A kind of mark: its class, its words, and where it stands in the bar, so that kinds differ by
// more than colour. Marks rise from the bottom (`is_top` false) or hang from the top.
struct MarkShape
{
    Cell cell;
    const char* name;
    const char* words;
    bool is_top;
    int max_height;
};

constexpr MarkShape kMarks[] = {{Cell::kCrash, "x", "crashed", false, 12},
                                {Cell::kEnd, "e", "exited with status 0", true, 4},
                                {Cell::kFailed, "f", "could not be started", false, 7},
                                {Cell::kStop, "s", "killed by its launcher", true, 5},
                                {Cell::kMaybeStop, "k", "killed, perhaps at a stop", true, 5}};

// The number of digits of `count`, less one: 0 for 1 to 9, 1 for 10 to 99.
int OrderOfMagnitude(std::size_t count)
{
    int order = 0;
    for (; count >= 10; count /= 10) {
        ++order;
    }
    return order;
}

// Where many events of the kind fall into one cell, its mark is higher, by the order of magnitude.
std::string MarkPath(const MarkShape& shape, double x, std::size_t count)
{
    const double share = std::min(1.0, 0.4 + 0.2 * OrderOfMagnitude(count));
    const double height = shape.max_height * share;
    return string_format(shape.is_top ? "M%.0f 0v%.0f" : "M%.0f 12v-%.0f", x, height);
}

class Bar
{
public:
    Bar(const ItemReport& item, const Report& report, const Resolution& resolution)
        : m_item(item),
          m_base(Timeline(item, *report.first, *report.last, resolution.base)),
          m_cells(Timeline(item, *report.first, *report.last, resolution.marks))
    {
    }

    std::string Html() const
    {
        std::string svg =
            "<svg class=bar viewBox=\"0 0 480 12\" preserveAspectRatio=none tabindex=0 role=img "
            "aria-label=\"" +
            html(Label()) + "\"" + Data() + ">" + LinesOfAxis();
        svg += Presences();
        const double width = static_cast<double>(kBarWidth) / static_cast<double>(m_cells.size());
        for (const MarkShape& shape : kMarks) {
            std::string path;
            for (std::size_t i = 0; i < m_cells.size(); ++i) {
                if (m_cells[i].cell == shape.cell) {
                    path += MarkPath(shape, (static_cast<double>(i) + 0.5) * width,
                                     m_cells[i].CountOf(shape.cell));
                }
            }
            if (!path.empty()) {
                svg += "<path class=" + std::string(shape.name) +
                       " stroke-width=" + string_format("%.1f", std::min(width * 0.8, 4.0)) +
                       " d=\"" + path + "\"/>";
            }
        }
        return svg + "</svg>\n";
    }

private:
    // The bar in one sentence, for those who do not see it.
    std::string Label() const
    {
        return std::string("timeline: at the end ") + NameOf(m_item.state) + ", " +
               std::to_string(m_item.crashes) + (m_item.crashes == 1 ? " crash, " : " crashes, ") +
               counted(m_item.restarts, "restart");
    }

    // What the script shows: the words of the causes, and for each cell how often each occurred,
    // then the stops (s), possible stops (k) and failed starts (f).
    std::string Data() const
    {
        std::vector<Termination> causes;
        std::string marks;
        std::size_t separators = 0;
        for (const TimelineCell& cell : m_cells) {
            const std::string counts = Counts(cell, causes);
            if (!counts.empty()) {
                marks += std::string(separators, ';') + counts;
                separators = 0;
            }
            ++separators;
        }
        if (marks.empty()) {
            return "";
        }
        std::string words;
        for (const Termination& cause : causes) {
            words += (words.empty() ? "" : "|") + TextOf(cause);
        }
        return " data-n=" + std::to_string(m_cells.size()) + " data-c=\"" + html(words) +
               "\" data-m=\"" + marks + "\"";
    }

    // The counts of one cell; notes new causes.
    static std::string Counts(const TimelineCell& cell, std::vector<Termination>& causes)
    {
        std::vector<std::size_t> counts(causes.size());
        for (const auto& [cause, count] : cell.causes) {
            const auto found = std::find(causes.begin(), causes.end(), cause);
            if (found == causes.end()) {
                causes.push_back(cause);
                counts.push_back(count);
            } else {
                counts[static_cast<std::size_t>(found - causes.begin())] = count;
            }
        }
        std::string text;
        std::size_t separators = 0;
        for (const std::size_t count : counts) {
            if (count > 0) {
                text += std::string(separators, ',') + std::to_string(count);
                separators = 0;
            }
            ++separators;
        }
        const auto add = [&text](char kind, std::size_t count) {
            text += count > 0 ? "," + std::string(1, kind) + std::to_string(count) : std::string();
        };
        add('s', cell.stops);
        add('k', cell.maybe_stops);
        add('f', cell.failed);
        return text;
    }

    std::string Presences() const
    {
        std::vector<Cell> kinds;
        for (const TimelineCell& cell : m_base) {
            kinds.push_back(cell.base);
        }
        std::string running;
        std::string unknown;
        const double unit = static_cast<double>(kBarWidth) / static_cast<double>(kinds.size());
        for (const Stretch& stretch : Stretches(kinds)) {
            const double x = static_cast<double>(stretch.begin) * unit;
            const double width = static_cast<double>(stretch.end - stretch.begin) * unit;
            if (stretch.cell == Cell::kRunning) {
                running += string_format("M%.0f 6h%.0fv3h-%.0fz", x, width, width);
            } else if (stretch.cell == Cell::kUnknown) {
                unknown += string_format("M%.0f 7.5h%.0f", x, width);
            }
        }
        return (running.empty() ? "" : "<path class=\"r\" d=\"" + running + "\"/>") +
               (unknown.empty() ? "" : "<path class=\"u\" d=\"" + unknown + "\"/>");
    }

    const ItemReport& m_item;
    const std::vector<TimelineCell> m_base;
    const std::vector<TimelineCell> m_cells;
};

class Page
{
public:
    Page(const Report& report, const std::string& level_file)
        : m_report(report), m_level_file(level_file), m_items(WorstFirst(report))
    {
        const auto is_healthy = [](const ItemReport* item) {
            return item->severity == ItemSeverity::kHealthy;
        };
        m_bad = static_cast<std::size_t>(std::find_if(m_items.begin(), m_items.end(), is_healthy) -
                                         m_items.begin());
        const auto has_marks = [](const ItemReport* item) {
            return item->ends + item->failed_starts > 2;
        };
        const auto marked = std::count_if(m_items.begin(), m_items.end(), has_marks);
        m_is_crowded = marked > 100;
        m_resolution = marked <= 30    ? Resolution{240, 120}
                       : marked <= 100 ? Resolution{120, 40}
                                       : Resolution{96, 14};
    }

    std::string Html() const
    {
        std::string page = Head() + "<a class=\"skip\" href=\"#items\">Skip to the items</a>\n";
        page += "<header>\n<h1>Launch report</h1>\n<p class=\"soft\">" +
                html(ReportTitle(m_report)) + "</p>\n</header>\n";
        page += m_report.first ? "<main data-from=\"" + std::to_string(*m_report.first) +
                                     "\" data-to=\"" + std::to_string(*m_report.last) + "\">\n"
                               : "<main>\n";
        if (m_report.first) {
            page += Summary();
        }
        page += Launchers();
        if (!m_items.empty()) {
            AddItems(page);
        }
        page += Log() + "</main>\n";
        return page + "<div id=\"tip\" role=\"status\" hidden></div>\n<script>" + kReportScript +
               "</script>\n</body>\n</html>\n";
    }

private:
    static std::string Id(std::size_t index) { return "i" + std::to_string(index); }

    static std::string Heading(const char* id, const char* text)
    {
        return std::string("<section aria-labelledby=\"") + id + "\">\n<h2 id=\"" + id + "\">" +
               text + "</h2>\n";
    }

    std::string Summary() const
    {
        std::string section = Heading("summary", "Problems");
        const std::vector<std::string> problems = LauncherProblems(m_report);
        if (m_bad == 0 && problems.empty()) {
            return section + "<p>No problems found.</p>\n</section>\n";
        }
        section += "<ol class=\"worst\">\n";
        for (const std::string& problem : problems) {
            section += "<li class=\"troubled\">" + html(problem) + "</li>\n";
        }
        for (std::size_t i = 0; i < std::min(m_bad, kMaxProblems); ++i) {
            const ItemReport& item = *m_items[i];
            const std::vector<std::string> notes = ItemNotes(item);
            section += "<li class=\"" + std::string(NameOf(item.severity)) + "\">" + Tag(item) +
                       " " + NameLink(item, Id(i)) + " " +
                       html(notes.empty() ? "" : notes.front()) + "</li>\n";
        }
        if (m_bad > kMaxProblems) {
            section += "<li>" + std::to_string(m_bad - kMaxProblems) + " more below</li>\n";
        }
        return section + "</ol>\n</section>\n";
    }

    static std::string Tag(const ItemReport& item)
    {
        return std::string("<span class=tag>") + NameOf(item.severity) + "</span>";
    }

    std::string Launchers() const
    {
        const std::vector<const Launcher*> launchers = LaunchersOf(m_report);
        if (launchers.empty()) {
            return "";
        }
        const std::size_t omitted = launchers.size() - std::min(launchers.size(), kMaxLaunchers);
        std::string section = Heading("launchers", "Launchers") + "<ul class=\"notes\">\n";
        if (omitted > 0) {
            section += "<li>" + counted(omitted, "earlier launcher") + " not shown</li>\n";
        }
        for (std::size_t i = omitted; i < launchers.size(); ++i) {
            section += "<li>" + html(LauncherText(*launchers[i])) + "</li>\n";
        }
        return section + "</ul>\n</section>\n";
    }

    void AddItems(std::string& page) const
    {
        page += Heading("items", "Items") + Tools() + PageAxis(m_report);
        std::size_t shown = 0;
        if (m_bad > 0) {
            page += "<div class=\"items\">\n";
            while (shown < m_bad && page.size() < kMaxPage) {
                page += Entry(shown++);
            }
            page += "</div>\n";
        }
        if (shown == m_bad && m_bad < m_items.size()) {
            page += "<details id=\"healthy\"" + std::string(m_bad == 0 ? " open" : "") +
                    "><summary>" + counted(m_items.size() - m_bad, "healthy item") +
                    "</summary>\n<div class=\"items\">\n";
            while (shown < m_items.size() && page.size() < kMaxPage) {
                page += Entry(shown++);
            }
            page += "</div>\n</details>\n";
        }
        if (shown < m_items.size()) {
            page += "<p>" + counted(m_items.size() - shown, "more item") +
                    " not shown, none of them worse. <code>launchlist report --json</code> has "
                    "all.</p>\n";
        }
        page += Legend() + "</section>\n";
    }

    // Hidden until the script runs, because it does nothing without it.
    static std::string Tools()
    {
        return "<div id=\"tools\" hidden><label>Search <input id=\"search\" "
               "type=\"search\"></label>"
               "<label>Sort by <select id=\"sort\"><option value=\"worst\">severity</option>"
               "<option value=\"name\">name</option><option value=\"crashes\">crashes</option>"
               "<option value=\"restarts\">restarts</option>"
               "<option value=\"median\">shortest median run</option></select></label>"
               "<span id=\"found\" class=\"soft\" role=\"status\"></span></div>\n";
    }

    std::string Entry(std::size_t index) const
    {
        const ItemReport& item = *m_items[index];
        std::string entry = "<article class=\"item " + std::string(NameOf(item.severity)) +
                            "\" id=" + Id(index) + ">\n<h3>" + NameLink(item, Id(index)) + " " +
                            Tag(item) + "</h3>\n" + Bar(item, m_report, m_resolution).Html();
        // A crowded page shows only the gravest.
        for (const std::string& note : ItemNotes(item)) {
            entry += "<p class=alarm>" + html(note) + "</p>\n";
            if (m_is_crowded) {
                break;
            }
        }
        entry += "<ul class=figures>";
        for (const Figure& figure : FiguresOf(item)) {
            entry += "<li>" + figure.label + " <data value=" + figure.value + ">" + figure.text +
                     "</data>";
        }
        entry += "</ul>\n";
        const std::string ends = EndsOf(item);
        if (!ends.empty()) {
            entry += "<p class=ended>ended: " + html(ends) + "</p>\n";
        }
        return entry + "</article>\n";
    }

    static std::string Legend()
    {
        const auto entry = [](const std::string& drawing, const std::string& words) {
            return "<li><svg viewBox=\"0 0 12 12\" aria-hidden=\"true\">" + drawing + "</svg>" +
                   words + "</li>\n";
        };
        std::string list = "<ul class=\"legend soft\">\n";
        list += entry("<path class=\"r\" d=\"M0 6h12v3h-12z\"/>", "running");
        list += entry("<path class=\"u\" d=\"M0 7.5h12\"/>", "unknown");
        list += entry("", "not running");
        for (const MarkShape& shape : kMarks) {
            list += entry("<path class=\"" + std::string(shape.name) +
                              "\" stroke-width=\"4\" d=\"" + MarkPath(shape, 6, 1000) + "\"/>",
                          shape.words);
        }
        return list +
               "<li>height of a mark: 1, 10, 100 or 1,000 events and more</li>\n"
               "<li>\u25b6 first record of a launcher</li>\n"
               "<li>\u25a0 last record of a launcher that ended</li>\n</ul>\n";
    }

    std::string Log() const
    {
        std::string section = Heading("log", "Log") + "<ul class=\"notes\">\n";
        for (const std::string& note : ReportNotes(m_report, m_level_file)) {
            section += "<li>" + html(note) + "</li>\n";
        }
        for (const LogFile& file : m_report.files) {
            if (file.error.empty()) {
                section += "<li class=\"soft\">" + html(file.path) + ", " +
                           counted(file.size, "byte") + "</li>\n";
            }
        }
        return section + "</ul>\n</section>\n";
    }

    const Report& m_report;
    const std::string& m_level_file;
    const std::vector<const ItemReport*> m_items;
    std::size_t m_bad = 0;
    bool m_is_crowded = false;
    Resolution m_resolution = {};
};

}  // namespace

std::string ReportHtml(const Report& report, const std::string& level_file)
{
    return Page(report, level_file).Html();
}

}  // namespace launchlist
