#include "tools/launchlist/list/explain.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json/json_object.h"
#include "tools/launchlist/base/files.h"
#include "tools/launchlist/list/argument_vector.h"
#include "tools/launchlist/list/effects.h"
#include "tools/launchlist/output/list_output.h"

using namespace launchlist;

namespace {

// The only item of a list, called "a", which runs /bin/sh; `more` comes last and may replace that.
ExplainedItem ItemWith(const std::string& more)
{
    const Explanation explanation =
        ExplainList(R"({"0": {"name": "a", "program": "/bin/sh")" + more + "}}");
    EXPECT_EQ(explanation.items.size(), 1U) << more;
    return explanation.items.front();
}

std::vector<std::string> Written(const ArgumentVector& arguments)
{
    std::vector<std::string> texts;
    for (const ArgumentRun& run : arguments) {
        texts.insert(texts.end(), run.count, run.text);
    }
    return texts;
}

// A list of the items "0", "1" and so on.
std::string ListOf(const std::vector<std::string>& items)
{
    std::string list = "{";
    for (std::size_t i = 0; i < items.size(); ++i) {
        list += (i == 0 ? "\"" : ", \"") + std::to_string(i) + "\": " + items[i];
    }
    return list + "}";
}

std::string Item(const std::string& name, const std::string& program)
{
    return R"({"name": ")" + name + R"(", "program": )" + program + "}";
}

// All outcomes in a few words: "exits", "exits|killed", with conditions after a slash.
std::string OutcomesOf(const std::string& list)
{
    static constexpr const char* kOutcomes[] = {"runs", "exits", "aborts", "killed", "all killed"};
    static constexpr const char* kConditions[] = {"", "/timing", "/macos", "/limit"};
    std::string text;
    for (const LauncherOutcome& outcome : ExplainList(list).outcomes) {
        text += (text.empty() ? "" : "|") +
                std::string(kOutcomes[static_cast<int>(outcome.outcome)]) +
                kConditions[static_cast<int>(outcome.condition)];
    }
    return text;
}

const std::string kGood = "\"/bin/sh\"";

}  // namespace

TEST(Explain, GivesTheArgumentVector)
{
    using Strings = std::vector<std::string>;
    const struct
    {
        const char* more;
        Strings arguments;
    } kTable[] = {
        {"", {"/bin/sh"}},
        {R"(, "args": {"0": "x"})", {"/bin/sh"}},
        {R"(, "argc": 2, "args": {"0": "x", "1": 7})", {"/bin/sh", "x", "7"}},
        {R"(, "argc": 2, "args": {"1": true})", {"/bin/sh", "", "true"}},
        {R"(, "argc": 1)", {"/bin/sh", ""}},
        {R"(, "argc": 4, "args": {"2": "x", "02": "y", "4": "z"})", {"/bin/sh", "", "", "x", ""}},
        {R"(, "argc": 12, "args": {"10": "x", "9": "y"})",
         {"/bin/sh", "", "", "", "", "", "", "", "", "", "y", "x", ""}},
        {R"(, "argc": -1)", {}},
    };
    for (const auto& row : kTable) {
        const ExplainedItem item = ItemWith(row.more);
        ASSERT_TRUE(item.arguments) << row.more;
        EXPECT_EQ(Written(*item.arguments), row.arguments) << row.more;
        EXPECT_EQ(item.outcome, ItemOutcome::kRuns) << row.more;
        EXPECT_EQ(item.runs, Likelihood::kCertainly) << row.more;
    }
    EXPECT_EQ(ItemWith(R"(, "argc": -1)").note, effects::kEmptyVector);
}

TEST(Explain, SaysWhyAnItemNeverRuns)
{
    const struct
    {
        const char* more;
        ItemOutcome outcome;
        const char* effect;
    } kTable[] = {
        {R"(, "program": "")", ItemOutcome::kSignalsGroup, effects::kSignalsGroup},
        {R"(, "program": null)", ItemOutcome::kSignalsGroup, effects::kSignalsGroup},
        {R"(, "program": [])", ItemOutcome::kAbortsLauncher, effects::kAbortsLauncher},
        {R"(, "program": "/nowhere")", ItemOutcome::kCannotExecute, effects::kCannotExecute},
        {R"(, "program": "/etc")", ItemOutcome::kCannotExecute, effects::kCannotExecute},
        {R"(, "argc": "1")", ItemOutcome::kAbortsChild, effects::kAbortsChild},
        {R"(, "argc": 1, "args": [])", ItemOutcome::kAbortsChild, effects::kAbortsChild},
        {R"(, "argc": 2147483647)", ItemOutcome::kOverrunsStack, effects::kOverrunsStack},
        // The supervisor converts "program" before the child converts the arguments, and the child
        // does so before it executes the program.
        {R"(, "program": "", "argc": "1")", ItemOutcome::kSignalsGroup, effects::kSignalsGroup},
        {R"(, "program": "/nowhere", "argc": "1")", ItemOutcome::kAbortsChild,
         effects::kAbortsChild},
    };
    for (const auto& row : kTable) {
        const ExplainedItem item = ItemWith(row.more);
        EXPECT_FALSE(item.arguments) << row.more;
        EXPECT_EQ(item.outcome, row.outcome) << row.more;
        EXPECT_EQ(item.effect, row.effect) << row.more;
        EXPECT_EQ(item.runs, Likelihood::kNever) << row.more;
    }
}

TEST(Explain, CallsAnUndefinedCountPossible)
{
    EXPECT_EQ(ItemWith(R"(, "argc": -2)").outcome, ItemOutcome::kUndefined);
    EXPECT_EQ(ItemWith(R"(, "argc": -2)").runs, Likelihood::kPossibly);
}

TEST(Explain, DerivesTheLargestCountFromTheStack)
{
    EXPECT_EQ(kMaxArgumentCount, 61438);
    std::string page;
    std::string error;
    ASSERT_TRUE(ReadFile(KESTRANE_DOCS "/man/launch-list.5", page, error)) << error;
    EXPECT_NE(page.find("sure to work is 61,438"), std::string::npos);
    EXPECT_EQ(ItemWith(R"(, "argc": 61438)").outcome, ItemOutcome::kRuns);
    EXPECT_EQ(ItemWith(R"(, "argc": 61439)").outcome, ItemOutcome::kMayOverrunStack);
    EXPECT_EQ(ItemWith(R"(, "argc": 65534)").outcome, ItemOutcome::kMayOverrunStack);
    EXPECT_EQ(ItemWith(R"(, "argc": 65535)").outcome, ItemOutcome::kOverrunsStack);
}

TEST(Explain, ReadsItemsUpToTheFirstGap)
{
    const Explanation explanation = ExplainList(
        R"({"0": {"name": "a"}, "1": {"program": "/p"}, "2": {"name": "a"}, "4": {"name": "b"}})");
    ASSERT_EQ(explanation.items.size(), 3U);
    EXPECT_FALSE(explanation.items[1].name);
    EXPECT_EQ(explanation.items[1].outcome, ItemOutcome::kSkipped);
    EXPECT_EQ(explanation.items[0].replaced_by, 2);
    EXPECT_EQ(explanation.items[2].replaces, 0);
    EXPECT_FALSE(explanation.is_rejected);
    EXPECT_NE(ExplanationText(explanation, false).find("End of list (no item \"3\")\n"),
              std::string::npos);
}

TEST(Explain, StopsAtARejectedItem)
{
    const Explanation explanation =
        ExplainList(R"({"0": {"name": "a"}, "1": {"name": []}, "2": {"name": "b"}})");
    ASSERT_EQ(explanation.items.size(), 2U);
    EXPECT_TRUE(explanation.is_rejected);
    EXPECT_EQ(explanation.items[1].outcome, ItemOutcome::kRejected);
    EXPECT_EQ(ExplainList(R"({"0": 1})").items.front().effect, effects::RejectedAtStart());
    EXPECT_EQ(ExplainList("").list_effect, effects::kEndsInSilence);
    EXPECT_EQ(ExplainList("{").list_effect, effects::RejectedAtStart());
}

TEST(Explain, NamesEveryOutcomeOfTheLauncher)
{
    const std::string good = Item("a", kGood);
    const std::string other = Item("b", kGood);
    const std::string missing = Item("b", "\"/nowhere\"");
    const std::string empty = Item("b", "\"\"");
    const std::string array = Item("b", "[]");
    const struct
    {
        std::string list;
        const char* outcomes;
    } kTable[] = {
        {"", "exits"},
        {"[]", "exits"},
        {"null", "runs"},
        {"{}", "runs"},
        {ListOf({"[]"}), "exits"},
        {ListOf({"null", "[]"}), "exits"},
        {ListOf({good, other}), "runs"},
        {ListOf({good, "[]"}), "exits/timing|killed/timing"},
        {ListOf({good, R"({"name": {}})"}), "exits/timing|killed/timing"},
        {ListOf({good, good}), "runs/timing|killed/timing"},
        {ListOf({empty}), "killed"},
        {ListOf({good, empty}), "killed|runs/macos"},
        {ListOf({empty, "3"}), "exits/timing|killed/timing"},
        // The item without a program may be ended before its child signals anything.
        {ListOf({empty, other}), "runs/timing|killed/timing"},
        {ListOf({array}), "aborts"},
        {ListOf({good, array}), "aborts"},
        {ListOf({good, array, "3"}), "aborts/timing|killed/timing"},
        {ListOf({array, other}), "aborts/timing|killed/timing"},
        {ListOf({array, Item("c", "\"\"")}), "aborts/timing|killed/timing"},
        {ListOf({good, missing}), "runs|all killed/limit"},
        {ListOf({R"({"name": "a", "program": "/bin/sh", "argc": -2})"}), "runs|all killed/limit"},
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(OutcomesOf(row.list), row.outcomes) << row.list;
    }
}

TEST(Explain, CallsItemsPossibleWhereTheLauncherMayEnd)
{
    const Explanation explanation = ExplainList(ListOf({Item("a", kGood), Item("b", "\"\"")}));
    EXPECT_EQ(explanation.items[0].runs, Likelihood::kPossibly);
    EXPECT_EQ(explanation.items[1].runs, Likelihood::kNever);
    // The limit of processes is reached only after all items have been started.
    EXPECT_EQ(ExplainList(ListOf({Item("a", kGood), Item("b", "\"/no\"")})).items[0].runs,
              Likelihood::kCertainly);
}

TEST(ExplanationText, QuotesForAShell)
{
    const Explanation explanation = ExplainList(
        R"({"0": {"name": "a\u001b", "program": "/bin/sh", "argc": 2,
            "args": {"0": "it's", "1": "a\u001b's\n"}}})");
    EXPECT_EQ(ExplanationText(explanation, false),
              "item 0  \"a\\x1b\"\n"
              "    program   /bin/sh\n"
              "    arguments /bin/sh 'it'\\''s' \"$(printf 'a\\033\\047s')\"'\n'\n"
              "End of list (no item \"1\")\n"
              "The launcher keeps running until SIGTERM.\n");
}

TEST(ExplanationJson, NamesOutcomesAndConditions)
{
    const struct
    {
        ItemOutcome outcome;
        const char* name;
    } kItemOutcomes[] = {{ItemOutcome::kRejected, "rejected"},
                         {ItemOutcome::kSkipped, "skipped"},
                         {ItemOutcome::kAbortsLauncher, "aborts-launcher"},
                         {ItemOutcome::kSignalsGroup, "signals-group"},
                         {ItemOutcome::kAbortsChild, "aborts-child"},
                         {ItemOutcome::kUndefined, "undefined"},
                         {ItemOutcome::kOverrunsStack, "overruns-stack"},
                         {ItemOutcome::kMayOverrunStack, "may-overrun-stack"},
                         {ItemOutcome::kCannotExecute, "cannot-execute"},
                         {ItemOutcome::kRuns, "runs"}};
    const struct
    {
        LauncherOutcome outcome;
        const char* name;
        const char* condition;
    } kOutcomes[] = {{{Outcome::kKeepsRunning, Condition::kAlways}, "keeps-running", "none"},
                     {{Outcome::kExits, Condition::kTiming}, "exits", "timing"},
                     {{Outcome::kAborts, Condition::kMacOs}, "aborts", "macos"},
                     {{Outcome::kGroupKilled, Condition::kProcessLimit},
                      "process-group-killed",
                      "process-limit"},
                     {{Outcome::kUserKilled, Condition::kAlways}, "all-processes-killed", "none"}};
    Explanation explanation;
    for (const auto& row : kItemOutcomes) {
        explanation.items.emplace_back();
        explanation.items.back().outcome = row.outcome;
    }
    for (const auto& row : kOutcomes) {
        explanation.outcomes.push_back(row.outcome);
    }
    JsonObject json(ExplanationJson("x", explanation).c_str());
    int index = 0;
    for (const auto& row : kItemOutcomes) {
        EXPECT_EQ(static_cast<std::string>(json["items"][index++]["fate"]), row.name);
    }
    index = 0;
    for (const auto& row : kOutcomes) {
        JsonObject outcome = json["outcomes"][index++];
        EXPECT_EQ(static_cast<std::string>(outcome["outcome"]), row.name);
        EXPECT_EQ(static_cast<std::string>(outcome["condition"]), row.condition);
    }
}

TEST(ExplanationText, ShowsOnlyWhatIsKnownOfAnItem)
{
    Explanation explanation;
    explanation.outcomes = {{Outcome::kKeepsRunning, Condition::kAlways}};
    explanation.items.resize(3);
    explanation.items[1].index = 1;
    explanation.items[1].program = "";
    explanation.items[1].arguments = ArgumentVector();
    explanation.items[1].replaced_by = 2;
    explanation.items[2].index = 2;
    explanation.items[2].program = "/a b";
    explanation.items[2].replaces = 1;
    explanation.items[2].problem = "a problem";
    explanation.items[2].effect = "an effect";
    explanation.items[2].note = "a note\x1b";
    explanation.is_rejected = true;
    EXPECT_EQ(ExplanationText(explanation, false),
              "item 0\n"
              "item 1\n"
              "    replaced  by item 2\n"
              "    arguments (empty vector)\n"
              "item 2\n"
              "    replaces  item 1, which ends\n"
              "    program   '/a b'\n"
              "    problem   a problem\n"
              "    effect    an effect\n"
              "    note      a note\\x1b\n"
              "No items after item 2 are read\n"
              "The launcher keeps running until SIGTERM.\n");
}

TEST(Explanation, TakesLittleMemoryForManyMissingArguments)
{
    std::vector<std::string> items;
    for (int i = 0; i < 2000; ++i) {
        items.push_back(R"({"name": "item )" + std::to_string(i) +
                        R"(", "program": "/bin/sh", "argc": 61438, "args": {"1": "x"}})");
    }
    const Explanation explanation = ExplainList(ListOf(items));
    ASSERT_EQ(explanation.items.size(), 2000U);
    for (const ExplainedItem& item : explanation.items) {
        ASSERT_TRUE(item.arguments);
        ASSERT_EQ(item.arguments->size(), 4U);
        ASSERT_EQ(CountOf(*item.arguments), 61439U);
    }
    const std::string text = ExplanationText(explanation, false);
    EXPECT_NE(text.find("    arguments /bin/sh '' x '' (61436 times)\n"), std::string::npos);
    EXPECT_LT(text.size(), 200'000U);

    // The first three fit into the limit of the output.
    const std::string json = ExplanationJson("x", explanation);
    EXPECT_LT(json.size(), 6'000'000U);
    std::size_t omitted = 0;
    for (std::size_t at = 0; (at = json.find("\"argument_count\" : 61439", at)) != json.npos;
         ++at) {
        ++omitted;
    }
    EXPECT_EQ(omitted, 1997U);
}
