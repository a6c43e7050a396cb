#include "tools/launchlist/base/text.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <string>
#include <vector>

#include "json/json_object.h"

using namespace launchlist;

namespace {

// Every single byte, and characters that terminals and browsers act on.
std::string Hostile()
{
    std::string text;
    for (int byte = 1; byte < 256; ++byte) {
        text += static_cast<char>(byte);
        text += ' ';
    }
    return text +
           "\u009b31m \u202e \u2066 \u200b \u2028 \ufeff \U000e0041 '\"\\ \xed\xa0\x80 \xc0\xaf";
}

// `word` as a POSIX shell reads it, printed with printf.
std::string AsShellReads(const std::string& word)
{
    const std::string script = "sh <<'END'\nexec printf '%s.' " + word + "\nEND";
    std::FILE* pipe = popen(script.c_str(), "r");
    std::string output;
    char chunk[256];
    while (const std::size_t count = std::fread(chunk, 1, sizeof chunk, pipe)) {
        output.append(chunk, count);
    }
    pclose(pipe);
    return output;
}

bool IsHarmless(const std::string& text)
{
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            return false;
        }
    }
    return is_utf8(text) && printable(text) == text;
}

}  // namespace

TEST(Printable, EscapesInvisibleCharacters)
{
    const struct
    {
        std::string text, escaped;
    } kTable[] = {
        {"", ""},
        {"plain \\ é€😀", "plain \\ é€😀"},
        {"a\nb\tc\rd", "a\\nb\\tc\\rd"},
        {std::string("a\0b", 3), "a\\x00b"},
        {"\x1b[31m", "\\x1b[31m"},
        {"\x7f", "\\x7f"},
        {"\u0080\u009f\u00a0", "\\u{80}\\u{9f}\u00a0"},
        {"\u202eabc", "\\u{202e}abc"},
        {"\U000e0041", "\\u{e0041}"},
        {"\xff\xc3", "\\xff\\xc3"},
        {"\xc0\xaf", "\\xc0\\xaf"},
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
        {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(printable(row.text), row.escaped);
    }
    EXPECT_TRUE(IsHarmless(printable(Hostile())));
}

TEST(Printable, HidesWholeRanges)
{
    const struct
    {
        const char *before, *first, *last, *after;
    } kTable[] = {
        {"~", "\x7f", "\u009f", "\u00a0"},
        {"\u00ac", "\u00ad", "\u00ad", "\u00ae"},
        {"\u061b", "\u061c", "\u061c", "\u061d"},
        {"\u180d", "\u180e", "\u180e", "\u180f"},
        {"\u200a", "\u200b", "\u200f", "\u2010"},
        {"\u2027", "\u2028", "\u202e", "\u202f"},
        {"\u205f", "\u2060", "\u206f", "\u2070"},
        {"\ufdff", "\ufe00", "\ufe0f", "\ufe10"},
        {"\ufefe", "\ufeff", "\ufeff", "\uff00"},
        {"\uffef", "\ufff0", "\ufffb", "\ufffc"},
        {"\U000dffff", "\U000e0000", "\U000e0fff", "\U000e1000"},
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(printable(row.before), row.before);
        EXPECT_EQ(printable(row.first)[0], '\\') << row.before;
        EXPECT_EQ(printable(row.last)[0], '\\') << row.before;
        EXPECT_EQ(printable(row.after), row.after);
    }
    EXPECT_EQ(printable("\x1f"), "\\x1f");
    EXPECT_EQ(printable(" "), " ");
}

TEST(Printable, AcceptsOnlyTheShortestFormOfACharacter)
{
    for (const char* text :
         {"\u00a1", "\u07ff", "\u0800", "\ud7ff", "\ue000", "\uffff", "\U00010000", "\U0010ffff"}) {
        EXPECT_EQ(printable(text), text);
    }
    for (const std::string text :
         {"\xc1\xbf", "\xe0\x9f\xbf", "\xed\xbf\xbf", "\xf0\x8f\xbf\xbf", "\xf5\x80\x80\x80",
          "\xe2\x82", "\xe2\x28\xa1", "\xe2\x82\xc2", "\x80"}) {
        EXPECT_FALSE(is_utf8(text)) << printable(text);
    }
}

TEST(Quoted, CutsLongText)
{
    EXPECT_EQ(quoted("a\n"), "\"a\\n\"");
    EXPECT_EQ(quoted(std::string(80, 'x')), "\"" + std::string(80, 'x') + "\"");
    EXPECT_EQ(quoted(std::string(81, 'x')), "\"" + std::string(80, 'x') + "...\"");
}

TEST(ShellWord, QuotesOnlyWhereNecessary)
{
    const struct
    {
        std::string text, word;
    } kTable[] = {
        {"", "''"},
        {"/usr/bin/x", "/usr/bin/x"},
        {"--mode=a", "--mode=a"},
        {"a b", "'a b'"},
        {"it's", "'it'\\''s'"},
        {"$HOME `x`", "'$HOME `x`'"},
        {"é", "'é'"},
        {"a\nb", "\"$(printf 'a\\012b')\""},
        {"\x1b'\\%", "\"$(printf '\\033\\047\\134%%')\""},
        {"a\n\n", "\"$(printf 'a')\"'\n\n'"},
        {"\n", "'\n'"},
        {"~", "'~'"},
        {"A=b", "'A=b'"},
        {"/A=b", "/A=b"},
        {"%+,-./:@_azAZ09", "%+,-./:@_azAZ09"},
        {"a{", "'a{'"},
        {"a[", "'a['"},
        {"a;", "'a;'"},
        {"A=", "'A='"},
        {"`", "'`'"},
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(shell_word(row.text), row.word);
    }
}

TEST(ShellWord, IsHarmlessAndExpandsToTheSameBytes)
{
    const std::string word = shell_word(Hostile());
    EXPECT_TRUE(IsHarmless(word));
    for (const std::string& text :
         {Hostile(), std::string("it's $HOME"), std::string("100%\\\t\n\n"), std::string("\n"),
          std::string()}) {
        EXPECT_EQ(AsShellReads(shell_word(text)), text + ".");
    }
}

TEST(SafeJson, EscapesInvisibleCharactersAndKeepsTheValues)
{
    JsonObject object = JsonObject::GetEmptyObject();
    object["a"] = std::string("\u009b \x7f \u202e \U000e0041 é \\ \x1b");
    const std::string json = safe_json(object.ToStyledText());
    EXPECT_EQ(json.find('\x7f'), std::string::npos);
    EXPECT_EQ(printable(json.substr(json.find('"'))).find("\\u{"), std::string::npos);
    JsonObject again(json.c_str());
    EXPECT_EQ(static_cast<std::string>(again["a"]), static_cast<std::string>(object["a"]));
}

TEST(SafeJson, ReplacesIllFormedBytes)
{
    EXPECT_EQ(safe_json("\"a\xff\""), "\"a\\ufffd\"");
}

TEST(Html, EscapesMarkup)
{
    EXPECT_EQ(html("<a href=\"x\" b='y'>&</a>\n"),
              "&lt;a href=&quot;x&quot; b=&#39;y&#39;&gt;&amp;&lt;/a&gt;\\n");
    EXPECT_EQ(html(Hostile()).find_first_of("<>\"'"), std::string::npos);
}

TEST(IsUtf8, FindsTheFirstIllFormedByte)
{
    std::size_t bad = 0;
    EXPECT_TRUE(is_utf8("é€😀"));
    EXPECT_FALSE(is_utf8("ab\xc3", &bad));
    EXPECT_EQ(bad, 2U);
}

TEST(Padding, CountsColumns)
{
    EXPECT_EQ(pad_right("ab", 4), "ab  ");
    EXPECT_EQ(pad_left("ab", 4), "  ab");
    EXPECT_EQ(pad_right("abcd", 4), "abcd");
    EXPECT_EQ(pad_left("abcde", 4), "abcde");
    EXPECT_EQ(display_width("ab\n"), 3U) << "a character without a width counts as one column";
}

TEST(Counted, UsesTheSingularForOne)
{
    EXPECT_EQ(counted(0, "item"), "0 items");
    EXPECT_EQ(counted(1, "item"), "1 item");
    EXPECT_EQ(counted(2, "item"), "2 items");
}

TEST(ClosestWord, FindsMisspellings)
{
    const std::vector<std::string> words = {"check", "explain", "report"};
    EXPECT_EQ(closest_word("cheXck", words), "check");
    EXPECT_EQ(closest_word("EXPLAIN", words), "explain");
    EXPECT_EQ(closest_word("reportx", words), "report");
    EXPECT_EQ(closest_word("start", words), "");
    EXPECT_EQ(closest_word(std::string(100000, 'x'), words), "");
}
