// Constants of supervision that launchlist and the platform files use as well.
#pragma once

#include <chrono>
#include <cstddef>

// How long a supervisor waits between the end of its child and the next start.
inline constexpr std::chrono::milliseconds kRestartPause(50);

// The size of a supervisor thread's stack in bytes. On macOS it is the system's default; on Linux,
// where that is 8 MiB, the launcher sets it at start-up, except in builds with sanitizers that need
// more. The argument vector of an item lives on the stack, so its size limits "argc".
inline constexpr std::size_t kSupervisorStackSize = std::size_t{512} * 1024;
