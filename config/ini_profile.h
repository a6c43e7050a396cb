// Reads one value from a small profile ("INI") file.
//
// The names and arguments are those of the Win32 profile functions; the rules are ours:
//
//     [LOG]            a section: brackets at both ends of the line, "[ log ]" is the same one
//     LEVEL=DEBUG      a key and its value, which ends at the next "="
//     LEVEL = DEBUG    another key, "LEVEL " with its blank: keys and values are not trimmed
//     LEVEL=           no value: skipped, the search continues with the next line
//
// Section names and keys are not case-sensitive for A to Z. Only the first section with the name is
// searched, up to the next line that begins with "[". There is no syntax for comments or quoting. A
// line of more than 2,047 bytes counts as several lines, and a NUL ends a line.
//
// Threads:   every function may be called from any thread; nothing is kept between calls.
// Errors:    none is reported; each function says what it returns for a missing file, section, key.
// Ownership: the caller owns `buffer`.
// Units:     sizes are bytes and count the terminating NUL; text is 8-bit.
#pragma once

#include <cstdint>
#include <string>

// Copies the value, or `default_value` if there is none, with a NUL into `buffer` and returns its
// length. A value that needs more than `size` bytes counts as missing; a default that does gives 0
// and leaves `buffer` unchanged. An empty value ("KEY==x") also gives the default.
// A null `buffer` or a `size` of 0 gives 0. A negative `size` sets no limit: the caller must then
// provide room for any value, of up to 2,047 bytes, and for the default.
std::uint64_t GetPrivateProfileString(std::string section, std::string key,
                                      std::string default_value, char* buffer, std::int32_t size,
                                      std::string file);

// The value as `atoi` reads it, reinterpreted as unsigned ("-1" is 4294967295). Gives
// `default_value` only if the file cannot be opened: a missing section or key gives 0.
std::uint32_t GetPrivateProfileInt(std::string section, std::string key,
                                   std::uint32_t default_value, std::string file);
