// Compares split, split_delim and both forms of tokenize, narrow and wide, with plain loops.
// Input: a line with the delimiters, then the text.
#include <regex>
#include <vector>

#include "tests/fuzz/fuzz.h"
#include "util/string_util.h"

namespace {

using Tokens = std::vector<std::string>;

std::wstring Widened(const std::string& text)
{
    std::wstring wide;
    for (const char c : text) {
        wide += static_cast<wchar_t>(0x10000 + static_cast<unsigned char>(c));
    }
    return wide;
}

std::vector<std::wstring> Widened(const Tokens& tokens)
{
    std::vector<std::wstring> wide;
    for (const std::string& token : tokens) {
        wide.push_back(Widened(token));
    }
    return wide;
}

// Every piece between two occurrences of `delimiter`, and before the first and after the last.
Tokens Pieces(const std::string& text, const std::string& delimiter)
{
    Tokens pieces = {""};
    for (std::size_t i = 0; i < text.size();) {
        if (text.compare(i, delimiter.size(), delimiter) == 0) {
            pieces.emplace_back();
            i += delimiter.size();
        } else {
            pieces.back() += text[i++];
        }
    }
    return pieces;
}

// `split` omits an empty piece at the end, unless it is the only one.
Tokens WithoutEmptyEnd(Tokens pieces)
{
    if (pieces.size() > 1 && pieces.back().empty()) {
        pieces.pop_back();
    }
    return pieces;
}

// The character form of `tokenize` omits it even then.
Tokens Lines(Tokens pieces)
{
    if (pieces.back().empty()) {
        pieces.pop_back();
    }
    return pieces;
}

Tokens Runs(const std::string& text, const std::string& delimiters)
{
    Tokens runs;
    bool inside = false;
    for (const char c : text) {
        if (delimiters.find(c) != std::string::npos) {
            inside = false;
            continue;
        }
        if (!inside) {
            runs.emplace_back();
        }
        runs.back() += c;
        inside = true;
    }
    return runs;
}

// A regular expression that matches one character.
template <typename Char>
std::basic_regex<Char> Literal(Char c)
{
    const bool is_special =
        c < 0x80 && std::string("^$\\.*+?()[]{}|").find(static_cast<char>(c)) != std::string::npos;
    return std::basic_regex<Char>(is_special ? std::basic_string<Char>{'\\', c}
                                             : std::basic_string<Char>{c});
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const std::string delimiters = input.TakeLine();
    const std::string text = input.Rest();
    const auto same = [](std::string& token) { return token; };
    const auto wide_same = [](std::wstring& token) { return token; };
    const std::wstring wide_delimiters = Widened(delimiters);
    const std::wstring wide_text = Widened(text);

    const Tokens runs = Runs(text, delimiters);
    Require(split_delim(text, delimiters, same) == runs, "split_delim gives the runs");
    Require(split_delim(wide_text, wide_delimiters, wide_same) == Widened(runs),
            "split_delim gives the runs, wide");
    if (delimiters.empty()) {
        return 0;
    }
    const Tokens at_text = Pieces(text, delimiters);
    Require(tokenize(text, delimiters, same) == at_text, "tokenize cuts at the text");
    Require(tokenize(wide_text, wide_delimiters, wide_same) == Widened(at_text),
            "tokenize cuts at the text, wide");

    const char c = delimiters[0];
    const Tokens pieces = Pieces(text, std::string(1, c));
    Require(tokenize(text, c, same) == Lines(pieces), "tokenize gives the lines");
    Require(tokenize(wide_text, wide_delimiters[0], wide_same) == Widened(Lines(pieces)),
            "tokenize gives the lines, wide");
    if (c == '\0') {
        return 0;  // A regular expression of libstdc++ cannot contain an unescaped NUL.
    }
    Require(split(text, Literal(c)) == WithoutEmptyEnd(pieces), "split cuts at the expression");
    Require(split(wide_text, Literal(wide_delimiters[0])) == Widened(WithoutEmptyEnd(pieces)),
            "split cuts at the expression, wide");
    return 0;
}
