// The time axis of the page: ticks at round times, and where launchers begin and end.
#pragma once

#include <string>
#include <vector>

#include "tools/launchlist/log/report.h"

namespace launchlist {

// How wide a bar is, in the units of its drawing.
constexpr int kBarWidth = 480;
constexpr int kBarHeight = 12;

// Round times between `first` and `last`; at most nine.
std::vector<Milliseconds> TicksOf(Milliseconds first, Milliseconds last);

// The axis as an element, with the lines that each bar shows through LinesOfAxis.
std::string PageAxis(const Report& report);
std::string LinesOfAxis();

}  // namespace launchlist
