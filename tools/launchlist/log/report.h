// Reading logs into a report.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/launchlist/log/log_time.h"
#include "tools/launchlist/log/report_data.h"

namespace launchlist {

struct ReportRange
{
    std::optional<Milliseconds> since;
    std::optional<Milliseconds> until;
};

// Reports on the logs at `paths` as though they held only the records within `range`.
Report MakeReport(const std::vector<std::string>& paths, const ReportRange& range);

}  // namespace launchlist
