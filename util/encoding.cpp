#include <uuid/uuid.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

#include "util/util.h"

namespace {

constexpr char g_character_for_base64[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// UTF-8 is converted without std::wstring_convert, which is deprecated. In libstdc++, it also has
// other messages than in libc++, accepts surrogates, and drops a truncated character at the end.

bool IsScalarValue(char32_t c)
{
    return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
}

[[noreturn]] void ThrowFromBytesError()
{
    throw std::range_error("wstring_convert: from_bytes error");
}

// Reads the code point at `next` and advances `next` past it.
char32_t TakeCodePoint(std::string::const_iterator& next, std::string::const_iterator end)
{
    const auto lead = static_cast<unsigned char>(*next++);
    if (lead < 0x80) {
        return lead;
    }
    if (lead < 0xC0 || lead > 0xF7) {
        ThrowFromBytesError();
    }
    const int tail = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    char32_t c = lead & (0x3Fu >> tail);
    for (int i = 0; i < tail; ++i) {
        if (next == end || (*next & 0xC0) != 0x80) {
            ThrowFromBytesError();
        }
        c = c << 6 | (static_cast<unsigned char>(*next++) & 0x3Fu);
    }
    constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    if (c < kSmallest[tail] || !IsScalarValue(c)) {
        ThrowFromBytesError();
    }
    return c;
}

void AppendCodePoint(std::string& text, char32_t c)
{
    const int tail = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr char32_t kLeadBits[] = {0, 0xC0, 0xE0, 0xF0};
    text += static_cast<char>(kLeadBits[tail] | c >> 6 * tail);
    for (int i = tail - 1; i >= 0; --i) {
        text += static_cast<char>(0x80 | (c >> 6 * i & 0x3F));
    }
}

}  // namespace

std::wstring s2ws(const std::string& text)
{
    std::wstring wide;
    for (auto next = text.begin(); next != text.end();) {
        wide += static_cast<wchar_t>(TakeCodePoint(next, text.end()));
    }
    return wide;
}

std::string ws2s(const std::wstring& text)
{
    std::string bytes;
    for (const wchar_t unit : text) {
        const auto c = static_cast<char32_t>(unit);
        if (!IsScalarValue(c)) {
            throw std::range_error("wstring_convert: to_bytes error");
        }
        AppendCodePoint(bytes, c);
    }
    return bytes;
}

std::string NewUUID()
{
    uuid_t id;
    uuid_generate_random(id);
    char text[37] = {};
    uuid_unparse(id, text);
    return text;
}

int octalToDecimal(int value)
{
    int result = 0;
    for (int position = 0; value != 0; ++position) {
        // Exact in floating point: no int gives a sum of more than 29 bits.
        result = static_cast<int>(result + std::pow(8.0, position) * (value % 10));
        value /= 10;
    }
    return result;
}

char* base64(const unsigned char* data, unsigned long length)
{
    static char* text = nullptr;
    std::free(text);
    text = nullptr;
    if (data == nullptr || length == 0) {
        return nullptr;
    }

    const unsigned long groups = length / 3 + (length % 3 != 0 ? 1 : 0);
    if (groups > ULONG_MAX / 4) {
        return nullptr;
    }
    text = static_cast<char*>(std::malloc(4 * groups + 1));
    if (text == nullptr) {
        return nullptr;
    }
    // Deliberately pads the last group with "=" instead of zeros, which shows in the result. Other
    // components of the product were written against these texts; zeros would change them.
    const auto byte = [=](unsigned long i) -> unsigned { return i < length ? data[i] : '='; };
    char* out = text;
    for (unsigned long i = 0; i < length; i += 3) {
        const unsigned bits = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        for (int shift = 18; shift >= 0; shift -= 6) {
            *out++ = g_character_for_base64[bits >> shift & 0x3F];
        }
    }
    *out = '\0';
    for (unsigned long i = length; i < 3 * groups; ++i) {
        *--out = '=';
    }
    return text;
}
