#include "json/json_source.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json/json_object.h"

namespace {

std::vector<std::string> Names(const std::string& text)
{
    const JsonSource source(text);
    std::vector<std::string> names;
    for (const JsonMember& member : source.Members(source.Root())) {
        names.push_back((member.replaced ? "-" : "") + member.name);
    }
    return names;
}

bool IsAcceptedByJsonObject(const std::string& text)
{
    try {
        JsonObject document(text.c_str(), static_cast<unsigned int>(text.size()));
        return true;
    } catch (...) {
        return false;
    }
}

std::string Nested(std::size_t depth, const std::string& innermost = "1")
{
    return std::string(depth, '[') + innermost + std::string(depth, ']');
}

// The smallest depth that the reader rejects; it depends on the version of jsoncpp.
std::size_t FirstRejectedDepth()
{
    std::size_t depth = 1;
    while (depth < 5000 && IsAcceptedByJsonObject(Nested(depth))) {
        ++depth;
    }
    return depth;
}

}  // namespace

TEST(JsonSource, GivesThePlacesOfMembersAndTheirValues)
{
    const std::string text = "{\n  \"a\": 1,\n  \"b\": {\"c\": [2]}\n}";
    const JsonSource source(text);
    const auto members = source.Members(source.Root());
    ASSERT_EQ(members.size(), 2U);
    EXPECT_EQ(text.substr(members[0].name_begin, 3), "\"a\"");
    EXPECT_EQ(members[0].name_end, members[0].name_begin + 3);
    EXPECT_EQ(text.substr(members[0].value.begin, 1), "1");
    EXPECT_EQ(members[0].value.end, members[0].value.begin + 1);
    EXPECT_EQ(text.substr(members[1].value.begin, 10), "{\"c\": [2]}");
    EXPECT_EQ(members[1].value.end, members[1].value.begin + 10);
    const auto inner = source.Members(members[1].value);
    ASSERT_EQ(inner.size(), 1U);
    EXPECT_EQ(text.substr(inner[0].value.begin, 3), "[2]");
}

TEST(JsonSource, KnowsTheTypeOfEveryValue)
{
    const struct
    {
        const char* text;
        JsonType type;
    } kTable[] = {
        {"null", JsonType::kNull},     {"true", JsonType::kBoolean},
        {"false", JsonType::kBoolean}, {"-1", JsonType::kNumber},
        {"1.5", JsonType::kNumber},    {"18446744073709551615", JsonType::kNumber},
        {"\"x\"", JsonType::kString},  {"[]", JsonType::kArray},
        {"{}", JsonType::kObject},
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(JsonSource(row.text).Root().type, row.type) << row.text;
    }
}

TEST(JsonSource, ListsEveryMemberOfTheText)
{
    using Strings = std::vector<std::string>;
    const struct
    {
        const char* text;
        Strings names;
    } kTable[] = {
        {"{}", {}},
        {"[1, 2]", {}},
        {R"({"a": 1, "b": 2})", {"a", "b"}},
        {R"({"a": 1, "a": 2, "b": 3, "a": 4})", {"-a", "-a", "b", "a"}},
        {R"({"": 1})", {""}},
        {R"({"": 1,})", {""}},
        {R"({"\u0061\"": 1})", {"a\""}},
        {R"({"a": "},\"", "b": "\\"})", {"a", "b"}},
        {"{ /* \"x\": */ \"a\": /* , */ 1 /* } */, // \"y\"\n \"b\": 2 }", {"a", "b"}},
        {R"({"a": 1} "b")", {"a"}},
        {"{\"a\": 1 /*/ \"x\": 0, */ , \"b\": 2}", {"a", "b"}},
    };
    for (const auto& row : kTable) {
        EXPECT_FALSE(JsonSource(row.text).Fault()) << row.text;
        EXPECT_TRUE(IsAcceptedByJsonObject(row.text)) << row.text;
        EXPECT_EQ(Names(row.text), row.names) << row.text;
    }
}

// Whether a token may replace a comma after a comment depends on the version of jsoncpp. In each
// version, JsonSource must find the members that JsonObject finds.
TEST(JsonSource, FindsTheMembersAfterATokenInPlaceOfAComma)
{
    const std::string comments[] = {"/**/", "/* \" */ ", "//\n", "/*/ } */"};
    const std::string tokens[] = {
        ":",  "12", "-1.5e3", "true",         "[",       "]",      "{", "*", "x", "/x", R"(/")",
        "/}", "\\", "\x01",   R"("no name")", R"("\"")", R"("\q")"};
    const std::string ends[] = {R"("b": 2})", R"( /* "c": */ "b": 2})", "//\n\"b\": 2}"};
    for (const std::string& comment : comments) {
        for (const std::string& token : tokens) {
            for (const std::string& end : ends) {
                const std::string text = "{\"a\": 1" + comment + token + end;
                if (IsAcceptedByJsonObject(text)) {
                    JsonObject document(text.c_str(), static_cast<unsigned int>(text.size()));
                    EXPECT_EQ(Names(text), document.GetKeys()) << text;
                }
            }
        }
    }
}

TEST(JsonSource, KeepsANulInsideAName)
{
    EXPECT_EQ(Names(R"({"a\u0000b": 1})"), (std::vector<std::string>{std::string("a\0b", 3)}));
}

TEST(JsonSource, RejectsWhatJsonObjectRejects)
{
    const struct
    {
        const char* text;
        std::size_t offset;
    } kTable[] = {
        {"", 0},           {"\xEF\xBB\xBF{}", 0}, {"{\"a\": 1,}", 8}, {"{\"a\" 1}", 5},
        {"{\"a\": x}", 6}, {"{'a': 1}", 1},       {"[1, 2", 5},       {"{\"a\": \"\\q\"}", 6},
    };
    for (const auto& row : kTable) {
        const JsonSource source(row.text);
        EXPECT_FALSE(IsAcceptedByJsonObject(row.text)) << row.text;
        ASSERT_TRUE(source.Fault()) << row.text;
        EXPECT_EQ(source.Fault()->offset, row.offset) << row.text;
        EXPECT_FALSE(source.Fault()->message.empty());
        EXPECT_EQ(source.Fault()->depth_limit, 0U);
    }
}

TEST(JsonSource, FindsTheBracketThatIsTooDeepForTheReader)
{
    const std::size_t depth = FirstRejectedDepth();
    EXPECT_FALSE(JsonSource(Nested(depth - 1)).Fault());
    const std::string too_deep = "[\"[[\", " + Nested(depth) + "]";
    EXPECT_FALSE(IsAcceptedByJsonObject(too_deep));
    const JsonSource source(too_deep);
    ASSERT_TRUE(source.Fault());
    EXPECT_EQ(source.Fault()->depth_limit, depth);
    EXPECT_EQ(source.Fault()->offset, 7U + depth - 2);

    // An empty array contains nothing that could be too deep.
    const JsonSource after_empty(Nested(depth - 1, "[], [1]"));
    ASSERT_TRUE(after_empty.Fault());
    EXPECT_EQ(after_empty.Fault()->offset, depth - 1 + 4);
}

TEST(JsonSource, IgnoresTextAfterTheFirstValue)
{
    const JsonSource source(" {} x");
    EXPECT_FALSE(source.Fault());
    EXPECT_EQ(source.Root().begin, 1U);
    EXPECT_EQ(source.Root().end, 3U);
    EXPECT_EQ(source.SkipBlanks(3), 4U);
}

TEST(JsonSource, CountsLinesLikeTheReaderAndColumnsInCharacters)
{
    const JsonSource source(
        "a\nb\r\nc\rd\xC3\xA9"
        "f");
    const struct
    {
        std::size_t offset, line, column;
    } kTable[] = {{0, 1, 1}, {1, 1, 2}, {2, 2, 1},  {5, 3, 1},
                  {7, 4, 1}, {8, 4, 2}, {10, 4, 3}, {99, 4, 4}};
    JsonPosition last;
    for (const auto& row : kTable) {
        const JsonPosition position = source.Position(row.offset);
        EXPECT_EQ(position.line, row.line) << row.offset;
        EXPECT_EQ(position.column, row.column) << row.offset;
        last = source.Position(row.offset, last);
        EXPECT_EQ(last.line, row.line) << row.offset;
        EXPECT_EQ(last.column, row.column) << row.offset;
    }
}

TEST(JsonSource, GivesThePlacesOfElements)
{
    const std::string text = "[1, \"a,]\" /* , */ ,{\"b\": [2]}\n, [ ] // ]\n]";
    const JsonSource source(text);
    std::vector<std::string> elements;
    for (const JsonPlace& place : source.Elements(source.Root())) {
        elements.push_back(source.Written(place));
    }
    EXPECT_EQ(elements, (std::vector<std::string>{"1", "\"a,]\"", "{\"b\": [2]}", "[ ]"}));
}

TEST(JsonSource, GivesNoElementsOfOtherValues)
{
    for (const std::string text : {"[]", "[ ]", "{\"a\": [1]}", "7", "\"[1]\""}) {
        const JsonSource source(text);
        EXPECT_TRUE(source.Elements(source.Root()).empty()) << text;
    }
}
