// The figures of one item, computed from its runs.
#pragma once

#include <vector>

#include "tools/launchlist/log/report.h"

namespace launchlist {

// A part of the report's time in which an item was certainly running, or certainly not.
struct KnownPeriod
{
    Milliseconds from = 0;
    Milliseconds to = 0;
    bool is_running = false;
};

// The parts between `first` and `last` for which one of the two is known, in order and without
// overlap. If two launchers supervise items of the same name, the item counts as running while
// either runs it.
std::vector<KnownPeriod> KnownPeriodsOf(const ItemReport& item, Milliseconds first,
                                        Milliseconds last);

// Fills in the figures of `item` for the time from `first` to `last`, and drops the runs outside.
void Summarize(ItemReport& item, Milliseconds first, Milliseconds last);

}  // namespace launchlist
