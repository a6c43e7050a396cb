#include "tools/launchlist/log/make_report.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/tools/launchlist/log/report_on.h"

using namespace launchlist;

TEST(Report, CountsTornForeignAndHostileLines)
{
    LogText log;
    log.Start(0, kLauncher, "a");
    log.Raw("a helper wrote this\n");
    // Torn in the middle; the next record follows in the same line.
    log.Raw(LogText::Time(1) + " ERROR    launcher[100] [LAUNCHER  ] a 2");
    log.End(2, kLauncher, "a", 201, 0);
    log.Raw("\x1b]0;owned\x07\n\xff\xfe\n\n");
    log.Raw(LogText::Time(3) + " ERROR    launcher[x] text\n");
    log.Raw("2026-99-99T00:00:00.000Z ERROR    launcher[100] [LAUNCHER  ] text\n");
    log.Add(4, "ERROR", kLauncher, "[LAUNCHER  ] news\\x1b[31m");
    log.Raw(LogText::Time(5) +
            " ERROR    other[7] [LAUNCHER  ] a 5 is killed. ret = 5, status = 0\n");
    log.Add(6, "ERROR", kLauncher, "[QV7LOG    ] 12 records were lost");
    log.Raw(LogText::Time(7) + " ERROR    launcher[100] [LAUNCHER  ] no line end");
    const Report report = ReportOn(log);
    EXPECT_EQ(report.unread, 7U);
    ASSERT_EQ(report.unread_samples.size(), 5U);
    EXPECT_NE(report.unread_samples[0].find(":2: \"a helper wrote this\""), std::string::npos);
    EXPECT_NE(report.unread_samples[1].find(":3: \"" + LogText::Time(1)), std::string::npos);
    EXPECT_NE(report.unread_samples[2].find(":4: \"\\x1b]0;owned\\x07\""), std::string::npos);
    EXPECT_NE(report.unread_samples[3].find(":5: \"\\xff\\xfe\""), std::string::npos);
    EXPECT_NE(report.unread_samples[4].find(":6: \"\""), std::string::npos);
    EXPECT_EQ(report.other_records, 3U);
    EXPECT_EQ(report.lost_records, 12U);
    EXPECT_EQ(ItemOf(report, "a").starts, 1U);
    EXPECT_EQ(ItemOf(report, "a").ends, 1U);
}

TEST(Report, IgnoresRecordsWithACutText)
{
    LogText log;
    log.Start(0, kLauncher, "aaa\\<70000 bytes cut>");
    const Report report = ReportOn(log);
    EXPECT_EQ(report.unread, 0U);
    EXPECT_EQ(report.other_records, 1U);
    EXPECT_TRUE(report.items.empty());
}

TEST(Report, KeepsSimilarNamesApart)
{
    LogText log;
    log.End(0, kLauncher, "a", 201, 0).End(1, kLauncher, "a ", 202, 0);
    log.End(2, kLauncher, "", 203, 0).End(3, kLauncher, "a\\n", 204, 0);
    const Report report = ReportOn(log);
    ASSERT_EQ(report.items.size(), 4U);
    EXPECT_EQ(report.items[1].name, "a ");
    EXPECT_EQ(report.items[2].name, "");
    EXPECT_EQ(report.items[3].name, "a\n");
}

TEST(Report, IsEmptyForAnEmptyLog)
{
    const Report report = ReportOn(LogText());
    EXPECT_EQ(report.records, 0U);
    EXPECT_FALSE(report.first);
    EXPECT_TRUE(report.items.empty());
}

TEST(Report, CountsWithinTheGivenTime)
{
    LogText log;
    for (int i = 0; i < 10; ++i) {
        log.Start(1000 * i, kLauncher, "a").End(1000 * i + 950, kLauncher, "a", 200 + i, kExit3);
    }
    const Report report = ReportOn(log, {At(2000), At(4950), 0});
    EXPECT_EQ(report.records, 6U);
    EXPECT_EQ(ItemOf(report, "a").starts, 3U);
    EXPECT_EQ(ItemOf(report, "a").ends, 3U);
    EXPECT_EQ(report.first, At(2000));
    EXPECT_EQ(report.last, At(4950));
}

TEST(Report, ShowsARunThatSpansTheGivenTime)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b").End(900000, kLauncher, "a", 200, kExit3);
    log.End(901000, kLauncher, "b", 201, kExit3);
    const Report report = ReportOn(log, {At(100000), At(200000), 0});
    EXPECT_EQ(report.records, 0U);
    ASSERT_EQ(report.items.size(), 2U);
    EXPECT_EQ(report.items[0].running, 100000);
    EXPECT_EQ(report.items[0].state, State::kRunning);
    EXPECT_EQ(report.items[0].ends, 0U);
}

TEST(Report, OfATimeOutsideTheLogHasNoItems)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(1000, kLauncher, "a", 200, kExit3);
    const Report report = ReportOn(log, {At(5000), std::nullopt, 0});
    EXPECT_FALSE(report.first);
    EXPECT_EQ(report.last_record, At(1000));
    EXPECT_TRUE(report.items.empty());
}

TEST(Report, MentionsAClockThatWasSetBack)
{
    LogText log;
    log.Start(10000, kLauncher, "a").End(9001, kLauncher, "a", 201, 0);
    EXPECT_EQ(ReportOn(log).clock_set_back, 0U);
    log.Start(8001, kLauncher, "a");
    EXPECT_EQ(ReportOn(log).clock_set_back, 1U);
}

namespace {

Report ReportOnPart(const LogText& log, const ReportFilter& filter)
{
    const TempDirectory directory;
    return MakeReport({directory.Write("qv7log", log.Text())},
                      {std::nullopt, std::nullopt, At(Milliseconds{1000} * 24 * 3600 * 1000)},
                      filter);
}

ReportFilter OfLauncher(std::int64_t process)
{
    ReportFilter filter;
    filter.launcher = process;
    return filter;
}

std::vector<std::string> NamesOf(const Report& report)
{
    std::vector<std::string> names;
    for (const ItemReport& item : report.items) {
        names.push_back(item.name);
    }
    return names;
}

// Two launchers with items of the same name, one after the other.
LogText TwoLaunchers()
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b").Start(2, kLauncher, "bad");
    log.Start(52, 300, "bad").End(2000, kLauncher, "a", 201, kExit3).Start(2050, kLauncher, "a");
    log.Start(60000, 700, "a").Start(60001, 700, "c");
    log.Add(60002, "ERROR", 700, "[LAUNCHER  ] Failed to fork c");
    log.End(61000, 700, "a", 701, 0).Start(61050, 700, "a");
    log.Add(61060, "ERROR", 700, "[LAUNCHER  ] There is an item has no name.");
    log.Add(61070, "ERROR", 702, "[LAUNCHER  ] program path of a is empty");
    return log;
}

}  // namespace

TEST(ReportFilter, KnowsALauncherOutsideTheTimeOfTheReport)
{
    const TempDirectory directory;
    const std::string log = directory.Write("qv7log", TwoLaunchers().Text());
    const ReportRange range = {At(60000), std::nullopt, At(Milliseconds{1000} * 24 * 3600 * 1000)};
    const Report report = MakeReport({log}, range, OfLauncher(kLauncher));
    EXPECT_TRUE(report.knows_launcher);
    EXPECT_TRUE(report.items.empty());
    EXPECT_FALSE(MakeReport({log}, range, OfLauncher(999)).knows_launcher);
}

TEST(ReportFilter, SelectsTheItemsOfTheGivenNames)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b").Start(2, kLauncher, "a\\x1b");
    ReportFilter filter;
    filter.names = {"b", "a\\x1b", "none"};
    const Report report = ReportOnPart(log, filter);
    EXPECT_EQ(NamesOf(report), (std::vector<std::string>{"b", "a\x1b"}));
    EXPECT_EQ(report.unknown_names, std::vector<std::string>{"none"});
    EXPECT_EQ(report.known_names, (std::vector<std::string>{"a", "b", "a\x1b"}));
    EXPECT_TRUE(ReportOnPart(log, {}).unknown_names.empty());
}

TEST(ReportFilter, MentionsNothingThatConcernsOtherItems)
{
    LogText log;
    // A launcher that rejects its list, another one with both items, and a third without "b".
    log.Start(0, 90, "a")
        .Add(1, "ERROR", 90, "[LAUNCHER  ] Error while parsing saved json string.");
    log.Start(5000, kLauncher, "a").Start(5001, kLauncher, "b");
    log.Add(5002, "ERROR", kLauncher, "[LAUNCHER  ] There is an item has no name.");
    log.Add(5003, "DEBUG", kLauncher, "[LAUNCHER  ] unknown");
    log.Add(5004, "ERROR", kLauncher, "[QV7LOG    ] 12 records were lost");
    log.End(6000, kLauncher, "b", 201, kExit3).Raw("torn\n");
    log.Start(60000, 700, "a");
    ReportFilter filter;
    filter.names = {"b"};
    const Report report = ReportOnPart(log, filter);
    EXPECT_EQ(report.records, 2U);
    EXPECT_EQ(report.nameless_items, 0U);
    EXPECT_EQ(report.rejected_lists, 0U);
    EXPECT_EQ(report.other_records, 0U);
    // These may have been about the item.
    EXPECT_EQ(report.lost_records, 12U);
    EXPECT_EQ(report.unread, 1U);
    std::vector<std::int64_t> launchers;
    for (const Launcher& launcher : report.launchers) {
        if (launcher.is_selected) {
            launchers.push_back(launcher.process);
        }
    }
    EXPECT_EQ(launchers, std::vector<std::int64_t>{kLauncher});
    // What ended the launcher of an item concerns it.
    filter.names = {"a"};
    EXPECT_EQ(ReportOnPart(log, filter).rejected_lists, 1U);
}

TEST(ReportFilter, SelectsWhatOneLauncherDid)
{
    const Report whole = ReportOn(TwoLaunchers());
    ASSERT_EQ(whole.launchers.size(), 2U);
    EXPECT_EQ(ItemOf(whole, "a").ends, 2U);
    const Report first = ReportOnPart(TwoLaunchers(), OfLauncher(kLauncher));
    ASSERT_EQ(first.launchers.size(), 1U);
    EXPECT_EQ(first.launchers[0].process, kLauncher);
    EXPECT_EQ(NamesOf(first), (std::vector<std::string>{"a", "b", "bad"}));
    EXPECT_EQ(first.first, At(0));
    EXPECT_EQ(first.last, At(2050));
    EXPECT_EQ(first.records, 5U);
    EXPECT_EQ(first.nameless_items, 0U);
    EXPECT_EQ(ItemOf(first, "a").starts, 2U);
    EXPECT_EQ(ItemOf(first, "a").crashes, 1U);
    EXPECT_EQ(ItemOf(first, "a").no_program, 0U);
    EXPECT_EQ(ItemOf(first, "bad").failed_starts, 1U);
    for (const ItemReport& item : first.items) {
        for (const auto& run : item.runs) {
            EXPECT_EQ(run.launcher, 0U);
        }
    }
    const Report second = ReportOnPart(TwoLaunchers(), OfLauncher(700));
    EXPECT_EQ(NamesOf(second), (std::vector<std::string>{"a", "c"}));
    EXPECT_EQ(second.first, At(60000));
    EXPECT_EQ(second.nameless_items, 1U);
    EXPECT_EQ(ItemOf(second, "a").clean_ends, 1U);
    EXPECT_EQ(ItemOf(second, "c").failed_forks, 1U);
}

TEST(ReportFilter, FindsNothingForAnUnknownLauncher)
{
    const Report report = ReportOnPart(TwoLaunchers(), OfLauncher(300));
    EXPECT_TRUE(report.launchers.empty());
    EXPECT_TRUE(report.items.empty());
    EXPECT_FALSE(report.first);
}

TEST(Report, ConcludesNothingFromRecordsThatAnUnreadableFileMayHold)
{
    const TempDirectory directory;
    const LogText before = LogText()
                               .Start(0, kLauncher, "a")
                               .Start(1, kLauncher, "b")
                               .End(100, kLauncher, "a", 200, kExit3);
    const LogText after = LogText().End(9000, kLauncher, "b", 201, kExit3);
    directory.Write("qv7log.2", before.Text());
    const std::string path = directory.Write("qv7log", after.Text());
    // Nothing is missing: "a" was not restarted.
    const ItemReport whole = ItemOf(MakeReport({path}, {}), "a");
    EXPECT_EQ(whole.down, 8900);
    EXPECT_EQ(whole.unknown, 0);
    // Its restart may be in a file that cannot be read.
    ASSERT_EQ(mkdir((directory / "qv7log.1").c_str(), 0700), 0);
    const ItemReport item = ItemOf(MakeReport({path}, {}), "a");
    EXPECT_EQ(item.down, 0);
    EXPECT_EQ(item.unknown, 8900);
}

TEST(Report, DoesNotCallALauncherStoppedIfTheLastFileIsUnreadable)
{
    const TempDirectory directory;
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b");
    log.End(1000, kLauncher, "b", 201, kKilled).End(1050, kLauncher, "a", 200, kKilled);
    directory.Write("qv7log.1", log.Text());
    const std::string path = directory.Write("qv7log", "");
    ReportRange range;
    range.now = At(60000);
    EXPECT_EQ(MakeReport({path}, range).launchers.at(0).end, LauncherEnd::kStopped);
    // The launcher may have restarted both, and logged that there.
    directory.Write("qv7log", "\xff\xfe");
    EXPECT_EQ(MakeReport({path}, range).launchers.at(0).end, LauncherEnd::kUnknown);
    EXPECT_EQ(ItemOf(MakeReport({path}, range), "a").possible_stops, 1U);
    // Records of other programs that follow do not change that.
    directory.Write("qv7log.2", log.Text());
    ASSERT_EQ(unlink((directory / "qv7log.1").c_str()), 0);
    ASSERT_EQ(mkdir((directory / "qv7log.1").c_str(), 0700), 0);
    directory.Write("qv7log", LogText().Add(50000, "ERROR", 999, "[OTHER] text").Text());
    EXPECT_EQ(MakeReport({path}, range).launchers.at(0).end, LauncherEnd::kUnknown);
}
