// A table-driven UTF-8 decoder, to compare ours with.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

struct Utf8Row
{
    struct Range
    {
        int first, last;
    };

    char32_t first;  // The character of the row's first byte sequence; the others follow in order.
    std::vector<Range> bytes;
};

// The well-formed byte sequences of one character: the table of the Unicode standard.
inline const std::vector<Utf8Row> kWellFormedUtf8 = {
    {0x0, {{0x00, 0x7F}}},
    {0x80, {{0xC2, 0xDF}, {0x80, 0xBF}}},
    {0x800, {{0xE0, 0xE0}, {0xA0, 0xBF}, {0x80, 0xBF}}},
    {0x1000, {{0xE1, 0xEC}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {0xD000, {{0xED, 0xED}, {0x80, 0x9F}, {0x80, 0xBF}}},
    {0xE000, {{0xEE, 0xEF}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {0x10000, {{0xF0, 0xF0}, {0x90, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {0x40000, {{0xF1, 0xF3}, {0x80, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {0x100000, {{0xF4, 0xF4}, {0x80, 0x8F}, {0x80, 0xBF}, {0x80, 0xBF}}},
};

// The character of `row` at `start` in `bytes`, if there is one.
inline std::optional<char32_t> CharacterOfRow(const Utf8Row& row, const std::string& bytes,
                                              std::size_t start)
{
    if (start + row.bytes.size() > bytes.size()) {
        return std::nullopt;
    }
    char32_t number = 0;
    for (const Utf8Row::Range& range : row.bytes) {
        const int byte = static_cast<unsigned char>(bytes[start++]);
        if (byte < range.first || byte > range.last) {
            return std::nullopt;
        }
        number = number * static_cast<char32_t>(range.last - range.first + 1) +
                 static_cast<char32_t>(byte - range.first);
    }
    return row.first + number;
}

// The characters of `bytes`; nullopt unless all of it is well-formed.
inline std::optional<std::u32string> DecodeByTable(const std::string& bytes)
{
    std::u32string text;
    for (std::size_t start = 0; start < bytes.size();) {
        const std::size_t before = text.size();
        for (const Utf8Row& row : kWellFormedUtf8) {
            if (const std::optional<char32_t> character = CharacterOfRow(row, bytes, start)) {
                text += *character;
                start += row.bytes.size();
                break;
            }
        }
        if (text.size() == before) {
            return std::nullopt;
        }
    }
    return text;
}
