#include <gtest/gtest.h>

#include <cctype>
#include <functional>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/all_texts.h"
#include "tests/support/wide.h"
#include "util/string_util.h"

namespace {

using Tokens = std::vector<std::string>;
using WideTokens = std::vector<std::wstring>;

struct Case
{
    std::string text;
    Tokens tokens;
};

constexpr wchar_t kGrin[] = L"\U0001F600";     // The low 16 bits of these two are other
constexpr wchar_t kLinearA[] = L"\U00010041";  // characters: U+F600 and "A".

std::string Same(std::string& token)
{
    return token;
}

std::wstring WideSame(std::wstring& token)
{
    return token;
}

void ExpectSplit(const std::string& separator, const std::vector<Case>& cases)
{
    const std::regex narrow(separator);
    const std::wregex wide(Wide(separator));
    for (const Case& c : cases) {
        EXPECT_EQ(split(c.text, narrow), c.tokens) << '"' << c.text << "\" at " << separator;
        EXPECT_EQ(split(Wide(c.text), wide), Wide(c.tokens)) << '"' << c.text << "\", wide";
    }
}

void ExpectSplitDelim(const std::string& delimiters, const std::vector<Case>& cases)
{
    for (const Case& c : cases) {
        EXPECT_EQ(split_delim(c.text, delimiters, Same), c.tokens) << '"' << c.text << '"';
        EXPECT_EQ(split_delim(Wide(c.text), Wide(delimiters), WideSame), Wide(c.tokens))
            << '"' << c.text << "\", wide";
    }
}

void ExpectTokenizeLines(char delimiter, const std::vector<Case>& cases)
{
    for (const Case& c : cases) {
        EXPECT_EQ(tokenize(c.text, delimiter, Same), c.tokens) << '"' << c.text << '"';
        EXPECT_EQ(tokenize(Wide(c.text), static_cast<wchar_t>(delimiter), WideSame), Wide(c.tokens))
            << '"' << c.text << "\", wide";
    }
}

void ExpectTokenizeAt(const std::string& delimiter, const std::vector<Case>& cases)
{
    for (const Case& c : cases) {
        EXPECT_EQ(tokenize(c.text, delimiter, Same), c.tokens) << '"' << c.text << '"';
        EXPECT_EQ(tokenize(Wide(c.text), Wide(delimiter), WideSame), Wide(c.tokens))
            << '"' << c.text << "\", wide";
    }
}

}  // namespace

TEST(Split, KeepsLeadingAndInteriorButNoTrailingEmptyPieces)
{
    const std::vector<Case> cases = {
        {"", {""}},           {"a", {"a"}},        {"/a/b", {"", "a", "b"}},
        {"/a/", {"", "a"}},   {"a/b", {"a", "b"}}, {"a//b", {"a", "", "b"}},
        {"a/b/", {"a", "b"}}, {"a//", {"a", ""}},  {"/", {""}},
        {"//", {"", ""}},
    };
    ExpectSplit("/", cases);
}

TEST(Split, SplitsAKeyLineAtEveryEqualsSign)
{
    const std::vector<Case> cases = {
        {"key=value", {"key", "value"}}, {"key=", {"key"}},          {"=value", {"", "value"}},
        {"key==x", {"key", "", "x"}},    {"k=v=w", {"k", "v", "w"}}, {"a line", {"a line"}},
    };
    ExpectSplit("=", cases);
}

TEST(Split, TreatsTheLongestMatchAsOneSeparator)
{
    const std::vector<Case> cases = {
        {"a,;b", {"a", "b"}},
        {";,a", {"", "a"}},
        {"a,,", {"a"}},
        {",;,", {""}},
    };
    ExpectSplit("[,;]+", cases);
}

TEST(Split, SplitsBetweenAllCharactersAtEmptyMatches)
{
    ExpectSplit("", {{"", {""}}, {"abc", {"", "a", "b", "c"}}});
    ExpectSplit("x*", {{"", {""}}, {"axb", {"", "a", "", "b"}}});
}

TEST(Split, AgreesWithTheStandardTokenIteration)
{
    for (const char* expression : {"/", "a+", "/|b", "(a)(b)?", "^a", "b$", "[^a]", "aba"}) {
        const std::regex separator(expression);
        for (const std::string& text : AllTexts("ab/", 6)) {
            const std::sregex_token_iterator first(text.begin(), text.end(), separator, -1);
            EXPECT_EQ(split(text, separator), Tokens(first, std::sregex_token_iterator()))
                << text << " at " << expression;
        }
    }
}

TEST(Split, ContinuesAfterANul)
{
    const std::string text("a\0b/c", 5);
    EXPECT_EQ(split(text, std::regex("/")), (Tokens{std::string("a\0b", 3), "c"}));
    EXPECT_EQ(split(Wide(text), std::wregex(L"/")), (WideTokens{std::wstring(L"a\0b", 3), L"c"}));
}

TEST(Split, TreatsACodePointAboveFFFFAsOneUnit)
{
    const std::wstring text = std::wstring(L"A") + kGrin + kLinearA;
    EXPECT_EQ(split(text, std::wregex(kGrin)), (WideTokens{L"A", kLinearA}));
    EXPECT_EQ(split(text, std::wregex(L"A")), (WideTokens{L"", text.substr(1)}));
}

TEST(SplitDelim, NeverGivesAnEmptyToken)
{
    const std::vector<Case> cases = {
        {"", {}},      {",,,", {}},   {"a", {"a"}},         {"a,b", {"a", "b"}},
        {"a,", {"a"}}, {",a", {"a"}}, {"a,,b", {"a", "b"}},
    };
    ExpectSplitDelim(",", cases);
}

TEST(SplitDelim, SplitsAtEveryCharacterOfTheSetInAnyOrder)
{
    const std::vector<Case> cases = {{",,a,b;;c,", {"a", "b", "c"}}, {";,", {}}, {"ab", {"ab"}}};
    ExpectSplitDelim(",;", cases);
    ExpectSplitDelim(";,", cases);
}

TEST(SplitDelim, ReturnsTextWithoutDelimitersWhole)
{
    ExpectSplitDelim("", {{"", {}}, {"a,b", {"a,b"}}});
}

TEST(SplitDelim, TreatsANulLikeAnyOtherCharacter)
{
    ExpectSplitDelim(",", {{std::string("a\0,b", 4), {std::string("a\0", 2), "b"}}});
    ExpectSplitDelim(std::string("\0", 1), {{std::string("a\0b", 3), {"a", "b"}}});
}

TEST(SplitDelim, TreatsACodePointAboveFFFFAsOneUnit)
{
    const std::wstring text = std::wstring(L"A") + kGrin + kLinearA;
    EXPECT_EQ(split_delim(text, kGrin, WideSame), (WideTokens{L"A", kLinearA}));
    EXPECT_EQ(split_delim(text, L"A\uF600", WideSame), (WideTokens{text.substr(1)}));
}

TEST(TokenizeLines, KeepsEveryEmptyTokenExceptATrailingOne)
{
    const std::vector<Case> cases = {
        {"", {}},
        {"a", {"a"}},
        {"a,b", {"a", "b"}},
        {",a", {"", "a"}},
        {"a,,b", {"a", "", "b"}},
        {"a,", {"a"}},
        {"a,,", {"a", ""}},
        {",", {""}},
        {",,", {"", ""}},
    };
    ExpectTokenizeLines(',', cases);
}

TEST(TokenizeLines, EndsALineOnlyAtTheDelimiter)
{
    ExpectTokenizeLines(',', {{" a\nb ,\n", {" a\nb ", "\n"}}});
    ExpectTokenizeLines('\n', {{" a,b \n\n", {" a,b ", ""}}});
}

TEST(TokenizeLines, TreatsANulLikeAnyOtherCharacter)
{
    ExpectTokenizeLines(',', {{std::string("a\0,b", 4), {std::string("a\0", 2), "b"}}});
    ExpectTokenizeLines('\0', {{std::string("a\0b", 3), {"a", "b"}}});
}

TEST(TokenizeLines, SplitsAtAByteThatIsNegativeAsAChar)
{
    EXPECT_EQ(tokenize("a\xFF\xFE"
                       "b",
                       '\xFF', Same),
              (Tokens{"a",
                      "\xFE"
                      "b"}));
}

TEST(TokenizeLines, TreatsACodePointAboveFFFFAsOneUnit)
{
    const std::wstring text = std::wstring(L"A") + kGrin + kLinearA;
    EXPECT_EQ(tokenize(text, kGrin[0], WideSame), (WideTokens{L"A", kLinearA}));
    EXPECT_EQ(tokenize(text, L'\uF600', WideSame), (WideTokens{text}));
}

TEST(TokenizeAt, KeepsEveryEmptyToken)
{
    const std::vector<Case> cases = {
        {"", {""}},
        {"::", {"", ""}},
        {"a", {"a"}},
        {"a::b", {"a", "b"}},
        {"::a", {"", "a"}},
        {"a::", {"a", ""}},
        {"a::::b", {"a", "", "b"}},
    };
    ExpectTokenizeAt("::", cases);
}

// Callers must not pass it. A guard would define a result where there is none.
TEST(TokenizeAt, NeverEndsForAnEmptyDelimiter)
{
    int calls = 0;
    const auto fail_at_last = [&calls](const auto& token) {
        EXPECT_TRUE(token.empty());
        if (++calls == 1000) {
            throw std::length_error("the thousandth token");
        }
        return token;
    };
    EXPECT_THROW(tokenize("abc", std::string(), fail_at_last), std::length_error);
    calls = 0;
    EXPECT_THROW(tokenize(L"abc", std::wstring(), fail_at_last), std::length_error);
    EXPECT_EQ(calls, 1000);
}

TEST(TokenizeAt, FindsOccurrencesFromTheLeftWithoutOverlap)
{
    ExpectTokenizeAt("::", {{"a:::b", {"a", ":b"}}, {"a:b", {"a:b"}}});
}

TEST(TokenizeAt, ComparesTheDelimiterCaseSensitively)
{
    ExpectTokenizeAt("x", {{"aXbxc", {"aXb", "c"}}});
}

TEST(TokenizeAt, TreatsANulLikeAnyOtherCharacter)
{
    ExpectTokenizeAt(std::string("\0b", 2), {{std::string("a\0bc", 4), {"a", "c"}}});
}

TEST(TokenizeAt, TreatsACodePointAboveFFFFAsOneUnit)
{
    const std::wstring text = std::wstring(L"A") + kGrin + kLinearA;
    EXPECT_EQ(tokenize(text, std::wstring(kGrin), WideSame), (WideTokens{L"A", kLinearA}));
    EXPECT_EQ(tokenize(text, std::wstring(L"\uF600"), WideSame), (WideTokens{text}));
}

TEST(TokenTransform, ProducesTheStoredToken)
{
    const auto upper = [](std::string& token) {
        for (char& c : token) {
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        }
        return token;
    };
    EXPECT_EQ(split_delim("a,b", ",", upper), (Tokens{"A", "B"}));
    EXPECT_EQ(tokenize("a,b", ',', upper), (Tokens{"A", "B"}));
    EXPECT_EQ(tokenize("a,b", ",", upper), (Tokens{"A", "B"}));
}

TEST(TokenTransform, MayChangeTheTokenWithoutEffectOnTheResult)
{
    const auto constant = [](auto& token) {
        token.clear();
        return std::decay_t<decltype(token)>(1, 'x');
    };
    const Tokens narrow{"x", "x", "x"};
    EXPECT_EQ(split_delim("a,b,c", ",", constant), narrow);
    EXPECT_EQ(tokenize("a,b,c", ',', constant), narrow);
    EXPECT_EQ(tokenize("a,b,c", ",", constant), narrow);
    const WideTokens wide{L"x", L"x", L"x"};
    EXPECT_EQ(split_delim(L"a,b,c", L",", constant), wide);
    EXPECT_EQ(tokenize(L"a,b,c", L',', constant), wide);
    EXPECT_EQ(tokenize(L"a,b,c", L",", constant), wide);
}

TEST(TokenTransform, IsCalledOncePerTokenInOrder)
{
    const std::string text = "a,,b,";
    Tokens seen;
    const auto record = [&seen](std::string& token) {
        seen.push_back(token);
        return token;
    };
    split_delim(text, ",", record);
    EXPECT_EQ(seen, (Tokens{"a", "b"}));
    seen.clear();
    tokenize(text, ',', record);
    EXPECT_EQ(seen, (Tokens{"a", "", "b"}));
    seen.clear();
    tokenize(text, ",", record);
    EXPECT_EQ(seen, (Tokens{"a", "", "b", ""}));
}

TEST(TokenTransform, ThrowsAtTheFirstTokenWhenItIsEmpty)
{
    EXPECT_THROW(split_delim(",a", ",", nullptr), std::bad_function_call);
    EXPECT_THROW(tokenize(",a", ',', nullptr), std::bad_function_call);
    EXPECT_THROW(tokenize("", ",", nullptr), std::bad_function_call);
    EXPECT_THROW(split_delim(L",a", L",", nullptr), std::bad_function_call);
    EXPECT_THROW(tokenize(L",a", L',', nullptr), std::bad_function_call);
    EXPECT_THROW(tokenize(L"", L",", nullptr), std::bad_function_call);
}

TEST(TokenTransform, IsNotNeededWhenThereIsNoToken)
{
    EXPECT_EQ(split_delim("", ",", nullptr), Tokens());
    EXPECT_EQ(split_delim(",,,", ",", nullptr), Tokens());
    EXPECT_EQ(tokenize("", ',', nullptr), Tokens());
    EXPECT_EQ(split_delim(L"", L",", nullptr), WideTokens());
    EXPECT_EQ(split_delim(L",,,", L",", nullptr), WideTokens());
    EXPECT_EQ(tokenize(L"", L',', nullptr), WideTokens());
}

TEST(TokenTransform, PropagatesItsException)
{
    const auto fail_at_b = [](std::string& token) -> std::string {
        return token == "b" ? throw std::out_of_range("b") : token;
    };
    EXPECT_THROW(split_delim("a,b", ",", fail_at_b), std::out_of_range);
    EXPECT_THROW(tokenize("a,b", ',', fail_at_b), std::out_of_range);
    EXPECT_THROW(tokenize("a,b", ",", fail_at_b), std::out_of_range);
}
