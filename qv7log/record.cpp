#include "qv7log/record.h"

#include <cstdint>
#include <cstring>

#include "qv7log/record_format.h"
#include "qv7log/timestamp.h"

namespace qv7log {
namespace {

char* Put(char* out, std::string_view text)
{
    memmove(out, text.data(), text.size());  // `text` may overlap `out`: see PutText
    return out + text.size();
}

char* PutDecimal(char* out, unsigned long long value)
{
    char digits[20];
    std::size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (count != 0) {
        *out++ = digits[--count];
    }
    return out;
}

char* PutSigned(char* out, long long value)
{
    if (value < 0) {
        *out++ = '-';
        return PutDecimal(out, 0 - static_cast<unsigned long long>(value));
    }
    return PutDecimal(out, static_cast<unsigned long long>(value));
}

char* PutHex(char* out, unsigned value, int digits)
{
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        *out++ = "0123456789abcdef"[value >> shift & 0xF];
    }
    return out;
}

// Writes the level, padded with blanks. A level without a name is written as its number.
char* PutLevel(char* out, LOGLEVEL level)
{
    switch (level) {
        case LOGLEVEL_DEBUG:
            return Put(out, "DEBUG   ");
        case LOGLEVEL_MESSAGE:
            return Put(out, "MESSAGE ");
        case LOGLEVEL_WARNING:
            return Put(out, "WARNING ");
        case LOGLEVEL_ERROR:
            return Put(out, "ERROR   ");
        case LOGLEVEL_CRITICAL:
            return Put(out, "CRITICAL");
        case LOGLEVEL_VERBOSE:
            return Put(out, "VERBOSE ");
    }
    const char* const padded_end = out + kLevelWidth;
    out = PutSigned(out, level);
    while (out < padded_end) {
        *out++ = ' ';
    }
    return out;
}
static_assert(std::string_view("CRITICAL").size() == kLevelWidth);

// A character of UTF-8: its code point and its size in bytes. The size is 0 if the text does not
// begin with a well-formed character.
struct Character
{
    unsigned code;
    std::size_t size;
};

Character FirstCharacter(std::string_view text)
{
    struct Form
    {
        unsigned char mask, lead;
        std::size_t size;
        unsigned min_code;  // a smaller one must be written in a shorter form
    };
    constexpr Form kForms[] = {{0x80, 0x00, 1, 0},
                               {0xE0, 0xC0, 2, 0x80},
                               {0xF0, 0xE0, 3, 0x800},
                               {0xF8, 0xF0, 4, 0x10000}};
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    for (const Form& form : kForms) {
        if ((byte(0) & form.mask) != form.lead || text.size() < form.size) {
            continue;
        }
        unsigned code = byte(0) & static_cast<unsigned char>(~form.mask);
        for (std::size_t i = 1; i < form.size; ++i) {
            if ((byte(i) & 0xC0) != 0x80) {
                return {};
            }
            code = code << 6 | (byte(i) & 0x3F);
        }
        const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
        return {code, code < form.min_code || code > 0x10FFFF || surrogate ? 0 : form.size};
    }
    return {};
}

bool IsControl(unsigned code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x2028 || code == 0x2029;
}

enum class Field
{
    kText = 1,
    kName = 2,
};

// For each byte, the fields in which it is never escaped, whatever precedes it.
struct PlainBytes
{
    constexpr PlainBytes() : fields()
    {
        for (int byte = 0x20; byte < 0x7F; ++byte) {
            const char c = static_cast<char>(byte);
            const bool in_text = c != '\\' && c != 'Z';
            const bool in_name = in_text && c != ' ' && c != '[' && c != ']';
            fields[byte] = static_cast<unsigned char>((in_text ? 1 : 0) | (in_name ? 2 : 0));
        }
    }
    unsigned char fields[256];
};
constexpr PlainBytes kPlainBytes;

bool IsPlainByte(char c, Field field)
{
    return (kPlainBytes.fields[static_cast<unsigned char>(c)] & static_cast<int>(field)) != 0;
}

// The letter that follows the backslash in the escape of `c`; 0 if `c` has no such escape.
char EscapeLetter(char c)
{
    switch (c) {
        case '\\':
            return '\\';
        case '\n':
            return 'n';
        case '\r':
            return 'r';
        case '\t':
            return 't';
    }
    return 0;
}

// Whether a 'Z' at `out` would complete a timestamp. This checks the written text, not the original
// one, because the last digits of an escape can be the first digits of a timestamp.
bool CompletesTimestamp(const char* start, char* out)
{
    const std::size_t before = kTimestampSize - 1;
    *out = 'Z';
    return static_cast<std::size_t>(out - start) >= before && IsTimestamp(out - before);
}

char* PutEscaped(char* out, std::string_view text, Field field)
{
    const char* const start = out;
    while (!text.empty()) {
        const char c = text.front();
        if (IsPlainByte(c, field)) {
            std::size_t run = 1;
            while (run < text.size() && IsPlainByte(text[run], field)) {
                ++run;
            }
            out = Put(out, text.substr(0, run));
            text.remove_prefix(run);
            continue;
        }
        const Character first = FirstCharacter(text);
        if (const char letter = EscapeLetter(c)) {
            *out++ = '\\';
            *out++ = letter;
        } else if (c == 'Z' && CompletesTimestamp(start, out)) {
            out = Put(out, "\\Z");
        } else if (first.size > 1 && IsControl(first.code)) {
            out = PutHex(Put(out, "\\u"), first.code, 4);
        } else if (first.size == 0 || IsControl(first.code) || IsPlainByte(c, Field::kText)) {
            out = PutHex(Put(out, "\\x"), static_cast<unsigned char>(c), 2);
        } else {
            out = Put(out, text.substr(0, first.size));
        }
        text.remove_prefix(first.size > 1 ? first.size : 1);
    }
    return out;
}

}  // namespace

char* PutHeading(char* out, const Heading& heading)
{
    out = PutTimestamp(out, heading.time);
    *out++ = ' ';
    out = PutLevel(out, heading.level);
    *out++ = ' ';
    out = Put(out, heading.name);
    *out++ = '[';
    out = PutSigned(out, heading.process);
    return Put(out, "] ");
}

char* PutText(char* out, std::string_view text)
{
    return PutEscaped(out, text, Field::kText);
}

bool IsPlain(std::string_view text)
{
    constexpr std::uint64_t kOnes = ~std::uint64_t{0} / 255;  // 1 in every byte
    constexpr std::uint64_t kHighBits = kOnes * 0x80;
    const auto has_byte_below = [](std::uint64_t bytes, unsigned limit) {
        return (bytes - kOnes * limit) & ~bytes & kHighBits;
    };
    std::size_t at = 0;
    for (; at + 8 <= text.size(); at += 8) {
        std::uint64_t bytes;
        memcpy(&bytes, text.data() + at, sizeof bytes);
        const std::uint64_t above_tilde = ((bytes + kOnes) | bytes) & kHighBits;
        const std::uint64_t escaped = has_byte_below(bytes, ' ') | above_tilde |
                                      has_byte_below(bytes ^ kOnes * '\\', 1) |
                                      has_byte_below(bytes ^ kOnes * 'Z', 1);
        if (escaped != 0) {
            return false;
        }
    }
    for (; at < text.size(); ++at) {
        if (!IsPlainByte(text[at], Field::kText)) {
            return false;
        }
    }
    return true;
}

char* PutName(char* out, std::string_view name)
{
    return PutEscaped(out, name, Field::kName);
}

char* PutCutMark(char* out, std::size_t bytes)
{
    return Put(PutDecimal(Put(out, kCutMarkBegin), bytes), kCutMarkEnd);
}

std::size_t SizeOfWholeCharacters(std::string_view text)
{
    for (std::size_t back = 1; back <= 3 && back <= text.size(); ++back) {
        const auto byte = static_cast<unsigned char>(text[text.size() - back]);
        if (byte >= 0xC0 && byte < 0xF8) {
            const std::size_t needed = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2;
            return needed > back ? text.size() - back : text.size();
        }
        if (byte < 0x80 || byte >= 0xF8) {
            break;
        }
    }
    return text.size();
}

}  // namespace qv7log
