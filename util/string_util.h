// Splits, trims, edits and formats strings.
//
// Threads: every function may run on any thread; results depend on the arguments only.
// Errors:  allocation and length errors of the standard library pass through. Each function says
//          which other errors it reports.
// Text:    bytes for `std::string`, 32-bit code units for `std::wstring`; both forms of a function
//          follow the same rules.
#pragma once

#include <functional>
#include <regex>
#include <string>
#include <vector>

// Called once per token, in order, with the token as a modifiable string; its result is stored. An
// empty function throws std::bad_function_call at the first token.
using TokenTransform = std::function<std::string(std::string&)>;
using WideTokenTransform = std::function<std::wstring(std::wstring&)>;

// The pieces of `text` between the matches of `separator`. A leading separator gives a leading
// empty piece and adjacent ones give an empty piece between them, but a trailing one gives none.
// Text without a match, the empty text included, is the only piece.
// A separator should match few characters at a time: libstdc++ matches a repetition recursively, so
// "/+" overflows a stack of 8 MiB at a run of about 30,000 separators.
std::vector<std::string> split(const std::string& text, const std::regex& separator);
std::vector<std::wstring> split(const std::wstring& text, const std::wregex& separator);

// The runs of `text` without any character of the set `delimiters`, transformed. No token is empty:
// text made only of delimiters gives an empty vector.
std::vector<std::string> split_delim(const std::string& text, const std::string& delimiters,
                                     TokenTransform transform);
std::vector<std::wstring> split_delim(const std::wstring& text, const std::wstring& delimiters,
                                      WideTokenTransform transform);

// The lines of `text`, with `delimiter` as the end of a line, transformed. Keeps leading and
// interior empty tokens. One trailing delimiter gives no empty token, and the empty text gives
// none.
std::vector<std::string> tokenize(const std::string& text, char delimiter,
                                  TokenTransform transform);
std::vector<std::wstring> tokenize(const std::wstring& text, wchar_t delimiter,
                                   WideTokenTransform transform);

// The pieces of `text` between the exact occurrences of `delimiter`, transformed. Keeps every
// empty token, a trailing one included. `delimiter` must not be empty: the call would append empty
// tokens until memory is exhausted. Deliberately unchecked: other components of the product were
// written against results that end with the rest of the text, and a check would have none to give.
std::vector<std::string> tokenize(const std::string& text, std::string delimiter,
                                  TokenTransform transform);
std::vector<std::wstring> tokenize(const std::wstring& text, std::wstring delimiter,
                                   WideTokenTransform transform);

// Removes the white space of the classic "C" locale (space, \t, \n, \v, \f, \r) at both ends of
// `text`, whatever the process locale is, and returns `text`. Bytes from 0x80 up are kept.
std::string& trim(std::string& text);

// Whether the last bytes of `text` are `suffix` (case-sensitive).
bool ends_with(const std::string& text, const std::string& suffix);

// Replaces `pattern` by `replacement` in `text`, from left to right. After a replacement the search
// continues one *pattern* length further on, not one replacement length: after a shorter
// replacement some occurrences remain, and inside a longer one the pattern is replaced again. Other
// components of the product were written against this rule, and the usual one would change their
// texts. The call never returns for an empty `pattern`, nor for a `replacement` that contains
// `pattern` at an offset of the pattern's length or more. Callers must not pass these; nothing
// checks it.
void replace_all(std::string& text, const std::string& pattern, const std::string& replacement);
void replace_all(std::wstring& text, const std::wstring& pattern, const std::wstring& replacement);

namespace string_format_detail {
std::string FormatText(const char* format, ...);
}

// `format` and its arguments as formatted by vsnprintf, up to the first NUL of the result. The
// arguments are read twice, so they must be plain values. A format that vsnprintf rejects gives the
// empty text. Throws std::bad_alloc if the size with the terminating NUL exceeds INT_MAX.
template <typename... Arguments>
std::string string_format(std::string format, Arguments... arguments)
{
    return string_format_detail::FormatText(format.c_str(), arguments...);
}
