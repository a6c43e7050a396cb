// The text of a record. docs/log-format.md has the grammar; record_reader.h reads it.
//
// Threads: every function may be called at any time, in a forked child too; no lock, no heap.
#pragma once

#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <string_view>

#include "qv7log/include/qv7log.h"
#include "qv7log/limits.h"
#include "qv7log/time_stamp.h"

namespace qv7log {

// Escaping makes at most this many bytes of one.
constexpr std::size_t kEscapedSize = 4;

// The space of everything in a record but its text: time, level, name, process id, the mark of a
// cut text, the blanks and brackets between them, the line end.
constexpr std::size_t kMaxFraming = kTimeStampSize + sizeof " -2147483648" +
                                    kMaxName * kEscapedSize + sizeof "[-2147483648] " +
                                    sizeof "\\<18446744073709551615 bytes cut>\n";

// What stands before a record's text. `name` is escaped already.
struct Heading
{
    timespec time;
    LOGLEVEL level;
    std::string_view name;
    pid_t process;
};

// Each Put writes at `out` and returns the end of what it wrote; nothing is terminated.

// Writes "2026-11-21T02:26:11.123Z ERROR    launcher[4711] ".
char* PutHeading(char* out, const Heading& heading);

// Writes `text` so that it is one line, drives no terminal, contains no time stamp and can be read
// back byte for byte. UTF-8 stays readable. Needs kEscapedSize bytes of space for each of `text`.
char* PutText(char* out, std::string_view text);

// As PutText; escapes blanks and brackets too, which end a name.
char* PutName(char* out, std::string_view name);

// Writes the mark of a text that lacks its last `bytes` bytes. No text can contain it.
char* PutCutMark(char* out, std::size_t bytes);

// The size of `text` without a UTF-8 character at its end that lacks bytes.
std::size_t SizeOfWholeCharacters(std::string_view text);

}  // namespace qv7log
