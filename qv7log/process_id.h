// The id of the calling process, without a system call.
#pragma once

#include <sys/types.h>

namespace qv7log {

// Registers fork handlers; the one for the child calls `in_child`. Must be called once, before
// ProcessId. Returns 0 or an errno.
int WatchForks(void (*in_child)());

// The result is correct at any time in a child made by fork(), also in fork handlers that run
// before or after ours.
pid_t ProcessId();

}  // namespace qv7log
