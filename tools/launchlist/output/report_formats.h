// What `report` prints and writes.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "tools/launchlist/log/report.h"

namespace launchlist {

// Where a report is printed.
struct Terminal
{
    std::optional<std::size_t> width;  // Nothing if the output is not a terminal.
    bool color = false;
};

// `level_file` is the file that sets the level of the launcher that wrote the log; "" if it is not
// known.
std::string ReportText(const Report& report, const std::string& level_file, Terminal terminal);

// Passes the JSON to `write` in pieces, because a report may have very many items.
void WriteReportJson(const Report& report, const std::function<void(std::string_view)>& write);
std::string ReportJson(const Report& report);

// A page that needs no other file: no font, no picture, and one script, which only sorts, searches
// and shows details.
std::string ReportHtml(const Report& report, const std::string& level_file);

// A file that begins with this is such a page.
extern const std::string_view kPageMark;

// The runs as complete events of a Chrome trace, a track for each item.
std::string ReportTrace(const Report& report);

// A file that begins with this is such a trace.
extern const std::string_view kTraceMark;

}  // namespace launchlist
