#include "tools/launchlist/status/process_matching.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace launchlist;

namespace {

// "a b" as a command line: the two words, each with a NUL at its end.
std::string Line(std::string words)
{
    std::replace(words.begin(), words.end(), ' ', '\0');
    return words + '\0';
}

MatchedItem Item(const std::string& words, const std::string& executable = "",
                 bool is_replaced = false)
{
    return {Line(words), executable, is_replaced};
}

MatchedProcess Runs(const std::string& words, const std::string& executable = "")
{
    return {Line(words), executable};
}

// "0=1 arguments, 1=0 executable; {2 3}={4 5}; 6".
std::string Text(const Matching& matching)
{
    std::string text;
    const auto list = [](const std::vector<std::size_t>& numbers) {
        std::string joined;
        for (const std::size_t number : numbers) {
            joined += (joined.empty() ? "" : " ") + std::to_string(number);
        }
        return joined;
    };
    for (const Match& match : matching.matches) {
        text += std::to_string(match.item) + "=" + std::to_string(match.process) +
                (match.by == MatchedBy::kArguments     ? " arguments; "
                 : match.by == MatchedBy::kInterpreter ? " interpreter; "
                                                       : " executable; ");
    }
    for (const IndistinguishableItems& set : matching.indistinguishable) {
        text += "{" + list(set.items) + "}={" + list(set.processes) + "}; ";
    }
    return text + list(matching.unmatched);
}

std::string Matched(const std::vector<MatchedItem>& items,
                    const std::vector<MatchedProcess>& processes)
{
    return Text(MatchProcesses(items, processes));
}

}  // namespace

TEST(MatchProcesses, ComparesWholeCommandLines)
{
    EXPECT_EQ(Matched({Item("/a x"), Item("/a y")}, {Runs("/a y"), Runs("/a x")}),
              "0=1 arguments; 1=0 arguments; ");
    EXPECT_EQ(Matched({Item("/a x")}, {Runs("/a")}), "0");
    EXPECT_EQ(Matched({Item("/a")}, {Runs("/a x")}), "0");
    EXPECT_EQ(Matched({}, {Runs("/a")}), "0");
    EXPECT_EQ(Matched({Item("/a")}, {}), "");
}

TEST(MatchProcesses, MatchesNothingThatIsUnknown)
{
    EXPECT_EQ(Matched({{std::nullopt, "", false}}, {{std::nullopt, ""}}), "0");
    EXPECT_EQ(Matched({Item("/a")}, {{std::nullopt, ""}}), "0");
}

TEST(MatchProcesses, MatchesAnEmptyVector)
{
    EXPECT_EQ(Matched({{"", "", false}}, {{"", ""}}), "0=0 arguments; ");
}

TEST(MatchProcesses, FindsAScriptAfterItsInterpreter)
{
    EXPECT_EQ(Matched({Item("/s x")}, {Runs("/bin/sh /s x")}), "0=0 interpreter; ");
    EXPECT_EQ(Matched({Item("/s x")}, {Runs("/bin/sh -e /s x")}), "0=0 interpreter; ");
    EXPECT_EQ(Matched({Item("/s x")}, {Runs("/bin/sh /s x y")}), "0");
    EXPECT_EQ(Matched({Item("/s")}, {Runs("/bin/sh/s")}), "0");
}

TEST(MatchProcesses, PrefersAWholeCommandLineToAScript)
{
    EXPECT_EQ(
        Matched({Item("/bin/sh /s"), Item("/s")}, {Runs("/bin/sh /s"), Runs("/bin/sh -e /s")}),
        "0=0 arguments; 1=1 interpreter; ");
}

TEST(MatchProcesses, FindsAnotherTitleByTheExecutable)
{
    EXPECT_EQ(Matched({Item("/a x", "/real/a"), Item("/b", "/real/b")},
                      {Runs("a: idle", "/real/a"), Runs("/b", "/real/b")}),
              "1=1 arguments; 0=0 executable; ");
    EXPECT_EQ(Matched({Item("/a x", "/real/a")}, {Runs("a: idle", "/real/c")}), "0");
    EXPECT_EQ(Matched({Item("/a x", "")}, {Runs("a: idle", "")}), "0");
}

TEST(MatchProcesses, CannotTellItemsOfOneCommandLineApart)
{
    EXPECT_EQ(Matched({Item("/a"), Item("/a")}, {Runs("/a"), Runs("/a")}), "{0 1}={0 1}; ");
    EXPECT_EQ(Matched({Item("/a"), Item("/a"), Item("/a")}, {Runs("/a")}), "{0 1 2}={0}; ");
}

TEST(MatchProcesses, IsNotMisledByAProcessThatTakesAnothersCommandLine)
{
    EXPECT_EQ(Matched({Item("/a", "/real/a"), Item("/b", "/real/b")},
                      {Runs("/b", "/real/a"), Runs("/b", "/real/b")}),
              "1=1 arguments; 0=0 executable; ");
    // The same program: nothing distinguishes them.
    EXPECT_EQ(Matched({Item("/a x", "/real/a"), Item("/a y", "/real/a")},
                      {Runs("/a y", "/real/a"), Runs("/a y", "/real/a")}),
              "{0 1}={0 1}; ");
    // One process more than items.
    EXPECT_EQ(Matched({Item("/a", "/real/a")}, {Runs("/a", "/real/a"), Runs("/a", "/real/a")}),
              "0 1");
}

TEST(MatchProcesses, GivesAProcessToTheItemThatLasts)
{
    EXPECT_EQ(Matched({Item("/a", "", true), Item("/a")}, {Runs("/a")}), "1=0 arguments; ");
    EXPECT_EQ(Matched({Item("/a", "", true), Item("/b")}, {Runs("/a"), Runs("/b")}),
              "0=0 arguments; 1=1 arguments; ");
    EXPECT_EQ(Matched({Item("/a", "", true), Item("/a")}, {Runs("/a"), Runs("/a")}),
              "{1 0}={0 1}; ");
}

TEST(MatchProcesses, PutsEveryProcessInOnePart)
{
    std::vector<MatchedItem> items;
    std::vector<MatchedProcess> processes;
    for (int i = 0; i < 1000; ++i) {
        items.push_back(Item("/p " + std::to_string(i % 300), "/real/p"));
        processes.push_back(Runs("/p " + std::to_string(i * 7 % 400), "/real/p"));
    }
    const Matching matching = MatchProcesses(items, processes);
    std::vector<std::size_t> found = matching.unmatched;
    std::vector<std::size_t> found_items;
    for (const Match& match : matching.matches) {
        found.push_back(match.process);
        found_items.push_back(match.item);
    }
    for (const IndistinguishableItems& set : matching.indistinguishable) {
        EXPECT_LE(set.processes.size(), set.items.size());
        found.insert(found.end(), set.processes.begin(), set.processes.end());
        found_items.insert(found_items.end(), set.items.begin(), set.items.end());
    }
    std::sort(found.begin(), found.end());
    ASSERT_EQ(found.size(), processes.size());
    EXPECT_EQ(std::unique(found.begin(), found.end()), found.end());
    std::sort(found_items.begin(), found_items.end());
    EXPECT_EQ(std::unique(found_items.begin(), found_items.end()), found_items.end());
}
