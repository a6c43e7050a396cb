// How many arguments there is room for.
#pragma once

#include <cstddef>

#include "launcher/supervision.h"

namespace launchlist {

// Whether the vector of an item with `count` arguments fits a supervisor's stack beside everything
// else there.
constexpr bool FitsStack(int count)
{
    constexpr std::size_t kPointerSize = 8;
    constexpr std::size_t kElsewhere = std::size_t{64} * 1024;
    return count <= static_cast<int>((kSupervisorStackSize - kElsewhere) / kPointerSize);
}

}  // namespace launchlist
