#include <gtest/gtest.h>

#include <climits>
#include <cwchar>
#include <locale>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/allocation_limit.h"
#include "tests/support/never_returns.h"
#include "tests/support/wide.h"
#include "util/string_util.h"

namespace {

struct Edit
{
    std::string text, pattern, replacement, result;
};

void ExpectReplaceAll(const std::vector<Edit>& edits)
{
    for (const Edit& e : edits) {
        std::string narrow = e.text;
        replace_all(narrow, e.pattern, e.replacement);
        EXPECT_EQ(narrow, e.result) << e.text << ": " << e.pattern << " by " << e.replacement;
        std::wstring wide = Wide(e.text);
        replace_all(wide, Wide(e.pattern), Wide(e.replacement));
        EXPECT_EQ(wide, Wide(e.result)) << e.text << ", wide";
    }
}

// While an object exists, only the letter "x" is white space in the global C++ locale.
class OtherWhiteSpace
{
public:
    OtherWhiteSpace() : m_before(std::locale::global(std::locale(std::locale(), new Letters))) {}
    ~OtherWhiteSpace() { std::locale::global(m_before); }
    OtherWhiteSpace(const OtherWhiteSpace&) = delete;
    OtherWhiteSpace& operator=(const OtherWhiteSpace&) = delete;

private:
    struct Letters : std::ctype<char>
    {
        Letters() : std::ctype<char>(Table()) {}
        static const mask* Table()
        {
            static mask table[table_size] = {};
            table[static_cast<unsigned char>('x')] = space;
            return table;
        }
    };

    const std::locale m_before;
};

}  // namespace

TEST(Trim, RemovesWhiteSpaceAtBothEndsOnly)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {" \t\r\n\v\f", ""},
        {"a", "a"},
        {"  a b  ", "a b"},
        {"\n\v\f\r\t a\t b \t\r\f\v\n", "a\t b"},
        {" a", "a"},
        {"a ", "a"},
    };
    for (const auto& [text, trimmed] : cases) {
        std::string edited = text;
        trim(edited);
        EXPECT_EQ(edited, trimmed) << '"' << text << '"';
    }
}

TEST(Trim, RemovesNothingButTheSixCharactersOfTheClassicLocale)
{
    for (int c = 0; c <= 0xFF; ++c) {
        const std::string text(2, static_cast<char>(c));
        std::string edited = text;
        const bool is_space = c == ' ' || (c >= '\t' && c <= '\r');
        EXPECT_EQ(trim(edited), is_space ? "" : text) << c;
    }
}

TEST(Trim, DoesNotDependOnTheLocale)
{
    const OtherWhiteSpace guard;
    std::string text = " xax ";
    EXPECT_EQ(trim(text), "xax");
}

TEST(Trim, KeepsANulAndTheTextAfterIt)
{
    std::string text(" a\0 b ", 6);
    EXPECT_EQ(trim(text), std::string("a\0 b", 4));
}

TEST(Trim, ReturnsTheSameString)
{
    std::string text = " a ";
    EXPECT_EQ(&trim(text), &text);
}

TEST(EndsWith, ComparesTheLastBytesCaseSensitively)
{
    const struct
    {
        std::string text, suffix;
        bool result;
    } cases[] = {
        {"abc", "", true},          {"", "", true},        {"", "a", false},
        {"abc", "bc", true},        {"abc", "BC", false},  {"abc", "abc", true},
        {"abc", "xabc", false},     {"abc", "ab", false},  {"abc", "xc", false},
        {"\xC3\xA9", "\xA9", true}, {"aXc", "abc", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ends_with(c.text, c.suffix), c.result) << c.text << " ends with " << c.suffix;
    }
    EXPECT_FALSE(ends_with("abc", std::string("\0abc", 4)));
    EXPECT_FALSE(ends_with(std::string("a\0b", 3), std::string("x\0b", 3)));
    EXPECT_TRUE(ends_with(std::string("a\0b", 3), std::string("\0b", 2)));
}

TEST(ReplaceAll, ReplacesEveryOccurrenceByOneOfTheSameLength)
{
    ExpectReplaceAll({
        {"", "a", "b", ""},
        {"a.b.c", ".", "/", "a/b/c"},
        {"aaa", "aa", "bb", "bba"},
        {"abc", "abc", "xyz", "xyz"},
        {"abc", "B", "x", "abc"},
        {"aXa", "a", "A", "AXA"},
        {std::string("a\0b", 3), std::string("\0", 1), "-", "a-b"},
    });
}

TEST(ReplaceAll, SkipsOccurrencesRightAfterAShorterReplacement)
{
    ExpectReplaceAll({
        {"aaaa", "aa", "b", "baa"},
        {"ababab", "ab", "", "ab"},
        {"abcab", "ab", "", "cab"},
        {"abccab", "ab", "", "cc"},
        {"aab", "aab", "", ""},
    });
}

TEST(ReplaceAll, ReplacesAgainInsideALongerReplacement)
{
    ExpectReplaceAll({
        {"aaa", "aa", "bba", "bbbba"},
        {"ab", "ab", "xab", "xab"},
        {"a.b", ".", "::", "a::b"},
    });
}

TEST(ReplaceAll, TreatsACodePointAboveFFFFAsOneUnit)
{
    std::wstring text = L"A\U00010041A";
    replace_all(text, L"A", L"\U0001F600");
    EXPECT_EQ(text, L"\U0001F600\U00010041\U0001F600");
}

// Callers must not pass these. A guard would define a result where there is none.
TEST(ReplaceAll, NeverEndsForAReplacementThatKeepsContainingThePattern)
{
    const AllocationLimit limit(20'000);
    std::string text = "a";
    EXPECT_THROW(replace_all(text, "a", "aa"), std::bad_alloc);
    std::wstring wide = L"a";
    EXPECT_THROW(replace_all(wide, L"a", L"aa"), std::bad_alloc);
}

TEST(ReplaceAll, NeverEndsForAnEmptyPattern)
{
    {
        const AllocationLimit limit(20'000);
        std::string text = "a";
        EXPECT_THROW(replace_all(text, "", "x"), std::bad_alloc);
        std::wstring wide = L"a";
        EXPECT_THROW(replace_all(wide, L"", L"x"), std::bad_alloc);
    }
    EXPECT_TRUE(NeverReturns([] {
        std::string text = "a";
        replace_all(text, "", "");
    }));
}

TEST(StringFormat, FormatsItsArguments)
{
    EXPECT_EQ(string_format("%d-%s", 7, "x"), "7-x");
    EXPECT_EQ(string_format("plain 100%%"), "plain 100%");
    EXPECT_EQ(string_format("%5.2f|%-4d|%04x|%lld|%c", 3.14159, 7, 0xABu, -1099511627776, 'z'),
              " 3.14|7   |00ab|-1099511627776|z");
    EXPECT_EQ(string_format(""), "");
}

TEST(StringFormat, GivesAResultOfAnyLengthWhole)
{
    for (const std::size_t length : {127u, 128u, 1023u, 1024u, 4096u, 100000u}) {
        const std::string text(length, 'x');
        EXPECT_EQ(string_format("%s|%d", text.c_str(), 42), text + "|42");
    }
}

TEST(StringFormat, ThrowsWithoutAllocatingWhenTheSizeExceedsIntMax)
{
    const AllocationLimit limit(std::size_t{1} << 30);
    EXPECT_THROW(string_format("%*s%*s", 1 << 30, "", INT_MAX - (1 << 30), ""), std::bad_alloc);
    EXPECT_EQ(limit.refused(), 0);
}

TEST(StringFormat, EndsAtANul)
{
    EXPECT_EQ(string_format("%c", 0).size(), 0u);
    EXPECT_EQ(string_format("a%cb", 0), "a");
    EXPECT_EQ(string_format(std::string("a\0b", 3)), "a");
}

TEST(StringFormat, IsEmptyForAFormatThatVsnprintfRejects)
{
    // The "C" locale cannot encode this character.
    EXPECT_EQ(string_format("a%lcb", static_cast<std::wint_t>(0x20AC)), "");
}
