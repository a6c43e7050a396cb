// The limits of the log. Tests lower them at build time.
#pragma once

#include <cstddef>
#include <cstdint>

#ifndef QV7LOG_ROTATE_SIZE
#define QV7LOG_ROTATE_SIZE (10 * 1024 * 1024)
#endif
#ifndef QV7LOG_OLD_FILES
#define QV7LOG_OLD_FILES 5
#endif

namespace qv7log {

// A log of at least this many bytes is rotated.
constexpr std::int64_t kRotateSize = QV7LOG_ROTATE_SIZE;

// The number of old files that are kept. "qv7log.1" is the newest.
constexpr int kOldFiles = QV7LOG_OLD_FILES;

// The maximum size of a text before it is escaped; a longer one is cut.
constexpr std::size_t kMaxText = 64 * 1024;

// A record whose line fits into this many bytes does not use the heap. If anything in its text has
// to be escaped, the line needs room for four bytes for each byte of the text.
constexpr std::size_t kStackLine = 2048;

// The maximum size of a program name before it is escaped; a longer one is cut.
constexpr std::size_t kMaxName = 64;

}  // namespace qv7log
