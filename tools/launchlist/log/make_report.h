// Reading logs into a report.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/launchlist/log/log_time.h"
#include "tools/launchlist/log/report.h"

namespace launchlist {

struct ReportRange
{
    std::optional<Milliseconds> since;
    std::optional<Milliseconds> until;
    // When the logs are read. If a log ends at least a second earlier, nothing followed its last
    // record.
    Milliseconds now = 0;
};

// What a report is about, besides its time.
struct ReportFilter
{
    // Of items, as they are or as they are printed; empty: all. Otherwise, launchers are shown that
    // wrote about one of them, and records that may be missing; nothing else concerns these items.
    std::vector<std::string> names;
    std::optional<std::int64_t> launcher;  // A process id. Its records and the time of them.
};

// Reports on the logs at `paths`. All records are read, so that a run which began before the range
// is known in it; what is counted and shown lies within the range.
Report MakeReport(const std::vector<std::string>& paths, const ReportRange& range,
                  const ReportFilter& filter = {});

}  // namespace launchlist
