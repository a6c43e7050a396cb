#include "qv7log/format.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string_view>
#include <type_traits>

namespace qv7log {
namespace {

// Stores a text as far as it fits, and counts all of it.
class Output
{
public:
    // One byte of `space` is kept free for the NUL that snprintf writes.
    Output(char* out, std::size_t space) : m_out(out), m_space(space - 1) {}

    std::size_t Size() const { return m_size; }

    void Append(const char* text, std::size_t size)
    {
        if (size > 0 && m_size < m_space) {  // `text` may be null if there is nothing to copy.
            memcpy(m_out + m_size, text, std::min(size, m_space - m_size));
        }
        m_size += size;
    }

    void Append(char c)
    {
        if (m_size < m_space) {
            m_out[m_size] = c;
        }
        ++m_size;
    }

    void Pad(char c, std::size_t size)
    {
        if (m_size < m_space) {
            memset(m_out + m_size, c, std::min(size, m_space - m_size));
        }
        m_size += size;
    }

    // The place and the space for snprintf, its NUL included.
    char* Free() { return m_out + std::min(m_size, m_space); }
    std::size_t FreeSpace() const { return m_space - std::min(m_size, m_space) + 1; }

    void AddSize(std::size_t size) { m_size += size; }

private:
    char* const m_out;
    const std::size_t m_space;
    std::size_t m_size = 0;
};

enum class Length
{
    kNone,
    kChar,
    kShort,
    kLong,
    kLongLong,
    kMax,
    kSize,
    kDifference,
    kLongDouble,
};

// A conversion without its '%'.
struct Conversion
{
    bool left = false;       // '-'
    bool plus = false;       // '+'
    bool blank = false;      // ' '
    bool alternate = false;  // '#'
    bool zero = false;       // '0'
    bool grouped = false;    // '\''
    int width = 0;
    bool has_precision = false;
    int precision = 0;
    Length length = Length::kNone;
    char kind = 0;
};

// A va_list that can be passed by reference on every platform.
struct Arguments
{
    va_list list;
};

const char* ParseFlags(const char* at, Conversion& conversion)
{
    for (;; ++at) {
        switch (*at) {
            case '-':
                conversion.left = true;
                break;
            case '+':
                conversion.plus = true;
                break;
            case ' ':
                conversion.blank = true;
                break;
            case '#':
                conversion.alternate = true;
                break;
            case '0':
                conversion.zero = true;
                break;
            case '\'':
                conversion.grouped = true;
                break;
            default:
                return at;
        }
    }
}

const char* ParseNumber(const char* at, int& number)
{
    number = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        // The limit is larger than any text, and prevents an overflow.
        number = std::min(number * 10 + (*at - '0'), 100'000'000);
    }
    return at;
}

const char* ParseWidth(const char* at, Conversion& conversion, Arguments& arguments)
{
    if (*at == '*') {
        ++at;
        const int width = va_arg(arguments.list, int);
        conversion.left = conversion.left || width < 0;
        // A negative width means left-justified. -INT_MIN would overflow.
        conversion.width = width < 0 ? -std::max(width, -INT32_MAX) : width;
    } else {
        at = ParseNumber(at, conversion.width);
    }
    conversion.width = std::min(conversion.width, static_cast<int>(kMaxWidth));
    return at;
}

const char* ParsePrecision(const char* at, Conversion& conversion, Arguments& arguments)
{
    if (*at != '.') {
        return at;
    }
    ++at;
    if (*at == '*') {
        ++at;
        conversion.precision = va_arg(arguments.list, int);
    } else {
        at = ParseNumber(at, conversion.precision);
    }
    conversion.has_precision = conversion.precision >= 0;
    return at;
}

const char* ParseLength(const char* at, Length& length)
{
    switch (*at) {
        case 'h':
            length = at[1] == 'h' ? Length::kChar : Length::kShort;
            return at + (at[1] == 'h' ? 2 : 1);
        case 'l':
            length = at[1] == 'l' ? Length::kLongLong : Length::kLong;
            return at + (at[1] == 'l' ? 2 : 1);
        case 'j':
            length = Length::kMax;
            return at + 1;
        case 'z':
            length = Length::kSize;
            return at + 1;
        case 't':
            length = Length::kDifference;
            return at + 1;
        case 'L':
            length = Length::kLongDouble;
            return at + 1;
        default:
            return at;
    }
}

// Some of these types are the same on one platform and differ on another.
// NOLINTBEGIN(bugprone-branch-clone)
intmax_t TakeSigned(Length length, Arguments& arguments)
{
    switch (length) {
        case Length::kChar:
            return static_cast<signed char>(va_arg(arguments.list, int));
        case Length::kShort:
            return static_cast<short>(va_arg(arguments.list, int));
        case Length::kLong:
            return va_arg(arguments.list, long);
        case Length::kLongLong:
            return va_arg(arguments.list, long long);
        case Length::kMax:
            return va_arg(arguments.list, intmax_t);
        case Length::kSize:
            return va_arg(arguments.list, std::make_signed_t<size_t>);
        case Length::kDifference:
            return va_arg(arguments.list, ptrdiff_t);
        case Length::kNone:
        case Length::kLongDouble:
            break;
    }
    return va_arg(arguments.list, int);
}

uintmax_t TakeUnsigned(Length length, Arguments& arguments)
{
    switch (length) {
        case Length::kChar:
            return static_cast<unsigned char>(va_arg(arguments.list, unsigned));
        case Length::kShort:
            return static_cast<unsigned short>(va_arg(arguments.list, unsigned));
        case Length::kLong:
            return va_arg(arguments.list, unsigned long);
        case Length::kLongLong:
            return va_arg(arguments.list, unsigned long long);
        case Length::kMax:
            return va_arg(arguments.list, uintmax_t);
        case Length::kSize:
            return va_arg(arguments.list, size_t);
        case Length::kDifference:
            return va_arg(arguments.list, std::make_unsigned_t<ptrdiff_t>);
        case Length::kNone:
        case Length::kLongDouble:
            break;
    }
    return va_arg(arguments.list, unsigned);
}
// NOLINTEND(bugprone-branch-clone)

// The digits of a number, at the end of a buffer.
class Digits
{
public:
    // Only the digits are read, so the rest of m_digits stays uninitialised.
    // cppcheck-suppress uninitMemberVar
    Digits(uintmax_t value, unsigned base, bool upper)
    {
        const char* const digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
        do {
            *--m_begin = digits[value % base];
            value /= base;
        } while (value != 0);
    }

    // The decimal digits, with constant divisions.
    template <typename Unsigned>
    // cppcheck-suppress uninitMemberVar
    explicit Digits(Unsigned value)
    {
        do {
            *--m_begin = static_cast<char>('0' + value % 10);
            value /= 10;
        } while (value != 0);
    }

    Digits(const Digits&) = delete;
    Digits& operator=(const Digits&) = delete;

    void AddSign(char sign) { *--m_begin = sign; }
    const char* Begin() const { return m_begin; }
    std::size_t Size() const
    {
        return static_cast<std::size_t>(m_digits + sizeof m_digits - m_begin);
    }

private:
    char m_digits[24];  // a 64-bit number has at most 22 octal digits
    char* m_begin = m_digits + sizeof m_digits;
};

void PutInt(Output& output, int value)
{
    const auto magnitude = static_cast<unsigned>(value);
    Digits digits(value < 0 ? 0 - magnitude : magnitude);
    if (value < 0) {
        digits.AddSign('-');
    }
    output.Append(digits.Begin(), digits.Size());
}

// Writes `text`, padded to the width.
void PutPadded(Output& output, const Conversion& conversion, std::string_view text)
{
    const auto width = static_cast<std::size_t>(conversion.width);
    const std::size_t padding = width > text.size() ? width - text.size() : 0;
    if (!conversion.left) {
        output.Pad(' ', padding);
    }
    output.Append(text.data(), text.size());
    if (conversion.left) {
        output.Pad(' ', padding);
    }
}

void PutString(Output& output, const Conversion& conversion, const char* text)
{
    // No text is longer than PTRDIFF_MAX.
    const std::size_t limit = conversion.has_precision
                                  ? static_cast<std::size_t>(conversion.precision)
                                  : static_cast<std::size_t>(PTRDIFF_MAX);
    if (text == nullptr) {
        text = limit < sizeof "(null)" - 1 ? "" : "(null)";  // as in glibc
    }
    PutPadded(output, conversion,
              {text, conversion.has_precision ? strnlen(text, limit) : strlen(text)});
}

void PutInteger(Output& output, const Conversion& conversion, bool negative, uintmax_t value)
{
    const bool is_signed = conversion.kind == 'd' || conversion.kind == 'i';
    const unsigned base = conversion.kind == 'o'                             ? 8
                          : conversion.kind == 'x' || conversion.kind == 'X' ? 16
                                                                             : 10;
    const Digits digits(value, base, conversion.kind == 'X');
    std::string_view number(digits.Begin(), digits.Size());
    if (value == 0 && conversion.has_precision && conversion.precision == 0) {
        number = "";
    }
    std::size_t precision =
        conversion.has_precision
            ? std::min(static_cast<std::size_t>(conversion.precision), kMaxWidth)
            : 1;
    std::string_view prefix;
    if (is_signed) {
        prefix = negative ? "-" : conversion.plus ? "+" : conversion.blank ? " " : "";
    } else if (conversion.alternate && base == 16 && value != 0) {
        prefix = conversion.kind == 'X' ? "0X" : "0x";
    } else if (conversion.alternate && base == 8 && (number.empty() || number[0] != '0')) {
        precision = std::max(precision, number.size() + 1);
    }
    std::size_t zeros = precision > number.size() ? precision - number.size() : 0;
    const std::size_t size = prefix.size() + zeros + number.size();
    const auto width = static_cast<std::size_t>(conversion.width);
    std::size_t padding = width > size ? width - size : 0;
    if (conversion.zero && !conversion.left && !conversion.has_precision) {
        zeros += padding;
        padding = 0;
    }
    if (!conversion.left) {
        output.Pad(' ', padding);
    }
    output.Append(prefix.data(), prefix.size());
    output.Pad('0', zeros);
    output.Append(number.data(), number.size());
    if (conversion.left) {
        output.Pad(' ', padding);
    }
}

// Lets snprintf convert one argument. `length` is the length modifier for the type Value.
template <typename Value>
__attribute__((noinline)) bool PutBySystem(Output& output, const Conversion& conversion,
                                           const char* length, Value value)
{
    char format[16];
    char* end = format;
    *end++ = '%';
    const struct
    {
        bool set;
        char flag;
    } kFlags[] = {{conversion.left, '-'},      {conversion.plus, '+'}, {conversion.blank, ' '},
                  {conversion.alternate, '#'}, {conversion.zero, '0'}, {conversion.grouped, '\''}};
    for (const auto& entry : kFlags) {
        if (entry.set) {
            *end++ = entry.flag;
        }
    }
    *end++ = '*';
    const bool is_pointer = conversion.kind == 'p';
    if (!is_pointer) {
        *end++ = '.';
        *end++ = '*';
    }
    for (; *length != '\0'; ++length) {
        *end++ = *length;
    }
    *end++ = conversion.kind;
    *end = '\0';
    const int precision = conversion.has_precision
                              ? std::min(conversion.precision, static_cast<int>(kMaxWidth))
                              : -1;  // as if there were none
    char* const out = output.Free();
    const std::size_t space = output.FreeSpace();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int size = is_pointer ? snprintf(out, space, format, conversion.width, value)
                                : snprintf(out, space, format, conversion.width, precision, value);
#pragma GCC diagnostic pop
    if (size < 0) {
        return false;
    }
    output.AddSize(static_cast<std::size_t>(size));
    return true;
}

// The description of `error` in English. strerror and glibc's strerror_r would translate it, under
// the locale's lock. Before version 2.32, glibc has no other function: the description is then the
// number.
const char* DescribeError(int error, char* buffer, std::size_t size)
{
#ifdef __GLIBC__
#if __GLIBC_PREREQ(2, 32)
    if (const char* const text = strerrordesc_np(error)) {
        return text;
    }
#endif
#elif defined(__APPLE__)
    if (strerror_r(error, buffer, size) == 0) {
        return buffer;
    }
#endif
    snprintf(buffer, size, "Unknown error %d", error);
    return buffer;
}

// Whether the conversion is supported with its length. %lc and %ls are not; for other combinations
// that are missing here, C17 does not define the type of the argument.
bool SupportsLength(const Conversion& conversion)
{
    constexpr std::string_view kIntegers = "diouxX";
    constexpr std::string_view kFloatingPoint = "aAeEfFgG";
    const bool is_integer = kIntegers.find(conversion.kind) != std::string_view::npos;
    const bool is_floating_point = kFloatingPoint.find(conversion.kind) != std::string_view::npos;
    switch (conversion.length) {
        case Length::kNone:
            return true;
        case Length::kLong:
            return is_integer || is_floating_point;
        case Length::kLongDouble:
            return is_floating_point;
        default:
            return is_integer;
    }
}

bool PutArgument(Output& output, const Conversion& conversion, Arguments& arguments)
{
    switch (conversion.kind) {
        case 'd':
        case 'i': {
            const intmax_t value = TakeSigned(conversion.length, arguments);
            if (conversion.grouped) {
                return PutBySystem(output, conversion, "j", value);
            }
            const auto bits = static_cast<uintmax_t>(value);
            PutInteger(output, conversion, value < 0, value < 0 ? 0 - bits : bits);
            return true;
        }
        case 'u':
        case 'o':
        case 'x':
        case 'X': {
            const uintmax_t value = TakeUnsigned(conversion.length, arguments);
            if (conversion.grouped) {
                return PutBySystem(output, conversion, "j", value);
            }
            PutInteger(output, conversion, false, value);
            return true;
        }
        case 's':
            PutString(output, conversion, va_arg(arguments.list, const char*));
            return true;
        case 'c': {
            const char c = static_cast<char>(va_arg(arguments.list, int));
            PutPadded(output, conversion, {&c, 1});
            return true;
        }
        case 'p':
            return PutBySystem(output, conversion, "", va_arg(arguments.list, void*));
        case 'a':
        case 'A':
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
            return conversion.length == Length::kLongDouble
                       ? PutBySystem(output, conversion, "L", va_arg(arguments.list, long double))
                       : PutBySystem(output, conversion, "", va_arg(arguments.list, double));
        case '%':
            output.Append('%');
            return true;
        default:
            return false;
    }
}

// Does the conversion at `at`, which follows a '%'. Returns its end, or null if it is not
// supported.
__attribute__((noinline)) const char* PutConversion(Output& output, const char* at,
                                                    Arguments& arguments, int error)
{
    Conversion conversion;
    at = ParseFlags(at, conversion);
    at = ParseWidth(at, conversion, arguments);
    at = ParsePrecision(at, conversion, arguments);
    at = ParseLength(at, conversion.length);
    conversion.kind = *at;
    if (!SupportsLength(conversion)) {
        return nullptr;
    }
    if (conversion.kind == 'm') {
        char buffer[64];
        PutString(output, conversion, DescribeError(error, buffer, sizeof buffer));
        return at + 1;
    }
    return PutArgument(output, conversion, arguments) ? at + 1 : nullptr;
}

const char* PutAll(Output& output, const char* format, Arguments& arguments, int error)
{
    for (const char* at = format;;) {
        const char* const literal = at;
        while (*at != '\0' && *at != '%') {
            ++at;
        }
        output.Append(literal, static_cast<std::size_t>(at - literal));
        if (*at == '\0') {
            return at;
        }
        ++at;
        // The conversions of almost all records.
        if (*at == 'd') {
            PutInt(output, va_arg(arguments.list, int));
            ++at;
        } else if (*at == 's') {
            const char* const text = va_arg(arguments.list, const char*);
            if (text != nullptr) {
                output.Append(text, strlen(text));
            } else {
                output.Append("(null)", 6);
            }
            ++at;
        } else {
            at = PutConversion(output, at, arguments, error);
            if (at == nullptr) {
                return nullptr;
            }
        }
    }
}

}  // namespace

std::size_t FormatText(char* out, std::size_t space, const char* format, va_list arguments,
                       int error)
{
    Output output(out, space);
    Arguments copy;
    va_copy(copy.list, arguments);
    const bool formatted = PutAll(output, format, copy, error) != nullptr;
    va_end(copy.list);
    return formatted ? output.Size() : kUnformattable;
}

}  // namespace qv7log
