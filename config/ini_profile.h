// Reads one value from a small profile ("INI") file.
//
// The names and arguments are those of the Win32 profile functions; the rules are ours:
//
//     [LOG]            a section: brackets at both ends of the line, "[ log ]" means the same
//     LEVEL=DEBUG      a key and its value, which ends at the next "="
//     LEVEL = DEBUG    another key, "LEVEL ", and the value " DEBUG": only the ends of a line are
//                      trimmed
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

// Copies the value with a NUL into `buffer` and returns its length. Uses `default_value` instead if
// there is no value, if it is empty ("KEY==x"), or if it needs more than `size` bytes. If the
// default needs more as well, returns 0 and leaves `buffer` unchanged.
//
// Returns 0 for a null `buffer` or a `size` of 0. A negative `size` sets no limit: the caller must
// then provide 2,047 bytes, which are enough for any value, or more if the default needs more.
std::uint64_t GetPrivateProfileString(std::string section, std::string key,
                                      std::string default_value, char* buffer, std::int32_t size,
                                      std::string file);

// The value as `atoi` reads it, reinterpreted as unsigned ("-1" is 4294967295). Gives
// `default_value` only if the file cannot be opened: a missing section or key gives 0.
std::uint32_t GetPrivateProfileInt(std::string section, std::string key,
                                   std::uint32_t default_value, std::string file);
