// The text of a record. docs/log-format.md has the grammar; record_reader.h reads it.
//
// Threads: every function may be called at any time, also in a forked child. None takes a lock or
//          uses the heap.
#pragma once

#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <string_view>

#include "qv7log/include/qv7log.h"
#include "qv7log/limits.h"
#include "qv7log/record_format.h"

namespace qv7log {

// Escaping turns one byte into at most this many.
constexpr std::size_t kEscapedSize = 4;

// The maximum size of a record without its text: the timestamp, level, name, process id and mark of
// a cut text, the blanks and brackets between them, and the line end.
constexpr std::size_t kMaxFraming =
    kTimestampSize + sizeof " -2147483648" + kMaxName * kEscapedSize + sizeof "[-2147483648] " +
    kCutMarkBegin.size() + sizeof "18446744073709551615\n" + kCutMarkEnd.size();

// What precedes the text of a record. `name` is already escaped.
struct Heading
{
    timespec time;
    LOGLEVEL level;
    std::string_view name;
    pid_t process;
};

// Each Put function writes at `out` and returns the end of what it wrote, without a NUL.

// Writes "2026-11-21T02:26:11.123Z ERROR    launcher[4711] ".
char* PutHeading(char* out, const Heading& heading);

// Writes `text` as a single line without control characters and without a timestamp, from which the
// reader restores it byte for byte. Printable UTF-8 stays as it is. The caller must provide
// kEscapedSize bytes for each byte of `text`.
//
// `text` may be in the same buffer as `out`, if it ends where that space ends.
char* PutText(char* out, std::string_view text);

// True only if PutText would write `text` unchanged. May be false although PutText would: this
// examines single bytes, eight at a time, and knows nothing about the characters that they form.
bool IsPlain(std::string_view text);

// Like PutText, but also escapes blanks and brackets, which would end the name.
char* PutName(char* out, std::string_view name);

// Writes the mark of a text whose last `bytes` bytes were cut off. No escaped text contains it.
char* PutCutMark(char* out, std::size_t bytes);

// The size of `text` without an incomplete UTF-8 character at its end.
std::size_t SizeOfWholeCharacters(std::string_view text);

}  // namespace qv7log
