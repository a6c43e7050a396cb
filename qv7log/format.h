// printf-style formatting for the log path.
//
// vsnprintf is not used for the whole text, because parts of it take the lock of the C library's
// locale (%m, %ls, %lc in glibc). A child forked while another thread is inside setlocale() would
// hang there. It is also slower than the conversions below.
//
// Supported are the conversions of C17 except %n, %ls and %lc, the flag ' (%'d), and %m, which is
// the English description of an error number. Every other conversion makes a text unformattable,
// for example an argument selected by position (%1$d), or a length that C17 does not define for the
// conversion (%Ld): the type of the argument would be unknown. A width above kMaxWidth counts as
// kMaxWidth, and so does the precision of a number: otherwise a wrong argument for %*d could block
// the caller for a minute.
//
// Threads: every function may be called at any time, also in a forked child. None takes a lock or
//          uses the heap, except that the C library may do so for a floating-point number.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace qv7log {

constexpr std::size_t kMaxWidth = 64 * 1024;

// The result of FormatText for a format that is not supported.
constexpr std::size_t kUnformattable = static_cast<std::size_t>(-1);

// Formats `arguments` and returns the size of the whole text. Writes at most its first `space` - 1
// bytes at `out`, where `space` bytes must be available, without a NUL after them. `error` is the
// error number that %m describes.
std::size_t FormatText(char* out, std::size_t space, const char* format, va_list arguments,
                       int error) __attribute__((format(printf, 3, 0)));

}  // namespace qv7log
