#include "tools/launchlist/list/new_item.h"

#include <gtest/gtest.h>

using namespace launchlist;

namespace {

// The list after the item "n" has been appended; "" if it cannot be.
std::string Append(const std::string& list, const std::vector<std::string>& arguments = {})
{
    const std::optional<Appended> appended = AppendItem(list, {"n", "/p", arguments});
    return appended ? Apply(appended->edits, list) : "";
}

}  // namespace

TEST(AppendItem, TakesTheLayoutOfTheList)
{
    const struct
    {
        const char* list;
        const char* result;
    } kTable[] = {
        {"{}", R"({"0": { "name": "n", "program": "/p" }})"},
        {"{ }", R"({ "0": { "name": "n", "program": "/p" } })"},
        {R"({"0": 7})", R"({"0": 7, "1": { "name": "n", "program": "/p" }})"},
        {"{\n}\n", "{\n  \"0\": {\n    \"name\": \"n\",\n    \"program\": \"/p\"\n  }\n}\n"},
        {"{\n\t\"0\": 7 // seven\n} // end",
         "{\n\t\"0\": 7, // seven\n\t\"1\": {\n\t\t\"name\": \"n\",\n\t\t\"program\": \"/p\"\n\t}\n"
         "} // end"},
        {"  {\r\n   \"0\": 7\r\n  }",
         "  {\r\n   \"0\": 7,\r\n   \"1\": {\r\n    \"name\": \"n\",\r\n    \"program\": \"/p\"\r\n"
         "   }\r\n  }"},
        {"{\n\"0\": 7\n}",
         "{\n\"0\": 7,\n\"1\": {\n  \"name\": \"n\",\n  \"program\": \"/p\"\n}\n}"},
        {"{\n  \"0\": 7 }", "{\n  \"0\": 7, \"1\": { \"name\": \"n\", \"program\": \"/p\" } }"},
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(Append(row.list), row.result) << row.list;
    }
}

TEST(AppendItem, CountsFromTheLargestNumber)
{
    const struct
    {
        const char* list;
        const char* number;
    } kTable[] = {
        {"{}", "0"},
        {R"({"$schema": "x"})", "0"},
        {R"({"0": 7, "3": 7, "1": 7})", "4"},
        {R"({"0": 7, "09": 7})", "10"},
        {R"({"99999999999999999999": 7})", "100000000000000000000"},
    };
    for (const auto& row : kTable) {
        const std::optional<Appended> appended = AppendItem(row.list, {"n", "/p", {}});
        ASSERT_TRUE(appended) << row.list;
        EXPECT_EQ(appended->number, row.number) << row.list;
    }
}

TEST(AppendItem, RefusesWhatIsNotAnObject)
{
    for (const char* list : {"", "[]", "null", "{", "\"{}\"", "\xEF\xBB\xBF{}"}) {
        EXPECT_EQ(Append(list), "") << list;
    }
}

TEST(AppendItem, KeepsWhatFollowsTheList)
{
    const std::string rest = std::string("} x\0}", 5);
    EXPECT_EQ(Append("{" + rest), "{\"0\": { \"name\": \"n\", \"program\": \"/p\" }" + rest);
}

TEST(ItemText, CountsArguments)
{
    EXPECT_EQ(ItemText({"n", "/p", {"a", "\"\\\n\xE2\x80\xAE"}}),
              "{\n  \"name\": \"n\",\n  \"program\": \"/p\",\n  \"argc\": 2,\n"
              "  \"args\": { \"0\": \"a\", \"1\": \"\\\"\\\\\\u000a\\u202e\" }\n}");
}
