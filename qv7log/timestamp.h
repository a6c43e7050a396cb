// Timestamps of records: UTC with milliseconds, "2026-11-21T02:26:11.123Z".
#pragma once

#include <time.h>

#include "qv7log/record_format.h"

namespace qv7log {

// Writes kTimestampSize characters at `out` and returns their end. A time outside the years 0000 to
// 9999 is written as the nearest time inside them.
char* PutTimestamp(char* out, const timespec& time);

// Whether the kTimestampSize characters at `text` have the form of a timestamp.
bool IsTimestamp(const char* text);

}  // namespace qv7log
