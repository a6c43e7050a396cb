// Wildcards, path strings, encodings and other processes.
//
// Threads: every function may run on any thread, except `base64`, which hands out one buffer.
// Errors:  allocation and length failures of the standard library pass through (`base64` gives null
//          instead); what else can fail is said per function.
// Text:    bytes for `std::string` and `char`, 32-bit code units for `std::wstring` and `wchar_t`.
#pragma once

#include <string>

// Whether the whole of `name` matches `expression`:
//
//     *   any run of characters              ?   any one character
//     <   any run up to the last dot         >   any one character, but a dot only before another
//     "   a dot or nothing                       dot; a last dot stays for the rest
//
// Everything else stands for itself; there is no escape character. `ignore_case` folds the letters
// a to z, whatever the locale is. Three things surprise, and are meant:
// - `?` and `>` also step past the name's end. From there only a final `*` matches: "a?*" matches
//   "a", "a?" does not.
// - `<` at the start of a name without a dot matches nothing, so "<" does not match "abc"; further
//   on in such a name it matches any run, so "a<" does.
// - `<` stops before the last dot: "<.b" matches "a.b", "<" does not.
// The time grows exponentially with the number of stars in the worst case. Neither text may be
// null.
bool IsNameInExpression(const wchar_t* expression, const wchar_t* name, bool ignore_case);
bool IsNameInExpressionA(const char* expression, const char* name, bool ignore_case);

// Path strings are only text: the file system is never asked. A backslash is a slash to
// remove_head_slashes and remove_tail_slashes, and an ordinary character to the rest.

// `path` with a "/" at its end: one is added where there is none, also to the empty path.
std::string ensure_ends_with_divider(std::string path);

// `path` without the slashes and backslashes at its start, or at its end. A path of nothing else is
// returned as it is.
std::string remove_head_slashes(std::string path);
std::string remove_tail_slashes(std::string path);

// `path` with every run of "/" made a single one.
std::string remove_duplicated_slashes(std::string path);

// Cuts `path`, after remove_head_slashes, at its first "/" into the container before and the rest
// behind it; without one all of it is the container. The rest keeps a second slash. An empty `path`
// leaves `container` and `rest` as they are.
void split_container_name(std::string path, std::string& container, std::string& rest);

// What is behind the last "/": nothing if `path` ends with one, all of it if there is none.
std::string get_file_name(std::string path);

// From UTF-8 to code points and back: all of `text`, NULs included. U+FEFF is a character like any
// other. Throw std::range_error, s2ws "wstring_convert: from_bytes error" for text that is not
// well-formed UTF-8, ws2s "wstring_convert: to_bytes error" for a surrogate or a value above
// 0x10FFFF.
std::wstring s2ws(const std::string& text);
std::string ws2s(const std::wstring& text);

// A new random UUID as 36 characters, in the letter case of the system's uuid_unparse.
std::string NewUUID();

// The decimal digits of `value` read as octal ones: 755 gives 493, -17 gives -15. The digits 8 and
// 9 count as what they are: 18 gives 16.
int octalToDecimal(int value);

// The Base64 text of `length` bytes at `data`, without line breaks; null when `data` is null,
// `length` is 0 or memory is exhausted. The text belongs to the function and lives until its next
// call, whatever that one returns. Not for two threads at once.
// A single byte left over at the end leaves spare bits behind, and these are 0011 here, not 0000:
// "a" gives "YT==". Decoders that ignore them read every text back.
char* base64(const unsigned char* data, unsigned long length);

// What the shell command `command` writes to its standard output, until it closes it. Standard
// input and error are the caller's; the exit status is lost. Reads in pieces that end after a line
// feed or 127 bytes; a NUL loses the rest of its piece. Throws std::runtime_error
// "popen() failed!" when the shell cannot be started.
std::string pexec(std::string command);

// Whether this process may signal process `pid`, of which the low 32 bits count. A process of
// another user reads as not running; 0 is the caller's own process group.
bool IsRunningPID(long long pid);
