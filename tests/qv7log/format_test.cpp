#include "qv7log/format.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <climits>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

using qv7log::kUnformattable;

namespace {

// The formats are built at run time.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

std::string Ours(const char* format, ...)
{
    static char text[qv7log::kMaxWidth * 2];
    va_list arguments;
    va_start(arguments, format);
    const std::size_t size = qv7log::FormatText(text, sizeof text, format, arguments, ENOENT);
    va_end(arguments);
    return size == kUnformattable ? "unformattable" : std::string(text, size);
}

std::string Systems(const char* format, ...)
{
    static char text[qv7log::kMaxWidth * 2];
    va_list arguments;
    va_start(arguments, format);
    const int size = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return size < 0 ? "unformattable" : std::string(text, static_cast<std::size_t>(size));
}

// All flags, widths and precisions that `kind` allows, as in "%-+8.3".
std::vector<std::string> Prefixes(const std::string& flags)
{
    std::vector<std::string> prefixes;
    for (unsigned chosen = 0; chosen < 1U << flags.size(); ++chosen) {
        std::string prefix = "<%";
        for (std::size_t i = 0; i < flags.size(); ++i) {
            if ((chosen >> i & 1) != 0) {
                prefix += flags[i];
            }
        }
        for (const char* const width : {"", "1", "7", "30"}) {
            for (const char* const precision : {"", ".", ".0", ".1", ".5", ".25"}) {
                prefixes.push_back(prefix + width + precision);
            }
        }
    }
    return prefixes;
}

template <typename Value>
void ExpectSameAsSystem(const std::string& flags, const std::string& kind,
                        std::initializer_list<Value> values)
{
    for (const std::string& prefix : Prefixes(flags)) {
        const std::string format = prefix + kind + ">";
        for (const Value value : values) {
            ASSERT_EQ(Ours(format.c_str(), value), Systems(format.c_str(), value)) << format;
        }
    }
}

TEST(FormatText, ConvertsIntegersAsTheSystemDoes)
{
    ExpectSameAsSystem("-+ 0", "d", {0, 1, -1, 9, 10, 12345, INT_MAX, INT_MIN});
    ExpectSameAsSystem("-+ 0", "hhi", {0, 127, 128, -1});
    ExpectSameAsSystem("-+ 0", "hd", {0, 32767, 32768, -1});
    ExpectSameAsSystem("-+ 0", "ld", {0L, LONG_MAX, LONG_MIN});
    ExpectSameAsSystem("-+ 0", "lld", {0LL, LLONG_MAX, LLONG_MIN});
    ExpectSameAsSystem("-+ 0", "jd", {intmax_t{0}, INTMAX_MIN});
    ExpectSameAsSystem("-+ 0", "zd", {ssize_t{0}, SSIZE_MAX});
    ExpectSameAsSystem("-+ 0", "td", {ptrdiff_t{0}, PTRDIFF_MIN});
    ExpectSameAsSystem("-0", "u", {0U, 1U, UINT_MAX});
    ExpectSameAsSystem("-0", "hhu", {0U, 255U, 256U});
    ExpectSameAsSystem("-0", "hu", {0U, 65535U, 65536U});
    for (const char* const kind : {"o", "x", "X"}) {
        ExpectSameAsSystem("-0#", kind, {0U, 1U, 7U, 8U, 255U, UINT_MAX});
        ExpectSameAsSystem("-0#", std::string("ll") + kind, {0ULL, ULLONG_MAX});
        ExpectSameAsSystem("-0#", std::string("z") + kind, {size_t{0}, SIZE_MAX});
    }
    ExpectSameAsSystem("'", "d", {1234567, -1});
}

TEST(FormatText, ConvertsTextAsTheSystemDoes)
{
    ExpectSameAsSystem("-", "s", {"", "a", "0123456789", "\xff\x01"});
    for (const char* const format : {"%c", "%5c", "%-5c", "%%", "%5d%%%-5d|"}) {
        EXPECT_EQ(Ours(format, 'x', 'y'), Systems(format, 'x', 'y')) << format;
    }
    const char not_terminated[] = {'a', 'b'};
    EXPECT_EQ(Ours("%.2s", not_terminated), "ab");
    EXPECT_EQ(Ours("%.*s|%.*s", 1, "ab", -1, "ab"), "a|ab");
    EXPECT_EQ(Ours("%*d|%*d", 4, 1, -4, 2), "   1|2   ");
    EXPECT_EQ(Ours("%*s", INT_MIN + 0, "x").size(), qv7log::kMaxWidth);
    const char* const null = nullptr;
    EXPECT_EQ(Ours("%s|%.5s|%8s", null, null, null), "(null)||  (null)");
}

TEST(FormatText, ConvertsFloatingPointNumbersAndPointersAsTheSystemDoes)
{
    for (const char* const kind : {"f", "e", "g", "G", "E", "a", "F"}) {
        ExpectSameAsSystem("-+ 0#", kind, {0.0, -0.0, 1.5, -123456.789, 1e300, 1e-300});
        ExpectSameAsSystem("-0", std::string("L") + kind, {1.5L, -1e100L});
        ExpectSameAsSystem("", std::string("l") + kind, {1.5});
    }
    int object = 0;
    EXPECT_EQ(Ours("%p|%20p|%-20p", &object, &object, nullptr),
              Systems("%p|%20p|%-20p", &object, &object, nullptr));
}

TEST(FormatText, DescribesTheGivenErrorInEnglish)
{
    EXPECT_EQ(Ours("<%m>"), "<No such file or directory>");
    EXPECT_EQ(Ours("<%30m|%-30m|%.7m>"),
              "<     No such file or directory|No such file or directory     |No such>");
}

TEST(FormatText, RefusesWhatIsNotSupported)
{
    for (const char* const format : {"%ls", "%lc", "%n", "%1$d", "%", "%5", "%.", "%l", "%q"}) {
        EXPECT_EQ(Ours(format, 1, 2), "unformattable") << format;
    }
}

TEST(FormatText, RefusesLengthsThatAreUndefinedForTheConversion)
{
    struct Row
    {
        const char* length;
        std::string kinds;
    };
    const std::string floating_point = "aAeEfFgG";
    const std::string others = "cspm%";
    const Row rows[] = {
        {"L", "diouxX" + others},        {"l", others},
        {"hh", floating_point + others}, {"h", floating_point + others},
        {"ll", floating_point + others}, {"j", floating_point + others},
        {"z", floating_point + others},  {"t", floating_point + others},
    };
    for (const Row& row : rows) {
        for (const char kind : row.kinds) {
            const std::string format = std::string("%") + row.length + kind;
            EXPECT_EQ(Ours(format.c_str(), 1LL), "unformattable") << format;
        }
    }
}

TEST(FormatText, LimitsWidthsAndThePrecisionOfNumbers)
{
    for (const char* const format : {"%*d", "%*u", "%*s", "%-*d", "%0*d", "%*f", "%.*d", "%.*f"}) {
        const bool is_double = strchr(format, 'f') != nullptr;
        const bool is_text = strchr(format, 's') != nullptr;
        const std::string text = is_double ? Ours(format, 2000000000, 1.0)
                                 : is_text ? Ours(format, 2000000000, "x")
                                           : Ours(format, 2000000000, 1);
        EXPECT_GE(text.size(), qv7log::kMaxWidth) << format;
        EXPECT_LE(text.size(), qv7log::kMaxWidth + 2) << format;
    }
    EXPECT_EQ(Ours("%99999999999999999999d", 1).size(), qv7log::kMaxWidth);
}

TEST(FormatText, CountsTheWholeTextAndWritesOnlyWhatFits)
{
    const auto format = [](char* out, std::size_t space, const char* text, ...) {
        va_list arguments;
        va_start(arguments, text);
        const std::size_t size = qv7log::FormatText(out, space, text, arguments, 0);
        va_end(arguments);
        return size;
    };
    const std::string whole = Systems("%s-%5d-%.3f-%c", "text", 42, 1.5, 'x');
    for (std::size_t space = 1; space <= whole.size() + 2; ++space) {
        std::string text(space + 1, '#');
        EXPECT_EQ(format(text.data(), space, "%s-%5d-%.3f-%c", "text", 42, 1.5, 'x'), whole.size());
        const std::size_t kept = std::min(space - 1, whole.size());
        // The byte of the NUL that snprintf writes does not count.
        EXPECT_EQ(text.substr(0, kept), whole.substr(0, kept)) << space;
        EXPECT_EQ(text[space], '#') << space;
    }
}

#pragma GCC diagnostic pop

}  // namespace
