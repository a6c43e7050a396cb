// How many arguments there is room for.
#pragma once

namespace launchlist {

// Whether the vector of an item with `count` arguments fits the stack that a supervisor has at
// least, 512 KiB (macOS), less what else lies there. More may go well on systems with larger ones.
constexpr bool FitsStack(int count)
{
    constexpr int kPointerSize = 8;
    constexpr int kStack = 512 * 1024;
    constexpr int kElsewhere = 64 * 1024;
    return count <= (kStack - kElsewhere) / kPointerSize;
}

}  // namespace launchlist
