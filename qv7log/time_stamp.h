// Time stamps of records: UTC with milliseconds, "2026-11-21T02:26:11.123Z".
//
// The calendar is our own arithmetic. The system's (gmtime_r, localtime_r) takes a lock, which
// hangs a forked child if another thread held it at the fork.
#pragma once

#include <time.h>

#include <cstddef>

namespace qv7log {

constexpr std::size_t kTimeStampSize = 24;

// Writes kTimeStampSize characters at `out` and returns their end. A time outside the years 0000 to
// 9999 is written as the nearest one within.
char* PutTimeStamp(char* out, const timespec& time);

// Whether the kTimeStampSize characters at `text` have the form of a time stamp.
bool IsTimeStamp(const char* text);

}  // namespace qv7log
