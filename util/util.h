// Wildcards, path strings, encodings and other processes.
//
// Threads: every function may run on any thread, except `base64`, which returns a shared buffer.
// Errors:  allocation and length errors of the standard library pass through (`base64` returns null
//          instead). Each function says which other errors it reports.
// Text:    bytes for `std::string` and `char`, 32-bit code units for `std::wstring` and `wchar_t`.
#pragma once

#include <string>

// Whether all of `name` matches `expression`:
//
//     *   any run of characters              ?   any one character
//     <   any run up to the last dot         >   any one character except the last dot, where it
//     "   a dot or nothing                       matches nothing
//
// Every other character matches itself; there is no escape character. `ignore_case` folds the
// letters a to z, whatever the locale. Three rules are unusual; other components of the product
// were written against them:
// - `?` and `>` also match past the name's end. From there only a final `*` matches: "a?*" matches
//   "a", "a?" does not.
// - `<` at the start of a name without a dot matches nothing, so "<" does not match "abc". Later in
//   such a name it matches any run, so "a<" does.
// - `<` stops before the last dot: "<.b" matches "a.b", "<" does not.
// In the worst case the time grows exponentially with the number of stars. Neither argument may be
// null.
bool IsNameInExpression(const wchar_t* expression, const wchar_t* name, bool ignore_case);
bool IsNameInExpressionA(const char* expression, const char* name, bool ignore_case);

// The path functions edit text and never access the file system. remove_head_slashes and
// remove_tail_slashes treat a backslash as a slash; the others treat it as an ordinary character.

// `path`, with a "/" added if it does not end with one. The empty path gives "/".
std::string ensure_ends_with_divider(std::string path);

// `path` without the slashes and backslashes at its start, or at its end. A path that consists of
// them is returned unchanged.
std::string remove_head_slashes(std::string path);
std::string remove_tail_slashes(std::string path);

// `path` with every run of "/" replaced by a single one.
std::string remove_duplicated_slashes(std::string path);

// Applies remove_head_slashes to `path` and splits it at the first "/": the text before it is the
// container, the text after it the rest, which may begin with another slash. Without a "/" the
// whole path is the container. An empty `path` leaves `container` and `rest` unchanged.
void split_container_name(std::string path, std::string& container, std::string& rest);

// The text after the last "/": empty if `path` ends with one, all of `path` if it has none.
std::string get_file_name(std::string path);

// Convert all of `text`, NULs included, between UTF-8 and code points. U+FEFF is an ordinary
// character. Both throw std::range_error: s2ws with "wstring_convert: from_bytes error" for text
// that is not well-formed UTF-8, ws2s with "wstring_convert: to_bytes error" for a surrogate or a
// value above 0x10FFFF.
std::wstring s2ws(const std::string& text);
std::string ws2s(const std::wstring& text);

// A new random UUID as 36 characters, in the letter case of the system's uuid_unparse.
std::string NewUUID();

// The decimal digits of `value` read as octal digits: 755 gives 493, -17 gives -15. The digits 8
// and 9 keep their value: 18 gives 16.
int octalToDecimal(int value);

// The Base64 text of `length` bytes at `data`, without line breaks. Null if `data` is null,
// `length` is 0, memory is exhausted, or the text would not fit the address space. The function
// owns the text and frees it at its next call, whatever that call returns. One thread at a time.
// If one byte is left over at the end, the spare bits of its last character are 0011 instead of
// 0000: "a" gives "YT==". Decoders that ignore the spare bits decode every text.
char* base64(const unsigned char* data, unsigned long length);

// Runs the shell command `command` and returns everything it writes to standard output. The command
// inherits standard input and standard error; its exit status is lost. Output is read in pieces
// that end after a line feed or 127 bytes, and a NUL drops the rest of its piece. Never returns if
// reading fails without end of file. Throws std::runtime_error "popen() failed!" if the shell
// cannot be started.
std::string pexec(std::string command);

// Whether this process may signal process `pid`, which is cut to 32 bits. False for a process of
// another user; 0 means the caller's process group.
bool IsRunningPID(long long pid);
