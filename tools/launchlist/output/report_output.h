// What `report` prints and writes.
#pragma once

#include <string>
#include <vector>

#include "tools/launchlist/log/report_data.h"

namespace launchlist {

// How a terminal shows a report.
struct Terminal
{
    std::size_t width = 80;
    bool color = false;
};

std::string ReportText(const Report& report, const std::string& level_file, Terminal terminal);
std::string ReportJson(const Report& report);

// One page that needs nothing but itself: no script, no font, no picture from elsewhere.
std::string ReportHtml(const Report& report, const std::string& level_file);

// The rest is shared by the text and the page. All of it is printable.

std::string ReportTitle(const Report& report);
std::string ItemTitle(const ItemReport& item);
const char* StateInWords(State state);

// One figure of an item.
struct Figure
{
    std::string label;  // For people.
    std::string key;    // As in the JSON.
    std::string text;   // For people; "unknown" where the log does not tell, "-" where nothing is.
    std::string value;  // As in the JSON, or "null".
};

std::vector<Figure> FiguresOf(const ItemReport& item);

// What is to be said about the log, in sentences. `level_file` is where its level is set.
std::vector<std::string> ReportNotes(const Report& report, const std::string& level_file);

// What is wrong with the item, in sentences; none when nothing is.
std::vector<std::string> ItemNotes(const ItemReport& item);

// "exit status 3 (12 times), killed by SIGKILL (once)".
std::string EndsOf(const ItemReport& item);

}  // namespace launchlist
