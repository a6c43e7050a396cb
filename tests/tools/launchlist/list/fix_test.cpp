// fix_test.py tests generated lists.
#include "tools/launchlist/list/fix.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tools/launchlist/base/files.h"

using namespace launchlist;

namespace {

std::string Fixed(const std::string& bytes)
{
    const FixedList fixed = FixList(bytes);
    EXPECT_EQ(Apply(fixed.edits, bytes), fixed.bytes) << bytes;
    EXPECT_EQ(fixed.edits.empty(), fixed.bytes == bytes) << bytes;
    EXPECT_TRUE(FixList(fixed.bytes).edits.empty()) << fixed.bytes;
    return fixed.bytes;
}

// A list of one item with these members after its name and program.
std::string Item(const std::string& members)
{
    return R"({"0": {"name": "a", "program": "/bin/sh", )" + members + "}}";
}

struct Change
{
    const char* before;
    const char* after;  // Null: nothing is changed.
};

void ExpectChanges(std::initializer_list<Change> changes, std::string (*list)(const std::string&))
{
    for (const Change& change : changes) {
        EXPECT_EQ(Fixed(list(change.before)),
                  list(change.after != nullptr ? change.after : change.before))
            << change.before;
    }
}

std::string Itself(const std::string& text)
{
    return text;
}

std::string Utf16(const std::u16string& text, bool is_big_endian)
{
    std::string bytes;
    for (const char16_t unit : text) {
        const char low = static_cast<char>(unit & 0xFFU);
        const char high = static_cast<char>(unit >> 8U);
        bytes += is_big_endian ? high : low;
        bytes += is_big_endian ? low : high;
    }
    return bytes;
}

}  // namespace

TEST(FixList, SetsTheCountIfTheArgumentsAreComplete)
{
    ExpectChanges(
        {
            {R"("argc": 1, "args": {"0": "x", "1": 7})",
             R"("argc": 2, "args": {"0": "x", "1": 7})"},
            {R"("argc": 9, "args": {"1": "x", "0": true})",
             R"("argc": 2, "args": {"1": "x", "0": true})"},
            {R"("argc": 3, "args": {})", R"("argc": 0, "args": {})"},
            {R"("argc": 1.9, "args": {"0": "x"})", R"("argc": 1, "args": {"0": "x"})"},
            {R"("argc": null, "args": {"0": "x"})", R"("argc": 1, "args": {"0": "x"})"},
            {R"("argc": 4294967297, "args": {"0": "x"})", R"("argc": 1, "args": {"0": "x"})"},
            {R"("args": {"0": "x"})", R"("argc": 1, "args": {"0": "x"})"},
            {R"("args": {"00": "x", "+1": "y"})", R"("argc": 2, "args": {"0": "x", "1": "y"})"},
            // Something is missing, or it is not certain what was meant.
            {R"("argc": 1, "args": {"0": "x", "2": "y"})", nullptr},
            {R"("argc": 1, "args": {"1": "x"})", nullptr},
            {R"("argc": 1, "args": {"0": "x", "00": "y"})", nullptr},
            {R"("argc": 1, "args": {"0": "x", "one": "y"})", nullptr},
            {R"("argc": 0, "args": {"0": null})", nullptr},
            {R"("argc": 0, "args": {"0": []})", nullptr},
            {R"("argc": 2)", nullptr},
            {R"("argc": 2, "args": null)", nullptr},
            {R"("argc": 2, "args": "x")", nullptr},
            // -1 passes an empty vector, which may be meant.
            {R"("argc": -1, "args": {"0": "x"})", nullptr},
            {R"("argc": -2, "args": {"0": "x"})", nullptr},
            {R"("argc": [], "args": {"0": "x"})", nullptr},
            {R"("argc": "two", "args": {"0": "x"})", nullptr},
            {R"("args": {})", nullptr},
            {R"("args": null)", nullptr},
        },
        Item);
}

TEST(FixList, WritesACountInAStringAsANumber)
{
    ExpectChanges(
        {
            {R"("argc": "2")", R"("argc": 2)"},
            {R"("argc": "02", "args": {"1": "x"})", R"("argc": 2, "args": {"1": "x"})"},
            {R"("argc": "7", "args": {"0": "x"})", R"("argc": 1, "args": {"0": "x"})"},
            {R"("argc": "61438")", R"("argc": 61438)"},
            // A larger count crashes every child, and a negative one has undefined results.
            {R"("argc": "61439")", nullptr},
            {R"("argc": "-2")", nullptr},
            {R"("argc": "")", nullptr},
            {R"("argc": "1.0")", nullptr},
        },
        Item);
}

TEST(FixList, WritesArgumentsInAnArrayAsAnObject)
{
    ExpectChanges(
        {
            {R"("args": ["x", 7])", R"("argc": 2, "args": {"0": "x", "1": 7})"},
            {R"("argc": 1, "args": [ /* [ */ "[", true ])",
             R"("argc": 2, "args": { /* [ */ "0": "[", "1": true })"},
            {R"("args": [], "argc": "0")", R"("args": {}, "argc": 0)"},
            {R"("args": [])", R"("args": {})"},
            {R"("argc": -1, "args": ["x"])", R"("argc": -1, "args": {"0": "x"})"},
            {R"("args": ["x", null])", nullptr},
            {R"("args": ["x", ["y"]])", nullptr},
            {R"("argc": 1, "args": [{}])", nullptr},
        },
        Item);
}

TEST(FixList, KeepsArgumentsThatCannotAllBeCounted)
{
    for (const int count : {61438, 61439}) {
        std::string members = R"("args": {)";
        for (int i = 0; i < count; ++i) {
            members += (i == 0 ? "\"" : ", \"") + std::to_string(i) + "\": 7";
        }
        const std::string list = Item(members + "}");
        EXPECT_EQ(Fixed(list) == list, count > 61438);
    }
}

TEST(FixList, KeepsTheLastOfMembersOfTheSameName)
{
    ExpectChanges(
        {
            {R"("argc": 7, "argc": 0)", R"("argc": 0)"},
            {R"("x": 1, "x": {"x": 1, "x": 2}, "x": 3)", R"("x": 3)"},
            {R"("args": ["x"], "args": {"0": "x", "0": "y"}, "argc": 1)",
             R"("args": {"0": "y"}, "argc": 1)"},
            {R"("argc": 7 /* old */ , "argc": 0)", R"( /* old */  "argc": 0)"},
        },
        Item);
    ExpectChanges(
        {
            {"{\n  \"$schema\": 1,\n  \"$schema\": \"x\"\n}", "{\n  \"$schema\": \"x\"\n}"},
            // The whole line, with its comma and its line end.
            {"{\"0\": {\n\t\"name\": 1 ,\t\r\n\t\"name\": 2}}", "{\"0\": {\n\t\"name\": 2}}"},
            {"{\"0\": {\n  \"name\": [\n    1\n  ],\n  \"name\": 2}}",
             "{\"0\": {\n  \"name\": 2}}"},
            {"{\"0\": {\n  \"name\": 1, // old\n  \"name\": 2}}",
             "{\"0\": {\n  // old\n  \"name\": 2}}"},
            {"{\"0\": {\n  \"name\": 1, \"name\": 2}}", "{\"0\": {\n  \"name\": 2}}"},
            {"{\"0\": {\"name\": 1,\n  \"name\": 2}}", "{\"0\": {\n  \"name\": 2}}"},
            // Other members have no meaning, and which of two items is meant is not certain.
            {R"({"x": 1, "x": 2})", nullptr},
            {R"({"0": {"name": "a"}, "0": {"name": "b"}})", nullptr},
            {R"({"0": {"name": "a", "name": "b"}, "0": {}})", nullptr},
        },
        Itself);
}

TEST(FixList, NumbersItemsWithoutAGap)
{
    ExpectChanges(
        {
            {R"({"1": {"name": "a", "program": "/bin/sh"}})",
             R"({"0": {"name": "a", "program": "/bin/sh"}})"},
            {R"({"7": null, "00": null, "005": {}, "x": {}})",
             R"({"1": null, "00": null, "0": {}, "x": {}})"},
            {R"({"\u0031": null, "18446744073709551616": null, "18446744073709551615": null})",
             R"({"0": null, "2": null, "1": null})"},
            {R"({"5": "a", "05": {}})", nullptr},
            {R"({"1": {}, "1": {}})", nullptr},
            {R"({"1": null, "1.5": {}})", nullptr},
            {R"({"1": null, "-1": {}})", nullptr},
            {R"({" 2": {"argc": "1"}, " 2": true})", nullptr},
            {R"({"1": null, "1.5": 7})", R"({"0": null, "1.5": 7})"},
        },
        Itself);
}

TEST(FixList, NeverStartsAnItemThatEndsTheLauncher)
{
    ExpectChanges(
        {
            // No program; not an object; a name or a program that cannot be read; the same name.
            {R"("2": {"name": "b"}})", nullptr},
            {R"("2": "text"})", nullptr},
            {R"("2": {"name": [], "program": "/bin/sh"}})", nullptr},
            {R"("2": {"name": "b", "program": {}}})", nullptr},
            {R"("2": {"name": "a", "program": "/bin/sh"}})", nullptr},
            // These only do not run.
            {R"("2": {"name": "b", "program": "/nowhere"}})",
             R"("1": {"name": "b", "program": "/nowhere"}})"},
            {R"("2": {}})", R"("1": {}})"},
        },
        [](const std::string& rest) {
            return R"({"0": {"name": "a", "program": "/bin/sh"}, )" + rest;
        });
    // Such an item ends the launcher already.
    EXPECT_EQ(Fixed(R"({"0": {"name": "a"}, "2": {"name": "b"}})"),
              R"({"0": {"name": "a"}, "1": {"name": "b"}})");
}

TEST(FixList, SaysWhyItemsAreNotRenumbered)
{
    EXPECT_EQ(FixList(R"({"1": null})").numbering_problem, "");
    EXPECT_EQ(FixList(R"({"0": null, "1.5": {}})").numbering_problem, "");
    EXPECT_EQ(FixList(R"({"1": null, "1.5": {}})").numbering_problem,
              "it is not certain what \"1.5\" means");
    EXPECT_EQ(FixList(R"({"0": null, "00": {}})").numbering_problem,
              "more than one item has the number 0");
    EXPECT_EQ(FixList(R"({"01": {}, "01": 7})").numbering_problem,
              "more than one member is called \"01\"");
    EXPECT_EQ(FixList(R"({"1": "text"})").numbering_problem,
              "an item that the launcher does not reach now might then end it");
}

TEST(FixList, WritesUtf8WithoutAMark)
{
    const std::u16string text = u"{\"0\": {\"name\": \"\u00e9\U0001f600\"}}";
    const std::string utf8 = "{\"0\": {\"name\": \"\xC3\xA9\xF0\x9F\x98\x80\"}}";
    EXPECT_EQ(Fixed("\xEF\xBB\xBF" + utf8), utf8);
    EXPECT_EQ(Fixed("\xEF\xBB\xBF\xEF\xBB\xBF" + utf8), utf8);
    EXPECT_EQ(Fixed("\xEF\xBB\xBF"), "");
    for (const bool is_big_endian : {false, true}) {
        EXPECT_EQ(Fixed(Utf16(u"\uFEFF" + text, is_big_endian)), utf8);
        EXPECT_EQ(Fixed(Utf16(u"\uFEFF\uFEFF" + text, is_big_endian)), utf8);
        EXPECT_EQ(Fixed(Utf16(text, is_big_endian)), utf8);
        EXPECT_EQ(Fixed(Utf16(u"\uFEFF", is_big_endian)), "");
        // With a mark the encoding is certain, whatever the text is.
        EXPECT_EQ(Fixed(Utf16(u"\uFEFF{no", is_big_endian)), "{no");
    }
}

TEST(FixList, KeepsAnEncodingThatIsNotCertainOrNotWellFormed)
{
    const std::u16string lone = {0xFEFF, '{', 0xD800, '}'};
    const std::u16string reversed = {0xFEFF, '{', 0xDC00, 0xD800, '}'};
    for (const bool is_big_endian : {false, true}) {
        for (const std::string& bytes :
             {Utf16(lone, is_big_endian), Utf16(reversed, is_big_endian),
              Utf16(u"\uFEFF{}", is_big_endian) + "x", Utf16(u"{no", is_big_endian)}) {
            EXPECT_EQ(Fixed(bytes), bytes);
        }
    }
    const std::string beyond_unicode("\xFF\xFE\0\0\0\0\x11\0", 8);
    EXPECT_EQ(Fixed(beyond_unicode), beyond_unicode);
}

TEST(FixList, WritesUtf32AsUtf8)
{
    const std::string little("{\0\0\0}\0\0\0", 8);
    const std::string big("\0\0\0{\0\0\0}", 8);
    EXPECT_EQ(Fixed(little), "{}");
    EXPECT_EQ(Fixed(big), "{}");
    EXPECT_EQ(Fixed(std::string("\xFF\xFE\0\0", 4) + little), "{}");
    EXPECT_EQ(Fixed(std::string("\0\0\xFE\xFF", 4) + big), "{}");
}

TEST(FixList, ReadsNothingAfterAZeroByte)
{
    const std::string rest("\0{\"1\": null}", 12);
    EXPECT_EQ(Fixed(R"({"1": null} )" + rest), R"({"0": null} )" + rest);
}

TEST(FixList, KeepsWhatIsNotAList)
{
    for (const char* text : {"", " ", "{", "null", "7", "[{\"1\": {}}]", "{} x", "{\"01\": 7}"}) {
        EXPECT_EQ(Fixed(text), text);
    }
}

TEST(FixList, IsDoneOnceWhicheverByteOfAListChanges)
{
    std::size_t corrected = 0;
    for (const auto& entry : std::filesystem::directory_iterator(KESTRANE_LISTS)) {
        std::string bytes;
        std::string error;
        ASSERT_TRUE(ReadFile(entry.path(), bytes, error)) << error;
        for (std::size_t i = 0; i < bytes.size() && bytes.size() < 120; ++i) {
            for (const char c : {'"', '0', ',', ' '}) {
                std::string changed = bytes;
                changed[i] = c;
                corrected += Fixed(changed) != changed ? 1U : 0U;
            }
            Fixed(bytes.substr(0, i));
            Fixed(std::string(bytes).erase(i, 1));
        }
    }
    EXPECT_GT(corrected, 100U);
}

// Some versions of jsoncpp accept any token instead of a comma after a comment.
TEST(FixList, KeepsAMemberThatIsNotFollowedByAComma)
{
    const std::string list = R"({"0": {"name": 1 /**/ : "name": 2}})";
    EXPECT_EQ(Fixed(list), list);
}
