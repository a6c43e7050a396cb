// An item's history as a row of cells, for terminals and pages.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/launchlist/log/report_data.h"

namespace launchlist {

// What a cell shows is the worst that happened in its time, so the order counts.
enum class Cell
{
    kNothing,  // Not running, as far as the log tells.
    kRunning,
    kEnd,     // A run ended with exit status 0.
    kCrash,   // A run ended in another way.
    kFailed,  // The program could not be started.
};

// `count` cells for the time from `first` to `last`.
std::vector<Cell> Timeline(const ItemReport& item, Milliseconds first, Milliseconds last,
                           std::size_t count);

// Cells of a kind, side by side.
struct Stretch
{
    Cell cell = Cell::kNothing;
    std::size_t begin = 0;
    std::size_t end = 0;
};

std::vector<Stretch> Stretches(const std::vector<Cell>& cells);

}  // namespace launchlist
