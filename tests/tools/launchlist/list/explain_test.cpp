#include "tools/launchlist/list/explain.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/launchlist/list/effects.h"
#include "tools/launchlist/output/list_output.h"

using namespace launchlist;

namespace {

// The first step of a list whose only item is called "a" and runs /p, with `more` as its end.
Step StepOf(const std::string& more)
{
    const Walk walk = ExplainList(R"({"0": {"name": "a", "program": "/p")" + more + "}}");
    EXPECT_EQ(walk.steps.size(), 1U) << more;
    return walk.steps.front();
}

}  // namespace

TEST(Explain, GivesTheVectorOfAnItem)
{
    using Strings = std::vector<std::string>;
    const struct
    {
        const char* more;
        Strings arguments;
    } kTable[] = {
        {"", {"/p"}},
        {R"(, "args": {"0": "x"})", {"/p"}},
        {R"(, "argc": 2, "args": {"0": "x", "1": 7})", {"/p", "x", "7"}},
        {R"(, "argc": 2, "args": {"1": true})", {"/p", "", "true"}},
        {R"(, "argc": 1)", {"/p", ""}},
        {R"(, "argc": -1)", {}},
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(StepOf(row.more).arguments, row.arguments) << row.more;
    }
    EXPECT_EQ(StepOf(R"(, "argc": -1)").note, kEmptyVector);
}

TEST(Explain, SaysWhyThereIsNone)
{
    const struct
    {
        const char* more;
        const char* note;
    } kTable[] = {
        {R"(, "program": "")", kSignalsGroup},
        {R"(, "program": [])", kTerminates},
        {R"(, "argc": "1")", kAbortsChild},
        {R"(, "argc": 1, "args": [])", kAbortsChild},
        {R"(, "argc": -2)", kOverrunsVector},
        {R"(, "argc": 2147483647)", kOverrunsStack},
        // What the supervisor looks at comes before what the child looks at.
        {R"(, "program": "", "argc": "1")", kSignalsGroup},
    };
    for (const auto& row : kTable) {
        const Step step = StepOf(row.more);
        EXPECT_FALSE(step.arguments) << row.more;
        EXPECT_EQ(step.note, row.note) << row.more;
    }
}

TEST(Explain, WalksToTheFirstGap)
{
    const Walk walk = ExplainList(
        R"({"0": {"name": "a"}, "1": {"program": "/p"}, "2": {"name": "a"}, "4": {"name": "b"}})");
    ASSERT_EQ(walk.steps.size(), 3U);
    EXPECT_FALSE(walk.steps[1].name);
    EXPECT_EQ(walk.steps[1].note, kSkipped);
    EXPECT_EQ(walk.steps[2].replaced, 0);
    EXPECT_EQ(walk.end, "there is no item \"3\": the walk ends");
    EXPECT_FALSE(walk.ends_launcher);
}

TEST(Explain, StopsWhereTheLauncherDoes)
{
    const struct
    {
        const char* list;
        std::size_t steps;
        const char* end;
    } kTable[] = {
        {"", 0, kEndsInSilence},
        {"{", 0, kRefusedAtStart},
        {"[]", 0, kRefusedAtStart},
        {R"({"0": 1})", 1, "the launcher ends here"},
        {R"({"0": {"name": "a"}, "1": {"name": []}, "2": {"name": "b"}})", 2,
         "the launcher ends here"},
    };
    for (const auto& row : kTable) {
        const Walk walk = ExplainList(row.list);
        EXPECT_TRUE(walk.ends_launcher) << row.list;
        EXPECT_EQ(walk.steps.size(), row.steps) << row.list;
        EXPECT_EQ(walk.end, row.end) << row.list;
        EXPECT_TRUE(walk.steps.empty() || walk.steps.back().note == kRefusedOnTheWay) << row.list;
    }
}

TEST(WalkText, QuotesForAShell)
{
    const Walk walk = ExplainList(
        R"({"0": {"name": "a\u001b", "program": "/p q", "argc": 1, "args": {"0": "it's\n"}}})");
    EXPECT_EQ(WalkText(walk, false),
              "item 0  \"a\\x1b\"\n"
              "    program   '/p q'\n"
              "    arguments '/p q' $'it\\'s\\012'\n"
              "there is no item \"1\": the walk ends\n");
}
