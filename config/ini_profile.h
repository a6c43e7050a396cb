// Reading one value from a small profile ("INI") file.
//
// The names and arguments are those of the Win32 profile functions; the rules are ours:
//
//     [LOG]            a section: brackets at both ends of the line, "[ log ]" is the same one
//     LEVEL=DEBUG      a key and its value, which ends at the next "="
//     LEVEL = DEBUG    another key, "LEVEL " with its blank: keys and values are not trimmed
//     LEVEL=           no value: passed over, the search goes on
//
// Section names and keys are compared without regard to the case of A to Z. Only the first section
// of a name is searched, up to the next line that begins with "[". There are no comments and no
// quotes. A line of more than 2,047 bytes counts as several, a NUL ends a line.
//
// Threads:   every function may be called from any thread; nothing is kept between calls.
// Errors:    none is reported; what is missing gives the default, as said per function.
// Ownership: the caller owns `buffer`.
// Units:     sizes are bytes and count the terminating NUL; text is 8-bit.
#pragma once

#include <cstdint>
#include <string>

// Copies the value, or else `default_value`, with a NUL into `buffer` and returns its length. A
// value that needs more than `size` bytes counts as missing; a default that does gives 0 and leaves
// `buffer` as it is. An empty value ("KEY==x") gives the default, too.
// A null `buffer` or a `size` of 0 gives 0 at once; a negative `size` puts no limit on the copy.
std::uint64_t GetPrivateProfileString(std::string section, std::string key,
                                      std::string default_value, char* buffer, std::int32_t size,
                                      std::string file);

// The value as `atoi` reads it, the int reinterpreted as unsigned ("-1" is 4294967295).
// `default_value` only where the file cannot be opened: a missing section or key gives 0.
std::uint32_t GetPrivateProfileInt(std::string section, std::string key,
                                   std::uint32_t default_value, std::string file);
