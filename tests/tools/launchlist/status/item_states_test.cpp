#include "tools/launchlist/status/item_states.h"

#include <gtest/gtest.h>
#include <time.h>

#include "tests/support/temp_directory.h"

using namespace launchlist;

namespace {

constexpr pid_t kLauncher = 100;
const Milliseconds kNow = static_cast<Milliseconds>(time(nullptr)) * 1000;
constexpr Milliseconds kAge = 600000;

std::string Record(Milliseconds age, const std::string& text, const char* level = "ERROR   ",
                   pid_t process = kLauncher)
{
    return FormatTimeStamp(kNow - age) + " " + level + " launcher[" + std::to_string(process) +
           "] [LAUNCHER  ] " + text + "\n";
}

std::string Start(Milliseconds age, const std::string& name, pid_t process = kLauncher)
{
    return Record(age, "Start to fork " + name, "DEBUG   ", process);
}

std::string End(Milliseconds age, const std::string& name, int status = 256)
{
    return Record(age, name + " 7 is killed. ret = 7, status = " + std::to_string(status));
}

ListedItem Item(int index, const std::string& name)
{
    ListedItem item;
    item.index = index;
    item.name = name;
    item.program = "/a";
    item.command_line = "/a";
    return item;
}

ProcessStatus Child(pid_t id, pid_t parent = kLauncher, Milliseconds age = 5000)
{
    ProcessStatus process;
    process.id = id;
    process.parent = parent;
    process.start = kNow - age;
    return process;
}

class DecideItemsTest : public testing::Test
{
protected:
    DecideItemsTest()
    {
        m_evidence.launcher = kLauncher;
        m_evidence.launcher_start = kNow - kAge;
        m_evidence.now = kNow;
    }

    LauncherStatus Decide(const std::string& log)
    {
        LauncherLog reader(m_directory.Write("qv7log", log));
        ProcessTimes processes = {{kLauncher, kNow - kAge}};
        for (const ProcessStatus& supervisor : m_evidence.supervisors) {
            processes[supervisor.id] = supervisor.start;
        }
        reader.Update(processes, kNow);
        m_evidence.log = &reader;
        LauncherStatus launcher;
        launcher.log_may_lack_records = m_lacks_records;
        DecideItems(m_evidence, launcher);
        return launcher;
    }

    // The state and the reason of the only item.
    std::pair<ItemState, std::string> StateWith(const std::string& log)
    {
        const LauncherStatus launcher = Decide(log);
        return {launcher.items.at(0).state, launcher.items.at(0).reason};
    }

    const TempDirectory m_directory;
    ItemEvidence m_evidence;
    bool m_lacks_records = false;
};

}  // namespace

TEST_F(DecideItemsTest, AnItemThatHasJustEndedIsBetweenRuns)
{
    m_evidence.items = {Item(0, "a")};
    EXPECT_EQ(StateWith(Start(5000, "a") + End(40, "a")),
              std::make_pair(ItemState::kBetweenRuns, std::string("exit status 1, 0.04 s ago")));
    EXPECT_EQ(StateWith(End(-20, "a")).first, ItemState::kBetweenRuns)
        << "logged after the snapshot";
    EXPECT_EQ(StateWith(End(2000, "a")).first, ItemState::kUnknown);
    EXPECT_EQ(StateWith(End(60, "a") + Start(10, "a")).first, ItemState::kStarting);
}

TEST_F(DecideItemsTest, AnItemIsAbandonedAfterAFailedFork)
{
    m_evidence.items = {Item(0, "a")};
    const auto [state, reason] = StateWith(End(300000, "a") + Record(299000, "Failed to fork a"));
    EXPECT_EQ(state, ItemState::kAbandoned);
    EXPECT_EQ(reason, "the launcher could not fork at " + FormatForPeople(kNow - 299000) +
                          " UTC, and does not try again");
    // A later item of the same name.
    EXPECT_EQ(StateWith(Record(300000, "Failed to fork a") + End(10, "a")).first,
              ItemState::kBetweenRuns);
}

TEST_F(DecideItemsTest, ARecordMayBeThatOfAnEarlierItemOfTheSameName)
{
    m_evidence.items = {Item(0, "a"), Item(1, "a")};
    m_evidence.items[0].replaced_by = 1;
    const std::string doubt = "; the log does not say whether it was this one or an earlier one";
    const std::pair<std::string, std::string> cases[] = {
        {End(40, "a", 9), "an item of this name ended 0.04 s ago (killed by SIGKILL)" + doubt},
        {Start(40, "a"), "the launcher is starting an item of this name" + doubt},
        {Record(300000, "Failed to fork a"),
         "the launcher could not fork an item of this name at " + FormatForPeople(kNow - 300000) +
             " UTC" + doubt}};
    for (const auto& [log, reason] : cases) {
        const ItemStatus item = Decide(log).items.at(1);
        EXPECT_EQ(item.state, ItemState::kUnknown);
        EXPECT_EQ(item.reason, reason);
    }
    EXPECT_EQ(Decide(End(40, "a")).items.at(0).state, ItemState::kReplaced);
}

TEST_F(DecideItemsTest, ARecordIsThatOfTheLastItemOfTheNameOnceALaterItemRuns)
{
    m_evidence.items = {Item(0, "a"), Item(1, "a"), Item(2, "b")};
    m_evidence.items[0].replaced_by = 1;
    m_evidence.processes = {Child(8, kLauncher, 5000)};
    m_evidence.command_lines = {"/b"};
    m_evidence.matching.matches = {{2, 0, MatchedBy::kArguments}};
    EXPECT_EQ(Decide(End(40, "a")).items.at(1).state, ItemState::kBetweenRuns);
    EXPECT_EQ(Decide(Record(4000, "Failed to fork a")).items.at(1).state, ItemState::kAbandoned);
    EXPECT_EQ(Decide(Record(6000, "Failed to fork a")).items.at(1).state, ItemState::kUnknown);
    // A child of a supervisor may have been started by any of them.
    m_evidence.processes = {Child(8, 30, 5000)};
    EXPECT_EQ(Decide(End(40, "a")).items.at(1).state, ItemState::kUnknown);
}

TEST_F(DecideItemsTest, AnItemWithoutAStartWasNeverStarted)
{
    m_evidence.items = {Item(0, "b")};
    EXPECT_EQ(StateWith(Start(5000, "a")).first, ItemState::kNeverStarted);
    EXPECT_EQ(StateWith(End(5000, "a")).first, ItemState::kUnknown) << "starts are not logged";
    EXPECT_EQ(StateWith("").first, ItemState::kUnknown);
    m_lacks_records = true;
    EXPECT_EQ(StateWith(Start(5000, "a")).first, ItemState::kUnknown);
}

TEST_F(DecideItemsTest, AnItemWhoseArgumentsCannotBeConvertedFails)
{
    m_evidence.items = {Item(0, "a")};
    m_evidence.items[0].command_line.reset();
    m_evidence.items[0].problem = "its arguments cannot be converted";
    EXPECT_EQ(StateWith(""), std::make_pair(ItemState::kFailing,
                                            std::string("its arguments cannot be converted")));
    EXPECT_EQ(StateWith(End(10, "a", 6)).first, ItemState::kBetweenRuns);
}

TEST_F(DecideItemsTest, TheLogShowsTheItemOfASupervisor)
{
    m_evidence.items = {Item(0, "a"), Item(1, "b")};
    m_evidence.supervisors = {Child(30), Child(31, 30), Child(32, 31)};
    const LauncherStatus launcher = Decide(Start(4000, "b", 31) + End(300000, "a"));
    EXPECT_EQ(launcher.items[0].state, ItemState::kUnknown);
    EXPECT_EQ(launcher.items[1].state, ItemState::kFailing);
    EXPECT_EQ(launcher.items[1].supervisors, 2U) << "the last one has not forked";
    EXPECT_EQ(launcher.supervisors[0].item, 1);
    EXPECT_EQ(launcher.supervisors[2].item, 1);
}

TEST_F(DecideItemsTest, AChildFailsOnlyIfItForksOrWritesToTheLog)
{
    m_evidence.items = {Item(0, "a")};
    m_evidence.supervisors = {Child(30, kLauncher, 300000)};
    EXPECT_EQ(StateWith("").first, ItemState::kStarting);
    EXPECT_EQ(StateWith(Start(200000, "a", 30)).first, ItemState::kFailing);
    m_evidence.supervisors.push_back(Child(31, 30, 0));
    const LauncherStatus launcher = Decide("");
    EXPECT_EQ(launcher.items[0].state, ItemState::kFailing);
    EXPECT_EQ(launcher.items[0].supervisors, 1U);
    EXPECT_TRUE(launcher.supervisors[0].has_failed);
    EXPECT_FALSE(launcher.supervisors[1].has_failed);
}

TEST_F(DecideItemsTest, DoesNotEliminateWhereAnythingIsUncertain)
{
    m_evidence.items = {Item(0, "a")};
    m_evidence.supervisors = {Child(30), Child(31, 30)};
    EXPECT_EQ(StateWith("").first, ItemState::kFailing);
    m_evidence.list_may_have_changed = true;
    EXPECT_EQ(StateWith("").first, ItemState::kUnknown);
    m_evidence.list_may_have_changed = false;
    m_evidence.processes = {Child(8)};
    m_evidence.command_lines = {"/b"};
    m_evidence.matching.unmatched = {0};
    EXPECT_EQ(StateWith("").first, ItemState::kUnknown);
}

TEST_F(DecideItemsTest, CountsRestartsByTheEndsBeforeThem)
{
    m_evidence.items = {Item(0, "a"), Item(1, "b")};
    m_evidence.processes = {Child(8)};
    m_evidence.command_lines = {"/a"};
    m_evidence.matching.matches = {{0, 0, MatchedBy::kArguments}};
    m_evidence.launcher_start = kNow - 3 * 3600000;
    m_evidence.launcher = kLauncher;
    const std::string log = End(500000, "a") + End(400000, "a") + End(300000, "b") + End(20, "b");
    const LauncherStatus launcher = Decide(log);
    EXPECT_EQ(launcher.items[0].restarts, 2U);
    EXPECT_EQ(launcher.items[0].restarts_last_hour, 2U);
    EXPECT_EQ(launcher.items[1].restarts, 1U) << "the last end is not yet followed by a start";
    m_evidence.log = nullptr;
    LauncherStatus without_log;
    DecideItems(m_evidence, without_log);
    EXPECT_FALSE(without_log.items[0].restarts);
    EXPECT_FALSE(without_log.items[0].restarts_last_hour);
}

TEST_F(DecideItemsTest, DoesNotCountRestartsOfItemsThatShareAName)
{
    m_evidence.items = {Item(0, "a"), Item(1, "a"), Item(2, "b")};
    m_evidence.items[0].replaced_by = 1;
    const LauncherStatus launcher = Decide(End(5000, "a") + End(4000, "b"));
    EXPECT_FALSE(launcher.items[0].restarts);
    EXPECT_FALSE(launcher.items[1].restarts);
    EXPECT_EQ(launcher.items[2].restarts, 0U);
}
