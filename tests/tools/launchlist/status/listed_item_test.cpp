#include "tools/launchlist/status/listed_item.h"

#include <gtest/gtest.h>

using namespace launchlist;
using namespace std::string_literals;

namespace {

std::vector<ListedItem> Items(const std::string& text)
{
    return ReadItems(text).items;
}

}  // namespace

TEST(ReadItems, GivesTheVectorThatTheProgramGets)
{
    const auto items = Items(
        R"({"0": {"name": "a", "program": "/a", "argc": 4, "args": {"0": "x y", "2": 1, "9": "z"}}})");
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].name, "a");
    EXPECT_EQ(items[0].program, "/a");
    EXPECT_EQ(items[0].command_line, "/a\0x y\0\0001\0\0"s);
    EXPECT_EQ(items[0].problem, "");
}

TEST(ReadItems, KnowsAnEmptyVector)
{
    EXPECT_EQ(Items(R"({"0": {"name": "a", "program": "/a", "argc": -1}})")[0].command_line, "");
}

TEST(ReadItems, SaysWhyAnItemHasNoCommandLine)
{
    const std::pair<const char*, const char*> kCases[] = {
        {R"({})", "it has no program"},
        {R"({"program": null})", "it has no program"},
        {R"({"program": []})", "its \"program\" is not a string"},
        {R"({"program": "/a", "argc": "1"})", "its arguments cannot be converted"},
        {R"({"program": "/a", "argc": 1, "args": []})", "its arguments cannot be converted"},
        {R"({"program": "/a", "argc": 1, "args": {"0": {}}})", "its arguments cannot be converted"},
        {R"({"program": "/a", "argc": -2})", "its number of arguments is out of range"},
        {R"({"program": "/a", "argc": 100000})", "its number of arguments is out of range"},
    };
    for (const auto& [members, problem] : kCases) {
        std::string item = members;
        item.insert(1, item == "{}" ? R"("name": "a")" : R"("name": "a", )");
        const auto items = Items(R"({"0": )" + item + "}");
        ASSERT_EQ(items.size(), 1U) << item;
        EXPECT_FALSE(items[0].command_line) << item;
        EXPECT_EQ(items[0].problem, problem) << item;
    }
}

TEST(ReadItems, StopsAtAGapAndKeepsNamelessItems)
{
    const auto items = Items(R"({"0": {"program": "/a"}, "1": {"name": "b"}, "3": {"name": "c"}})");
    ASSERT_EQ(items.size(), 2U);
    EXPECT_FALSE(items[0].name);
    EXPECT_EQ(items[1].name, "b");
}

TEST(ReadItems, FindsTheItemThatReplacesAnother)
{
    const auto items = Items(R"({"0": {"name": "a"}, "1": {"name": "b"}, "2": {"name": "a"},
                                 "3": {"name": "a"}})");
    EXPECT_EQ(items[0].replaced_by, 2);
    EXPECT_FALSE(items[1].replaced_by);
    EXPECT_EQ(items[2].replaced_by, 3);
    EXPECT_FALSE(items[3].replaced_by);
}

TEST(ReadItems, KeepsWhatPrecedesARejectedItem)
{
    const ListedItems list = ReadItems(R"({"0": {"name": "a"}, "1": []})");
    EXPECT_TRUE(list.is_rejected);
    EXPECT_EQ(list.items.size(), 1U);
    EXPECT_TRUE(ReadItems("").is_rejected);
    EXPECT_TRUE(ReadItems("{").is_rejected);
    EXPECT_FALSE(ReadItems("null").is_rejected);
    EXPECT_FALSE(ReadItems("{}\0["s).is_rejected);
}
