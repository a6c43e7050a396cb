#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>

#include "util/string_util.h"

namespace {

constexpr char kWhiteSpace[] = " \t\n\v\f\r";

template <typename Char>
void ReplaceAll(std::basic_string<Char>& text, const std::basic_string<Char>& pattern,
                const std::basic_string<Char>& replacement)
{
    for (auto pos = text.find(pattern); pos != std::basic_string<Char>::npos;
         pos = text.find(pattern, pos)) {
        text.replace(pos, pattern.size(), replacement);
        // Deliberately the pattern's length; the header says why.
        pos += pattern.size();
    }
}

}  // namespace

std::string& trim(std::string& text)
{
    // npos + 1 is 0, so text that is all white space becomes empty.
    text.erase(text.find_last_not_of(kWhiteSpace) + 1);
    text.erase(0, text.find_first_not_of(kWhiteSpace));
    return text;
}

bool ends_with(const std::string& text, const std::string& suffix)
{
    return suffix.size() <= text.size() &&
           std::equal(suffix.rbegin(), suffix.rend(), text.rbegin());
}

void replace_all(std::string& text, const std::string& pattern, const std::string& replacement)
{
    ReplaceAll(text, pattern, replacement);
}

void replace_all(std::wstring& text, const std::wstring& pattern, const std::wstring& replacement)
{
    ReplaceAll(text, pattern, replacement);
}

namespace string_format_detail {

// The format is that of string_format's caller, so the compiler cannot check it here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
std::string FormatText(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    if (length < 0) {
        return "";
    }
    if (length == INT_MAX) {
        throw std::bad_alloc();
    }

    const std::size_t size = static_cast<std::size_t>(length) + 1;
    const std::unique_ptr<char[]> text(new char[size]);
    va_start(arguments, format);
    std::vsnprintf(text.get(), size, format, arguments);
    va_end(arguments);
    return text.get();
}
#pragma GCC diagnostic pop

}  // namespace string_format_detail
