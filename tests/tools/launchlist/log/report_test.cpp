#include "tools/launchlist/log/report.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/next_descriptor.h"
#include "tests/tools/launchlist/log/log_text.h"

using namespace launchlist;

namespace {

constexpr int kExit3 = 3 << 8;
constexpr int kKilled = 9;
constexpr int kLauncher = 100;

Report ReportOn(const LogText& log, const ReportRange& range = {})
{
    const TempFolder folder;
    return MakeReport({folder.Write("qv7log", log.Text())}, range);
}

const ItemReport& ItemOf(const Report& report, const std::string& name)
{
    for (const ItemReport& item : report.items) {
        if (item.name == name) {
            return item;
        }
    }
    ADD_FAILURE() << "no item " << name;
    static const ItemReport kNone;
    return kNone;
}

// `count` runs of "a", each `length` long, from the start of the log on.
LogText Runs(int count, Milliseconds length, int wait_status)
{
    LogText log;
    Milliseconds time = 0;
    for (int i = 0; i < count; ++i) {
        log.Start(time, kLauncher, "a");
        log.End(time + length, kLauncher, "a", 200 + i, wait_status);
        time += length + 50;
    }
    return log;
}

}  // namespace

TEST(Report, MeasuresTheRunsOfAnItem)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(1000, kLauncher, "a", 201, kExit3);
    log.Start(1050, kLauncher, "a").End(4050, kLauncher, "a", 202, kKilled);
    log.Start(4100, kLauncher, "a").End(4300, kLauncher, "a", 203, kExit3);
    log.Start(4350, kLauncher, "a");
    const Report report = ReportOn(log);
    EXPECT_EQ(report.records, 7U);
    EXPECT_EQ(report.launchers, 1U);
    EXPECT_TRUE(report.has_starts);
    ASSERT_EQ(report.items.size(), 1U);
    const ItemReport& item = report.items[0];
    EXPECT_EQ(item.name, "a");
    EXPECT_EQ(item.starts, 4U);
    EXPECT_EQ(item.ends, 3U);
    EXPECT_EQ(item.restarts, 3U);
    EXPECT_EQ(item.worst_minute, 3U);
    EXPECT_EQ(item.shortest, 200);
    EXPECT_EQ(item.median, 1000);
    EXPECT_EQ(item.longest, 3000);
    EXPECT_EQ(item.unknown_runs, 0U);
    EXPECT_EQ(item.failed_starts, 0U);
    EXPECT_EQ(item.state, State::kRunning);
    EXPECT_FALSE(item.loop);
    EXPECT_EQ(item.ends_in_words,
              (std::map<std::string, std::size_t>{{"exit status 3", 2}, {"killed by SIGKILL", 1}}));
}

TEST(Report, WithoutDebugRecordsKnowsNoStartAndNoFirstRun)
{
    LogText log;
    log.End(1000, kLauncher, "a", 201, 0).End(2050, kLauncher, "a", 202, 0);
    log.End(2300, kLauncher, "a", 203, 0);
    const Report report = ReportOn(log);
    EXPECT_FALSE(report.has_starts);
    const ItemReport& item = ItemOf(report, "a");
    EXPECT_FALSE(item.starts);
    EXPECT_EQ(item.ends, 3U);
    EXPECT_EQ(item.unknown_runs, 1U);
    EXPECT_EQ(item.restarts, 2U);
    // A run begins a restart pause after the end before it.
    EXPECT_EQ(item.shortest, 200);
    EXPECT_EQ(item.longest, 1000);
    EXPECT_EQ(item.state, State::kUnknown);
}

TEST(Report, KnowsStartsAgainThoughTheLogBeginsInTheMiddleOfARun)
{
    LogText log;
    log.End(1000, kLauncher, "a", 201, 0).Start(1050, kLauncher, "a");
    log.End(1150, kLauncher, "a", 202, 0);
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.starts, 1U);
    EXPECT_EQ(item.unknown_runs, 1U);
    EXPECT_EQ(item.longest, 100);
    EXPECT_EQ(item.state, State::kEnded);
}

TEST(Report, TellsWhatCouldNotBeStartedFromProcessesThatCarryOn)
{
    LogText log;
    log.Start(0, kLauncher, "good").Start(1, kLauncher, "bad");
    for (int i = 0; i < 10; ++i) {
        log.Start(51 + 50 * i, 300 + i, "bad");
    }
    log.End(1000, kLauncher, "good", 201, kKilled).End(1001, kLauncher, "bad", 300, kKilled);
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers, 1U);
    const ItemReport& bad = ItemOf(report, "bad");
    EXPECT_EQ(bad.failed_starts, 10U);
    EXPECT_EQ(bad.ends, 0U);  // What ended was no program.
    EXPECT_FALSE(bad.shortest);
    EXPECT_EQ(ItemOf(report, "good").failed_starts, 0U);
    EXPECT_EQ(ItemOf(report, "good").ends, 1U);
}

TEST(Report, TakesANewProcessForTheItemsChildOnlyWithinASecond)
{
    const struct
    {
        Milliseconds time;
        std::size_t launchers, failed_starts;
    } kTable[] = {{5999, 2, 0}, {6000, 1, 1}, {7000, 1, 1}, {7001, 2, 0}};
    for (const auto& row : kTable) {
        LogText log;
        log.Start(6000, kLauncher, "a").Start(row.time, 300, "a");
        const Report report = ReportOn(log);
        EXPECT_EQ(report.launchers, row.launchers) << row.time;
        EXPECT_EQ(ItemOf(report, "a").failed_starts, row.failed_starts) << row.time;
    }
}

TEST(Report, TakesNoNewProcessForTheChildOfARunThatHasEnded)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(100, kLauncher, "a", 201, 0).Start(150, 300, "a");
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers, 2U);
    EXPECT_EQ(ItemOf(report, "a").failed_starts, 0U);
    EXPECT_EQ(ItemOf(report, "a").state, State::kRunning);
}

TEST(Report, WaitsASecondBeforeItCallsAnotherTryRunning)
{
    for (const Milliseconds last : {1050, 1051}) {
        LogText log;
        log.Start(0, kLauncher, "a").Start(50, 300, "a");
        log.Add(last, "ERROR", kLauncher, "[LAUNCHER  ] There is an item has no name.");
        EXPECT_EQ(ItemOf(ReportOn(log), "a").state,
                  last == 1050 ? State::kUnknown : State::kRunning);
    }
}

TEST(Report, KnowsARunWithoutLength)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(0, kLauncher, "a", 201, 0);
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.shortest, 0);
    EXPECT_EQ(item.unknown_runs, 0U);
}

TEST(Report, CallsAProgramRunningOnlyWhenItWasStartedInTheEnd)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(50, 300, "a").Start(100, 301, "a");
    EXPECT_EQ(ItemOf(ReportOn(log), "a").state, State::kUnknown);
    log.Add(5000, "ERROR", kLauncher, "[LAUNCHER  ] There is an item has no name.");
    EXPECT_EQ(ItemOf(ReportOn(log), "a").state, State::kRunning);
    EXPECT_EQ(ItemOf(ReportOn(log), "a").failed_starts, 2U);
}

TEST(Report, TellsWhatCouldNotBeStartedFromItsEndWithoutDebugRecords)
{
    LogText log;
    log.End(500, kLauncher, "good", 201, 0);
    // Process 300 wrote about the item, so it was a supervisor; its own child did run.
    log.End(600, 300, "bad", 301, kExit3).End(1000, kLauncher, "bad", 300, kKilled);
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers, 1U);
    EXPECT_EQ(ItemOf(report, "bad").failed_starts, 1U);
    EXPECT_EQ(ItemOf(report, "bad").ends, 1U);
}

TEST(Report, TakesASecondLauncherForWhatItIs)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b");
    // Killed, and started again much later; then killed and started again at once.
    log.Start(60000, 400, "a").Start(60001, 400, "b");
    log.Start(60051, 500, "a").Start(60052, 500, "b");
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers, 3U);
    for (const char* name : {"a", "b"}) {
        const ItemReport& item = ItemOf(report, name);
        EXPECT_EQ(item.starts, 3U);
        EXPECT_EQ(item.failed_starts, 0U);
        EXPECT_EQ(item.state, State::kRunning);
    }
}

TEST(Report, DoesNotConfuseAnOldLauncherWithAChildOfItsNumber)
{
    LogText log;
    log.Start(0, 300, "a").End(500, 300, "a", 301, kKilled);
    log.Start(60000, kLauncher, "a").End(61000, kLauncher, "a", 300, kExit3);
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers, 2U);
    EXPECT_EQ(ItemOf(report, "a").failed_starts, 0U);
    EXPECT_EQ(ItemOf(report, "a").ends, 2U);
}

TEST(Report, CountsWhatNeverRan)
{
    LogText log;
    log.Start(0, kLauncher, "a");
    log.Add(1, "ERROR", 201, "[LAUNCHER  ] program path of a is empty");
    log.Start(2, kLauncher, "b");
    log.Add(3, "ERROR", kLauncher, "[LAUNCHER  ] Failed to fork b");
    log.Add(4, "ERROR", kLauncher, "[LAUNCHER  ] There is an item has no name.");
    log.Add(5, "ERROR", kLauncher, "[LAUNCHER  ] Error while parsing saved json string.");
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers, 1U);
    EXPECT_EQ(report.nameless_items, 1U);
    EXPECT_EQ(report.refused_lists, 1U);
    EXPECT_EQ(ItemOf(report, "a").no_program, 1U);
    EXPECT_EQ(ItemOf(report, "a").state, State::kUnknown);
    EXPECT_EQ(ItemOf(report, "b").failed_forks, 1U);
    EXPECT_EQ(ItemOf(report, "b").state, State::kUnknown);
}

TEST(Report, FindsLoops)
{
    EXPECT_FALSE(ItemOf(ReportOn(Runs(kLoopRuns - 1, 100, kExit3)), "a").loop);
    EXPECT_FALSE(ItemOf(ReportOn(Runs(20, kShortRun, kExit3)), "a").loop);
    const auto crash = ItemOf(ReportOn(Runs(20, kShortRun - 1, kExit3)), "a").loop;
    ASSERT_TRUE(crash);
    EXPECT_EQ(crash->runs, 20U);
    EXPECT_TRUE(crash->is_crash);
    const auto clean = ItemOf(ReportOn(Runs(kLoopRuns, 100, 0)), "a").loop;
    ASSERT_TRUE(clean);
    EXPECT_FALSE(clean->is_crash);
    EXPECT_EQ(FormatTimeStamp(clean->from), LogText::Time(0));
    EXPECT_EQ(FormatTimeStamp(clean->to), LogText::Time(700));
}

TEST(Report, ALongRunBreaksALoop)
{
    LogText log = Runs(4, 100, kExit3);
    log.Start(1000, kLauncher, "a").End(60000, kLauncher, "a", 300, kExit3);
    log.Start(60050, kLauncher, "a").End(60150, kLauncher, "a", 301, kExit3);
    EXPECT_FALSE(ItemOf(ReportOn(log), "a").loop);
}

TEST(Report, TellsTheLongestLoopAndOfTwoTheFirst)
{
    const struct
    {
        std::size_t before, behind, told;
        Milliseconds from;
    } kTable[] = {{8, 6, 8, 0}, {6, 8, 8, 70000}, {6, 6, 6, 0}};
    for (const auto& row : kTable) {
        LogText log;
        int child = 200;
        const auto add = [&](std::size_t runs, Milliseconds time) {
            for (std::size_t i = 0; i < runs; ++i, time += 150) {
                log.Start(time, kLauncher, "a").End(time + 100, kLauncher, "a", ++child, 0);
            }
        };
        add(row.before, 0);
        log.Start(10000, kLauncher, "a").End(60000, kLauncher, "a", ++child, kExit3);
        add(row.behind, 70000);
        const auto loop = ItemOf(ReportOn(log), "a").loop;
        ASSERT_TRUE(loop);
        EXPECT_EQ(loop->runs, row.told);
        EXPECT_EQ(FormatTimeStamp(loop->from), LogText::Time(row.from));
        EXPECT_FALSE(loop->is_crash);
    }
}

TEST(Report, FindsTheWorstMinute)
{
    LogText log;
    int child = 200;
    // The restarts are at 10.05, 30.05, 69.95, 70.05 and 200 seconds: 3 within one minute.
    for (const Milliseconds end : {10000, 30000, 69900, 70000, 199950}) {
        log.Start(end - 10, kLauncher, "a").End(end, kLauncher, "a", ++child, 0);
    }
    log.Start(200000, kLauncher, "a");
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.restarts, 5U);
    EXPECT_EQ(item.worst_minute, 3U);
}

TEST(Report, TakesTheMiddleOfTwoForTheMedian)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(1000, kLauncher, "a", 201, 0);
    log.Start(2000, kLauncher, "a").End(5000, kLauncher, "a", 202, 0);
    EXPECT_EQ(ItemOf(ReportOn(log), "a").median, 2000);
}

TEST(Report, EndsAMinuteAfterSixtySeconds)
{
    for (const Milliseconds second_restart : {60999, 61000}) {
        LogText log;
        log.Start(0, kLauncher, "a").End(950, kLauncher, "a", 201, 0).Start(1000, kLauncher, "a");
        log.End(second_restart - 50, kLauncher, "a", 202, 0).Start(second_restart, kLauncher, "a");
        EXPECT_EQ(ItemOf(ReportOn(log), "a").worst_minute, second_restart < 61000 ? 2U : 1U);
    }
}

TEST(Report, ReadsNothingIntoAClockThatWasSetBack)
{
    LogText log;
    log.Start(10000, kLauncher, "a").End(5000, kLauncher, "a", 201, 0);
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.ends, 1U);
    EXPECT_EQ(item.unknown_runs, 1U);
    EXPECT_FALSE(item.shortest);
}

TEST(Report, LooksOnlyAtTheGivenTime)
{
    const LogText log = Runs(10, 950, kExit3);
    const Milliseconds first = *ParseTimeStamp(LogText::Time(0));
    const Report report = ReportOn(log, {first + 2000, first + 4950});
    EXPECT_EQ(report.records, 6U);
    EXPECT_EQ(ItemOf(report, "a").starts, 3U);
    EXPECT_EQ(ItemOf(report, "a").ends, 3U);
    EXPECT_EQ(report.first, first + 2000);
    EXPECT_EQ(report.last, first + 4950);
}

TEST(Report, CountsTornForeignAndHostilePieces)
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

TEST(Report, TakesNoCutNameForAName)
{
    LogText log;
    log.Start(0, kLauncher, "aaa\\<70000 bytes cut>");
    const Report report = ReportOn(log);
    EXPECT_EQ(report.unread, 0U);
    EXPECT_EQ(report.other_records, 1U);
    EXPECT_TRUE(report.items.empty());
}

TEST(Report, KeepsNamesApartThatOnlyLookAlike)
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

TEST(Report, FindsRotatedFilesByItselfAndReadsThemInOrder)
{
    const TempFolder folder;
    const std::string path = folder.Write(
        "qv7log", LogText().Start(4050, kLauncher, "a").End(5050, kLauncher, "a", 203, 0).Text());
    folder.Write("qv7log.1", LogText().End(4000, kLauncher, "a", 202, 0).Text());
    folder.Write("qv7log.2", LogText()
                                 .Start(0, kLauncher, "a")
                                 .End(1000, kLauncher, "a", 201, 0)
                                 .Start(1050, kLauncher, "a")
                                 .Text());
    folder.Write("qv7log.lock", "no log");
    // A run that spans two files is one run; naming a file twice does not count it twice.
    const Report report = MakeReport({path, folder / "qv7log.1"}, {});
    ASSERT_EQ(report.files.size(), 3U);
    EXPECT_EQ(report.files[0].path, folder / "qv7log.2");
    EXPECT_EQ(report.files[2].path, path);
    EXPECT_EQ(report.unread, 0U);
    const ItemReport& item = ItemOf(report, "a");
    EXPECT_EQ(item.starts, 3U);
    EXPECT_EQ(item.ends, 3U);
    EXPECT_EQ(item.unknown_runs, 0U);
    EXPECT_EQ(item.longest, 2950);
}

TEST(Report, TakesTheNumbers1To99ForOldFiles)
{
    const TempFolder folder;
    const std::string path = folder.Write("qv7log", "");
    for (const char* number : {"0", "1", "99", "100"}) {
        folder.Write(std::string("qv7log.") + number, "");
    }
    std::vector<std::string> read;
    for (const LogFile& file : MakeReport({path}, {}).files) {
        read.push_back(file.path);
    }
    EXPECT_EQ(read, (std::vector<std::string>{folder / "qv7log.99", folder / "qv7log.1", path}));
}

TEST(Report, ReadsAFileOnceThatHasTwoNames)
{
    const TempFolder folder;
    const std::string path =
        folder.Write("qv7log", LogText().End(0, kLauncher, "a", 201, 0).Text());
    ASSERT_EQ(link(path.c_str(), (folder / "qv7log.1").c_str()), 0);
    EXPECT_EQ(ItemOf(MakeReport({path}, {}), "a").ends, 1U);
}

TEST(Report, ClosesEveryLog)
{
    const TempFolder folder;
    const std::string path = folder.Write("qv7log", "");
    folder.Write("qv7log.1", "");
    ASSERT_EQ(link(path.c_str(), (folder / "qv7log.2").c_str()), 0);
    ASSERT_EQ(mkdir((folder / "qv7log.3").c_str(), 0700), 0);
    const int before = NextDescriptor();
    MakeReport({path, path, folder / "none"}, {});
    EXPECT_EQ(NextDescriptor(), before);
}

TEST(Report, SaysWhatItCouldNotRead)
{
    const TempFolder folder;
    const std::string path =
        folder.Write("qv7log", LogText().End(0, kLauncher, "a", 201, 0).Text());
    ASSERT_EQ(mkdir((folder / "qv7log.1").c_str(), 0700), 0);
    const Report report = MakeReport({path, folder / "none"}, {});
    ASSERT_EQ(report.files.size(), 3U);
    EXPECT_FALSE(report.files[0].error.empty());
    EXPECT_TRUE(report.files[1].error.empty());
    EXPECT_EQ(report.files[2].path, folder / "none");
    EXPECT_FALSE(report.files[2].error.empty());
    EXPECT_EQ(report.items.size(), 1U);
}

TEST(Report, OfAnEmptyLogIsEmpty)
{
    const Report report = ReportOn(LogText());
    EXPECT_EQ(report.records, 0U);
    EXPECT_FALSE(report.first);
    EXPECT_TRUE(report.items.empty());
}
