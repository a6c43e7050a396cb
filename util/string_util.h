// Cutting, trimming, editing and formatting strings.
//
// Threads: every function is a pure function of its arguments and may run on any thread.
// Errors:  allocation and length failures of the standard library pass through; nothing else is
//          reported but what is said per function.
// Text:    bytes for `std::string`, 32-bit code units for `std::wstring`; both forms of a function
//          follow the same rules.
#pragma once

#include <functional>
#include <regex>
#include <string>
#include <vector>

// Called once per token, in order, with the token as a modifiable string; what it returns is
// stored. An empty one raises std::bad_function_call at the first token.
using TokenTransform = std::function<std::string(std::string&)>;
using WideTokenTransform = std::function<std::wstring(std::wstring&)>;

// The pieces of `text` between the matches of `separator`. A leading separator gives a leading
// empty piece, adjacent ones an empty piece between them, but a trailing one gives none. Text
// without a match is the only piece, the empty text included.
std::vector<std::string> split(const std::string& text, const std::regex& separator);
std::vector<std::wstring> split(const std::wstring& text, const std::wregex& separator);

// The runs of `text` that hold no character of the set `delimiters`, transformed. Never an empty
// token: text made only of delimiters gives an empty vector.
std::vector<std::string> split_delim(const std::string& text, const std::string& delimiters,
                                     TokenTransform transform);
std::vector<std::wstring> split_delim(const std::wstring& text, const std::wstring& delimiters,
                                      WideTokenTransform transform);

// The lines of `text`, with `delimiter` as the line end, transformed. Keeps leading and interior
// empty tokens; one trailing delimiter gives no empty token; the empty text gives no token.
std::vector<std::string> tokenize(const std::string& text, char delimiter,
                                  TokenTransform transform);
std::vector<std::wstring> tokenize(const std::wstring& text, wchar_t delimiter,
                                   WideTokenTransform transform);

// The pieces of `text` between the exact occurrences of `delimiter`, transformed. Keeps every
// empty token, a trailing one included. `delimiter` must not be empty: the call would not return.
std::vector<std::string> tokenize(const std::string& text, std::string delimiter,
                                  TokenTransform transform);
std::vector<std::wstring> tokenize(const std::wstring& text, std::wstring delimiter,
                                   WideTokenTransform transform);

// Removes the white space of the classic "C" locale (space, \t, \n, \v, \f, \r) at both ends of
// `text`, whatever the process locale is, and returns `text`. Bytes from 0x80 up are kept.
std::string& trim(std::string& text);

// Whether the last bytes of `text` are `suffix`, compared with regard to case.
bool ends_with(const std::string& text, const std::string& suffix);

// Replaces `pattern` by `replacement` in `text`, left to right. After a replacement the search goes
// on behind the *pattern's* length, not the replacement's: after a shorter replacement some
// occurrences stay, and inside a longer one the pattern is replaced again.
// `pattern` must not be empty, and `replacement` must not hold it at or behind the pattern's own
// length: the call would not return.
void replace_all(std::string& text, const std::string& pattern, const std::string& replacement);
void replace_all(std::wstring& text, const std::wstring& pattern, const std::wstring& replacement);

namespace string_format_detail {
std::string FormatText(const char* format, ...);
}

// `format` filled in as by vsnprintf, of any length, up to the first NUL that the result holds.
// The arguments are read twice, so they must be plain values. A format that vsnprintf rejects gives
// the empty text.
template <typename... Arguments>
std::string string_format(std::string format, Arguments... arguments)
{
    return string_format_detail::FormatText(format.c_str(), arguments...);
}
