// An item's history as a row of cells, for terminals and pages.
#pragma once

#include <cstddef>
#include <map>
#include <vector>

#include "tools/launchlist/log/report.h"

namespace launchlist {

// A cell shows the gravest thing that happened in its time; later values are graver.
enum class Cell
{
    kUnknown,
    kDown,       // Not running for at least half of the time.
    kRunning,    // Running for a part of the time.
    kStop,       // Killed by its launcher.
    kMaybeStop,  // Killed by signal 9, perhaps by its launcher.
    kEnd,        // Exited with status 0.
    kCrash,      // Ended in another way.
    kFailed      // Could not be started.
};

constexpr std::size_t kCellKinds = 8;

struct TimelineCell
{
    Cell cell = Cell::kUnknown;
    Cell base = Cell::kUnknown;  // The same without the marks of single events.
    std::size_t stops = 0;
    std::size_t maybe_stops = 0;
    std::size_t failed = 0;
    std::map<Termination, std::size_t> causes;  // Of the other ends.

    // How many events of one kind, from kStop on.
    std::size_t CountOf(Cell kind) const;
};

// `count` cells for the time from `first` to `last`.
std::vector<TimelineCell> Timeline(const ItemReport& item, Milliseconds first, Milliseconds last,
                                   std::size_t count);

// Adjacent cells of one kind.
struct Stretch
{
    Cell cell = Cell::kUnknown;
    std::size_t begin = 0;
    std::size_t end = 0;
};

std::vector<Stretch> Stretches(const std::vector<Cell>& cells);

}  // namespace launchlist
