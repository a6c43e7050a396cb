#include "tools/launchlist/base/text.h"

#include <wchar.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <numeric>

#include "util/string_util.h"

namespace launchlist {

namespace {

constexpr char32_t kIllFormed = 0xFFFFFFFF;
constexpr std::size_t kQuotedLength = 80;

struct Character
{
    char32_t code = kIllFormed;
    std::size_t size = 1;
};

// The smallest code point that may be written with a given number of bytes.
constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};

// The character at `text[at]`; every ill-formed byte counts as one character.
Character CharacterAt(const std::string& text, std::size_t at)
{
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) {
        return {lead, 1};
    }
    const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || at + size > text.size()) {
        return {};
    }
    char32_t code = lead & (0x7FU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0U) != 0x80) {
            return {};
        }
        code = (code << 6U) | (next & 0x3FU);
    }
    if (code < kSmallest[size] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
        return {};
    }
    return {code, size};
}

// Control characters; white space and joiners without a width; characters that change the direction
// of the text; line separators that only some programs know; invisible tags.
constexpr char32_t kHidden[][2] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},
    {0x180E, 0x180E}, {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F},
    {0xFE00, 0xFE0F}, {0xFEFF, 0xFEFF}, {0xFFF0, 0xFFFB}, {0xE0000, 0xE0FFF},
};

bool IsHidden(char32_t code)
{
    return code == kIllFormed ||
           std::any_of(std::begin(kHidden), std::end(kHidden),
                       [code](const auto& range) { return code >= range[0] && code <= range[1]; });
}

// Calls `plain(bytes)` for every character that may be shown, and `hidden(code, bytes)` for every
// other.
template <typename Plain, typename Hidden>
void ForEachCharacter(const std::string& text, Plain plain, Hidden hidden)
{
    for (std::size_t at = 0; at < text.size();) {
        const Character character = CharacterAt(text, at);
        const std::string bytes = text.substr(at, character.size);
        if (IsHidden(character.code)) {
            hidden(character.code, bytes);
        } else {
            plain(bytes);
        }
        at += character.size;
    }
}

std::string EscapeOf(char32_t code, const std::string& bytes)
{
    switch (code) {
        case U'\n':
            return "\\n";
        case U'\r':
            return "\\r";
        case U'\t':
            return "\\t";
        default:
            break;
    }
    if (code == kIllFormed || code < 0x80) {
        return string_format("\\x%02x",
                             static_cast<unsigned>(static_cast<unsigned char>(bytes[0])));
    }
    return string_format("\\u{%x}", static_cast<unsigned>(code));
}

std::string JsonEscapeOf(char32_t code)
{
    const auto value = static_cast<unsigned>(code == kIllFormed ? 0xFFFD : code);
    if (value < 0x10000) {
        return string_format("\\u%04x", value);
    }
    return string_format("\\u%04x\\u%04x", 0xD800U + ((value - 0x10000U) >> 10U),
                         0xDC00U + ((value - 0x10000U) & 0x3FFU));
}

// The edit distance: how many characters must be added, removed or replaced.
std::size_t Distance(const std::string& from, const std::string& to)
{
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= from.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const std::size_t replaced = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
        }
    }
    return row.back();
}

bool IsPlainWord(const std::string& text)
{
    // An "=" turns the first word into an assignment, but not after a "-" or "/".
    const bool may_assign = text.empty() || (text[0] != '-' && text[0] != '/');
    const std::string signs = may_assign ? "%+,-./:@_" : "%+,-./:@_=";
    const auto is_plain = [&](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               signs.find(c) != std::string::npos;
    };
    return !text.empty() && std::all_of(text.begin(), text.end(), is_plain);
}

}  // namespace

std::string printable(const std::string& text)
{
    std::string result;
    ForEachCharacter(
        text, [&](const std::string& bytes) { result += bytes; },
        [&](char32_t code, const std::string& bytes) { result += EscapeOf(code, bytes); });
    return result;
}

std::string quoted(const std::string& text)
{
    std::string result = "\"";
    std::size_t length = 0;
    for (std::size_t at = 0; at < text.size(); ++length) {
        if (length == kQuotedLength) {
            return result + "...\"";
        }
        const std::size_t size = CharacterAt(text, at).size;
        result += printable(text.substr(at, size));
        at += size;
    }
    return result + "\"";
}

std::string shell_word(const std::string& text)
{
    if (IsPlainWord(text)) {
        return text;
    }
    const std::size_t last = text.find_last_not_of('\n');
    const std::size_t end = last == std::string::npos ? 0 : last + 1;
    bool all_plain = end == text.size();
    std::string single = "'";
    std::string format;
    ForEachCharacter(
        text.substr(0, end),
        [&](const std::string& bytes) {
            single += bytes == "'" ? "'\\''" : bytes;
            format += bytes == "'"    ? "\\047"
                      : bytes == "\\" ? "\\134"
                      : bytes == "%"  ? "%%"
                                      : bytes;
        },
        [&](char32_t, const std::string& bytes) {
            all_plain = false;
            for (const char c : bytes) {
                format +=
                    string_format("\\%03o", static_cast<unsigned>(static_cast<unsigned char>(c)));
            }
        });
    if (all_plain) {
        return single + "'";
    }
    std::string word = format.empty() ? "" : "\"$(printf '" + format + "')\"";
    if (end < text.size()) {
        word += "'" + text.substr(end) + "'";
    }
    return word;
}

std::string safe_json(const std::string& json)
{
    std::string result;
    ForEachCharacter(
        json, [&](const std::string& bytes) { result += bytes; },
        [&](char32_t code, const std::string& bytes) {
            // Between the values there are line feeds, and nothing else that is hidden.
            result += bytes == "\n" || bytes == "\t" ? bytes : JsonEscapeOf(code);
        });
    return result;
}

std::string json_string(const std::string& text)
{
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            result += string_format("\\u%04x", static_cast<unsigned>(c));
        } else {
            result += c;
        }
    }
    return safe_json(result + "\"");
}

std::string html(const std::string& text)
{
    std::string result;
    for (const char c : printable(text)) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&#39;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::size_t display_width(const std::string& text)
{
    std::size_t width = 0;
    for (std::size_t at = 0; at < text.size();) {
        const Character character = CharacterAt(text, at);
        const int columns = wcwidth(static_cast<wchar_t>(character.code));
        width += columns < 0 ? 1U : static_cast<std::size_t>(columns);
        at += character.size;
    }
    return width;
}

std::string pad_right(const std::string& text, std::size_t width)
{
    const std::size_t used = display_width(text);
    return used < width ? text + std::string(width - used, ' ') : text;
}

std::string pad_left(const std::string& text, std::size_t width)
{
    const std::size_t used = display_width(text);
    return used < width ? std::string(width - used, ' ') + text : text;
}

std::string counted(std::size_t count, const std::string& noun)
{
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

bool is_utf8(const std::string& text, std::size_t* first_bad)
{
    for (std::size_t at = 0; at < text.size();) {
        const Character character = CharacterAt(text, at);
        if (character.code == kIllFormed) {
            if (first_bad != nullptr) {
                *first_bad = at;
            }
            return false;
        }
        at += character.size;
    }
    return true;
}

std::string closest_word(const std::string& text, const std::vector<std::string>& words)
{
    constexpr std::size_t kMaxDistance = 2;
    constexpr std::size_t kMaxLength = 16;
    if (text.size() > kMaxLength) {
        return "";
    }
    std::string lower = text;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::string closest;
    std::size_t least = kMaxDistance + 1;
    for (const std::string& word : words) {
        const std::size_t distance = Distance(lower, word);
        if (distance < least) {
            closest = word;
            least = distance;
        }
    }
    return closest;
}

}  // namespace launchlist
