#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "tests/support/all_texts.h"
#include "tests/support/wide.h"
#include "tests/support/wildcard_reference.h"
#include "util/util.h"

namespace {

struct Case
{
    std::string expression, name;
    bool matches;
};

// Checks both forms, with and without case folding. Case must not matter in the tables.
void ExpectMatches(const std::vector<Case>& cases)
{
    for (const Case& c : cases) {
        const std::wstring expression = Wide(c.expression);
        const std::wstring name = Wide(c.name);
        for (const bool ignore_case : {false, true}) {
            EXPECT_EQ(IsNameInExpressionA(c.expression.c_str(), c.name.c_str(), ignore_case),
                      c.matches)
                << c.expression << " on " << c.name;
            EXPECT_EQ(IsNameInExpression(expression.c_str(), name.c_str(), ignore_case), c.matches)
                << c.expression << " on " << c.name << ", wide";
        }
    }
}

constexpr char kExpressionLetters[] = "*?<>\".aAb";
constexpr char kNameLetters[] = ".aAb";

std::string RandomText(std::mt19937& random, const std::string& letters, std::size_t length)
{
    std::string text(random() % (length + 1), '\0');
    std::generate(text.begin(), text.end(), [&] { return letters[random() % letters.size()]; });
    return text;
}

// A page of memory followed by an unreadable one. With a text at the end of the page, any read past
// its NUL crashes.
class EdgeOfMemory
{
public:
    EdgeOfMemory()
        : m_size(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
          m_page(static_cast<char*>(
              mmap(nullptr, 2 * m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0)))
    {
        mprotect(m_page + m_size, m_size, PROT_NONE);
    }
    ~EdgeOfMemory() { munmap(m_page, 2 * m_size); }
    EdgeOfMemory(const EdgeOfMemory&) = delete;
    EdgeOfMemory& operator=(const EdgeOfMemory&) = delete;

    const char* Put(const std::string& text)
    {
        char* place = m_page + m_size - text.size() - 1;
        std::memcpy(place, text.c_str(), text.size() + 1);
        return place;
    }

private:
    const std::size_t m_size;
    char* const m_page;
};

}  // namespace

TEST(IsNameInExpression, ComparesTheWholeName)
{
    ExpectMatches({
        {"", "", true},
        {"", "a", false},
        {"a", "", false},
        {"abc", "abc", true},
        {"abc", "abcd", false},
        {"abcd", "abc", false},
    });
}

TEST(IsNameInExpression, MatchesAnyRunWithAStar)
{
    ExpectMatches({
        {"*", "", true},
        {"*", "abc", true},
        {"*", "a.b", true},
        {"**", "", true},
        {"*.txt", "a.txt", true},
        {"*.txt", ".txt", true},
        {"*.txt", "a.txt.txt", true},
        {"*.txt", "a.txt.b", false},
        {"a*", "a", true},
        {"a*b", "ab", true},
        {"a*b", "axxb", true},
        {"a*b", "a", false},
        {"a*b*c", "axbxcxc", true},
    });
}

TEST(IsNameInExpression, MatchesExactlyOneCharacterWithAQuestionMark)
{
    ExpectMatches({
        {"?", "a", true},
        {"?", ".", true},
        {"?", "", false},
        {"a?c", "abc", true},
        {"a?c", "ac", false},
        {"a?", "a", false},
    });
}

TEST(IsNameInExpression, MatchesOnlyAFinalStarPastTheName)
{
    ExpectMatches({
        {"a?*", "a", true},
        {"a>*", "a", true},
        {"a????*", "a", true},
        {"a?\"*", "a", true},
        {"a?**", "a", true},
        {"a?<*", "a", true},
        {"a?*<", "a", false},
        {"a?*b", "a", false},
        {"a?*?", "a", false},
        {"a?<", "a", false},
        {"a?\"", "a", false},
        {"a?>", "a", false},
        {"a?b*", "a", false},
    });
}

TEST(IsNameInExpression, MatchesUpToTheLastDotWithALess)
{
    ExpectMatches({
        {"<.b", "a.b", true},
        {"<.c", "a.b.c", true},
        {"<.b", ".b", true},
        {"<b.c", "a.b.c", true},
        {"<a", "a.a", false},
        {"a<.b", "a.b", true},
        {"<", "a.b", false},
        {"<", "a.", false},
        {"<*", "a.b", true},
    });
}

TEST(IsNameInExpression, MatchesNothingWithALessAtTheStartOfANameWithoutADot)
{
    ExpectMatches({
        {"<", "", true},
        {"<", "abc", false},
        {"<abc", "abc", true},
        {"<c", "abc", false},
        {"*<", "abc", true},
    });
}

TEST(IsNameInExpression, MatchesAnyRunWithALessLaterInANameWithoutADot)
{
    ExpectMatches({
        {"a<", "abc", true},
        {"a<c", "abc", true},
        {"a<", "a", true},
        {"a.<", "a.bc", true},
        {"a.<c", "a.bc", true},
    });
}

TEST(IsNameInExpression, StopsAtTheLastDotWithAGreater)
{
    ExpectMatches({
        {"a>", "ab", true},
        {"a>", "a", false},
        {"a>b", "a.b", false},
        {"a>.b", "a.b", true},
        {"a>b.c", "a.b.c", true},
        {"a>", "a.", false},
        {"a>.", "a.", true},
    });
}

TEST(IsNameInExpression, MatchesADotOrNothingWithAQuote)
{
    ExpectMatches({
        {"a\"b", "ab", true},
        {"a\"b", "a.b", true},
        {"a\"b", "a..b", false},
        {"a\"b", "axb", false},
        {"a\"", "a", true},
        {"a\"", "a.", true},
        {"\"", "", true},
    });
}

TEST(IsNameInExpression, HasNoEscapeCharacterAndNoSpecialCharactersInTheName)
{
    ExpectMatches({
        {"\\*", "\\abc", true},
        {"\\*", "*", false},
        {"a*", "a?<>\"*", true},
        {"a", "*", false},
        {"[a]", "a", false},
    });
}

TEST(IsNameInExpression, FoldsTheLettersAToZOnlyWhenAsked)
{
    EXPECT_FALSE(IsNameInExpressionA("*.txt", "A.TXT", false));
    EXPECT_TRUE(IsNameInExpressionA("*.txt", "A.TXT", true));
    for (wchar_t a = 1; a < 0x250; ++a) {
        if (std::wcschr(L"*?<>\"", a) != nullptr) {
            continue;
        }
        for (wchar_t b = 1; b < 0x250; ++b) {
            const bool are_twins =
                (a | 0x20) == (b | 0x20) && (a | 0x20) >= L'a' && (a | 0x20) <= L'z';
            const wchar_t expression[] = {a, L'\0'};
            const wchar_t name[] = {b, L'\0'};
            ASSERT_EQ(IsNameInExpression(expression, name, false), a == b) << a << " and " << b;
            ASSERT_EQ(IsNameInExpression(expression, name, true), a == b || are_twins)
                << a << " and " << b;
        }
    }
}

TEST(IsNameInExpressionA, DoesNotFoldBytesOutsideAscii)
{
    for (int a = 0x80; a <= 0xFF; ++a) {
        for (int b = 1; b <= 0xFF; ++b) {
            const char expression[] = {static_cast<char>(a), '\0'};
            const char name[] = {static_cast<char>(b), '\0'};
            ASSERT_EQ(IsNameInExpressionA(expression, name, true), a == b) << a << " and " << b;
        }
    }
}

TEST(IsNameInExpression, ComparesWholeUnits)
{
    EXPECT_FALSE(IsNameInExpression(L"\U0001042A", L"abc", false));  // The low bits are "*".
    EXPECT_FALSE(IsNameInExpression(L"\U00010041", L"A", false));
    EXPECT_TRUE(IsNameInExpression(L"?\U00010041*", L"\U0001F600\U00010041", false));
}

TEST(IsNameInExpression, AgreesWithTheReferenceOnAllShortPairs)
{
    const std::vector<std::string> expressions = AllTexts(kExpressionLetters, 4);
    const std::vector<std::wstring> wide_expressions = Wide(expressions);
    for (const std::string& name : AllTexts(kNameLetters, 4)) {
        const std::wstring wide_name = Wide(name);
        for (const bool ignore_case : {false, true}) {
            const WildcardReference reference(name, ignore_case);
            for (std::size_t i = 0; i < expressions.size(); ++i) {
                const bool expected = reference.Matches(expressions[i]);
                ASSERT_EQ(IsNameInExpressionA(expressions[i].c_str(), name.c_str(), ignore_case),
                          expected)
                    << expressions[i] << " on " << name << ", folded: " << ignore_case;
                ASSERT_EQ(
                    IsNameInExpression(wide_expressions[i].c_str(), wide_name.c_str(), ignore_case),
                    expected)
                    << expressions[i] << " on " << name << ", wide, folded: " << ignore_case;
            }
        }
    }
}

TEST(IsNameInExpression, AgreesWithTheReferenceOnLongerPairs)
{
    std::mt19937 random(1);
    int matches = 0;
    for (int i = 0; i < 200000; ++i) {
        const std::string expression = RandomText(random, kExpressionLetters, 9);
        const std::string name = RandomText(random, kNameLetters, 10);
        const bool expected = WildcardReference(name, true).Matches(expression);
        ASSERT_EQ(IsNameInExpressionA(expression.c_str(), name.c_str(), true), expected)
            << expression << " on " << name;
        matches += expected;
    }
    EXPECT_GT(matches, 10000);
}

TEST(IsNameInExpression, ReadsNothingPastTheEndOfTheTexts)
{
    EdgeOfMemory name_edge;
    EdgeOfMemory expression_edge;
    const char* name = name_edge.Put("a.b");
    for (const std::string& expression : AllTexts("*?<>\"b", 5)) {
        const char* end_of_expression = expression_edge.Put(expression);
        EXPECT_EQ(IsNameInExpressionA(end_of_expression, name, false),
                  WildcardReference("a.b", false).Matches(expression))
            << expression;
    }
}
