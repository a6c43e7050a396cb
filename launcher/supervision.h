// Figures of supervision that other sources rely on.
#pragma once

#include <chrono>
#include <cstddef>

// How long a supervisor waits between the end of its child and the next start.
inline constexpr std::chrono::milliseconds kRestartPause(50);

// The stack of a supervisor thread: the system's default on macOS, set at start-up on Linux. The
// argument vector of an item lives on it, so its size limits "argc".
inline constexpr std::size_t kSupervisorStackSize = std::size_t{512} * 1024;
