#include <sstream>
#include <utility>

#include "util/string_util.h"

namespace {

template <typename Char>
using Text = std::basic_string<Char>;
template <typename Char>
using Tokens = std::vector<Text<Char>>;
template <typename Char>
using Transform = std::function<Text<Char>(Text<Char>&)>;

template <typename Char>
void Append(Tokens<Char>& tokens, Text<Char> token, const Transform<Char>& transform)
{
    tokens.push_back(transform(token));
}

template <typename Char>
Tokens<Char> SplitAtMatches(const Text<Char>& text, const std::basic_regex<Char>& separator)
{
    // Not regex_token_iterator, because libc++'s drops the text between empty matches.
    using Match = std::regex_iterator<typename Text<Char>::const_iterator>;
    Tokens<Char> tokens;
    auto start = text.begin();
    for (Match match(text.begin(), text.end(), separator); match != Match(); ++match) {
        tokens.emplace_back(start, (*match)[0].first);
        start = (*match)[0].second;
    }
    if (start != text.end() || tokens.empty()) {
        tokens.emplace_back(start, text.end());
    }
    return tokens;
}

template <typename Char>
Tokens<Char> SplitAtDelimiters(const Text<Char>& text, const Text<Char>& delimiters,
                               const Transform<Char>& transform)
{
    Tokens<Char> tokens;
    for (auto start = text.find_first_not_of(delimiters); start != Text<Char>::npos;) {
        const auto end = text.find_first_of(delimiters, start);
        Append(tokens, text.substr(start, end - start), transform);
        start = text.find_first_not_of(delimiters, end);
    }
    return tokens;
}

template <typename Char>
Tokens<Char> TokenizeLines(const Text<Char>& text, Char delimiter, const Transform<Char>& transform)
{
    Tokens<Char> tokens;
    std::basic_istringstream<Char> stream(text);
    Text<Char> token;
    while (std::getline(stream, token, delimiter)) {
        Append(tokens, token, transform);
    }
    return tokens;
}

template <typename Char>
Tokens<Char> TokenizeAt(const Text<Char>& text, const Text<Char>& delimiter,
                        const Transform<Char>& transform)
{
    Tokens<Char> tokens;
    typename Text<Char>::size_type start = 0;
    for (auto end = text.find(delimiter); end != Text<Char>::npos;
         end = text.find(delimiter, start)) {
        Append(tokens, text.substr(start, end - start), transform);
        start = end + delimiter.size();
    }
    Append(tokens, text.substr(start), transform);
    return tokens;
}

}  // namespace

std::vector<std::string> split(const std::string& text, const std::regex& separator)
{
    return SplitAtMatches(text, separator);
}

std::vector<std::wstring> split(const std::wstring& text, const std::wregex& separator)
{
    return SplitAtMatches(text, separator);
}

std::vector<std::string> split_delim(const std::string& text, const std::string& delimiters,
                                     TokenTransform transform)
{
    return SplitAtDelimiters(text, delimiters, transform);
}

std::vector<std::wstring> split_delim(const std::wstring& text, const std::wstring& delimiters,
                                      WideTokenTransform transform)
{
    return SplitAtDelimiters(text, delimiters, transform);
}

std::vector<std::string> tokenize(const std::string& text, char delimiter, TokenTransform transform)
{
    return TokenizeLines(text, delimiter, transform);
}

std::vector<std::wstring> tokenize(const std::wstring& text, wchar_t delimiter,
                                   WideTokenTransform transform)
{
    return TokenizeLines(text, delimiter, transform);
}

std::vector<std::string> tokenize(const std::string& text, std::string delimiter,
                                  TokenTransform transform)
{
    return TokenizeAt(text, delimiter, transform);
}

std::vector<std::wstring> tokenize(const std::wstring& text, std::wstring delimiter,
                                   WideTokenTransform transform)
{
    return TokenizeAt(text, delimiter, transform);
}
