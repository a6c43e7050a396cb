// The sizes of the log. Tests lower them at build time.
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

// A log that has reached this many bytes becomes an old file.
constexpr std::int64_t kRotateSize = QV7LOG_ROTATE_SIZE;

// So many old files are kept: "qv7log.1" is the newest of them.
constexpr int kOldFiles = QV7LOG_OLD_FILES;

// A text longer than this, counted before it is escaped, is cut.
constexpr std::size_t kMaxText = 64 * 1024;

// A record with a text shorter than this needs no heap: its 10 KiB fit on any thread's stack.
constexpr std::size_t kStackText = 2048;

// A program name longer than this is cut.
constexpr std::size_t kMaxName = 64;

}  // namespace qv7log
