#include "tools/launchlist/list/wide_encoding.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "util/util.h"

namespace launchlist {

namespace {

// The code unit at `bytes[at]`.
char32_t UnitAt(const std::string& bytes, std::size_t at, const WideEncoding& encoding)
{
    char32_t unit = 0;
    for (std::size_t i = 0; i < encoding.unit; ++i) {
        const std::size_t offset = encoding.is_big_endian ? i : encoding.unit - 1 - i;
        unit = (unit << 8U) | static_cast<unsigned char>(bytes[at + offset]);
    }
    return unit;
}

bool IsLeading(char32_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool IsTrailing(char32_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

}  // namespace

std::optional<WideEncoding> FindWideEncoding(const std::string& bytes)
{
    const auto starts_with = [&bytes](std::string_view mark) {
        return bytes.compare(0, mark.size(), mark) == 0;
    };
    if (starts_with({"\xFF\xFE\0\0", 4})) {
        return WideEncoding{4, false, true};
    }
    if (starts_with({"\0\0\xFE\xFF", 4})) {
        return WideEncoding{4, true, true};
    }
    if (starts_with("\xFF\xFE")) {
        return WideEncoding{2, false, true};
    }
    if (starts_with("\xFE\xFF")) {
        return WideEncoding{2, true, true};
    }
    std::string zeros;  // "0" for a zero byte, "x" for one of an ASCII character.
    for (std::size_t i = 0; i < std::min<std::size_t>(bytes.size(), 4); ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        zeros += byte == 0 ? "0" : byte < 0x80 ? "x" : "-";
    }
    if (zeros == "x0x0" || zeros == "0x0x") {
        return WideEncoding{2, zeros[0] == '0', false};
    }
    if (zeros == "x000" || zeros == "000x") {
        return WideEncoding{4, zeros[0] == '0', false};
    }
    return std::nullopt;
}

std::string TextOf(const WideEncoding& encoding)
{
    const std::string name = encoding.unit == 2 ? "UTF-16" : "UTF-32";
    if (encoding.has_mark) {
        return "the file is encoded in " + name;
    }
    return "the file appears to be encoded in " + name +
           (encoding.unit == 2 ? ": every second byte is zero" : ": three of four bytes are zero");
}

std::optional<std::string> ToUtf8(const std::string& bytes, const WideEncoding& encoding)
{
    if (bytes.size() % encoding.unit != 0) {
        return std::nullopt;
    }
    std::wstring text;
    for (std::size_t at = 0; at < bytes.size(); at += encoding.unit) {
        char32_t code = UnitAt(bytes, at, encoding);
        const std::size_t next = at + encoding.unit;
        if (encoding.unit == 2 && IsLeading(code) && next < bytes.size() &&
            IsTrailing(UnitAt(bytes, next, encoding))) {
            code = 0x10000 + ((code - 0xD800) << 10U) + (UnitAt(bytes, next, encoding) - 0xDC00);
            at = next;
        }
        text += static_cast<wchar_t>(code);
    }
    try {
        return ws2s(text);
    } catch (const std::range_error&) {
        return std::nullopt;  // A surrogate without its counterpart, or beyond Unicode.
    }
}

}  // namespace launchlist
