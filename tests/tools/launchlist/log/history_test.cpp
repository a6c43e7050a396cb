#include "tools/launchlist/log/history.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/tools/launchlist/log/report_on.h"

using namespace launchlist;

namespace {

constexpr Milliseconds kHour = 3600000;

// A stop at `time`: the items are killed one after another, a restart pause apart.
void Stop(LogText& log, Milliseconds time, const std::vector<std::string>& names, int process,
          int child = 900)
{
    for (const std::string& name : names) {
        log.End(time, process, name, child++, kKilled);
        time += 51;
    }
}

}  // namespace

TEST(History, InfersFailedStartsFromProcessesThatContinueTheItem)
{
    LogText log;
    log.Start(0, kLauncher, "good").Start(1, kLauncher, "bad");
    for (int i = 0; i < 10; ++i) {
        log.Start(51 + 50 * i, 300 + i, "bad");
    }
    log.End(1000, kLauncher, "good", 201, kKilled).End(1051, kLauncher, "bad", 300, kKilled);
    const Report report = ReportOn(log);
    ASSERT_EQ(report.launchers.size(), 1U);
    EXPECT_EQ(report.launchers[0].end, LauncherEnd::kStopped);
    const ItemReport& bad = ItemOf(report, "bad");
    EXPECT_EQ(bad.failed_starts, 10U);
    EXPECT_EQ(bad.ends, 0U);  // What ended was a supervisor, not the program.
    EXPECT_FALSE(bad.shortest);
    EXPECT_EQ(bad.running, 0);
    EXPECT_EQ(ItemOf(report, "good").failed_starts, 0U);
    EXPECT_EQ(ItemOf(report, "good").stops, 1U);
}

TEST(History, AttributesANewProcessToAFailedStartWithinASecondOnly)
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
        EXPECT_EQ(report.launchers.size(), row.launchers) << row.time;
        EXPECT_EQ(ItemOf(report, "a").failed_starts, row.failed_starts) << row.time;
    }
}

TEST(History, DoesNotDecideWhetherALateProcessIsAChildOrALauncher)
{
    const struct
    {
        Milliseconds time;
        bool is_doubtful;
    } kTable[] = {{7001, true}, {66000, true}, {66001, false}, {5999, false}};
    for (const auto& row : kTable) {
        LogText log;
        log.Start(6000, kLauncher, "a").Start(row.time, 300, "a").Start(90000, kLauncher, "b");
        const Report report = ReportOn(log);
        ASSERT_EQ(report.launchers.size(), 2U) << row.time;
        const Launcher& late = report.launchers[1];
        EXPECT_EQ(late.may_be_child_of == kLauncher, row.is_doubtful) << row.time;
        EXPECT_EQ(ItemOf(report, "a").failed_starts, 0U) << row.time;
        // If it is a child, the program was not executed.
        EXPECT_EQ(ItemOf(report, "a").runs[0].role == Role::kAttempt, row.is_doubtful) << row.time;
        EXPECT_EQ(report.launchers[0].end == LauncherEnd::kVanished, false) << row.time;
    }
}

TEST(History, DoesNotDecideHowALauncherOfOneItemWasReplaced)
{
    for (const Milliseconds time : {30000, 66001}) {
        LogText log;
        log.Start(6000, kLauncher, "a").Start(time, 300, "a");
        const Report report = ReportOn(log);
        ASSERT_EQ(report.launchers.size(), 2U);
        EXPECT_EQ(report.launchers[0].end,
                  time == 30000 ? LauncherEnd::kUnknown : LauncherEnd::kVanished);
    }
}

TEST(History, DoesNotDecideWhoContinuesAnInterruptedSeriesOfFailedStarts)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(51, 300, "a").Start(102, 301, "a");
    // The machine slept for an hour.
    log.Start(kHour, 302, "a").Start(kHour + 51, 303, "a");
    const Report report = ReportOn(log);
    ASSERT_EQ(report.launchers.size(), 2U);
    EXPECT_FALSE(report.launchers[0].may_be_child_of);
    EXPECT_EQ(report.launchers[1].process, 302);
    EXPECT_EQ(report.launchers[1].may_be_child_of, kLauncher);
    EXPECT_EQ(ItemOf(report, "a").failed_starts, 3U);
    EXPECT_EQ(ItemOf(report, "a").running, 0);
}

TEST(History, KnowsALauncherByItsSecondItem)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b");
    log.Start(5000, 300, "a").Start(5001, 300, "b");
    const Report report = ReportOn(log);
    ASSERT_EQ(report.launchers.size(), 2U);
    EXPECT_FALSE(report.launchers[1].may_be_child_of);
    EXPECT_EQ(report.launchers[0].end, LauncherEnd::kVanished);
}

TEST(History, KnowsALateChildByTheRecordOfItsEnd)
{
    for (const int child : {300, 301}) {
        LogText log;
        log.Start(0, kLauncher, "a")
            .Start(5000, 300, "a")
            .End(9000, kLauncher, "a", child, kKilled);
        const Report report = ReportOn(log);
        const bool is_child = child == 300;
        ASSERT_EQ(report.launchers.size(), is_child ? 1U : 2U);
        EXPECT_FALSE(report.launchers.back().may_be_child_of);
        EXPECT_EQ(ItemOf(report, "a").failed_starts, is_child ? 1U : 0U);
    }
}

TEST(History, DoesNotAttributeANewProcessToARunThatHasEnded)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(100, kLauncher, "a", 201, 0).Start(150, 300, "a");
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers.size(), 2U);
    EXPECT_EQ(ItemOf(report, "a").failed_starts, 0U);
}

TEST(History, InfersFailedStartsFromTheEndOfASupervisorWithoutDebugRecords)
{
    LogText log;
    log.End(500, kLauncher, "good", 201, 0);
    // Process 300 wrote about the item, so it was a supervisor; its own child did run.
    log.End(600, 300, "bad", 301, kExit3).End(1000, kLauncher, "bad", 300, kKilled);
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers.size(), 1U);
    EXPECT_EQ(ItemOf(report, "bad").failed_starts, 1U);
    EXPECT_EQ(ItemOf(report, "bad").ends, 1U);
}

TEST(History, DoesNotConfuseAnEarlierLauncherWithAChildOfTheSameId)
{
    LogText log;
    log.Start(0, 300, "a").End(500, 300, "a", 301, kKilled);
    log.Start(60000, kLauncher, "a").End(61000, kLauncher, "a", 300, kExit3);
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers.size(), 2U);
    EXPECT_EQ(ItemOf(report, "a").failed_starts, 0U);
    EXPECT_EQ(ItemOf(report, "a").ends, 2U);
}

TEST(History, DetectsAChildThatTurnsOutToBeALauncher)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b");
    // Killed, and another one started at once.
    log.Start(60, 500, "a").Start(61, 500, "b");
    const Report report = ReportOn(log);
    ASSERT_EQ(report.launchers.size(), 2U);
    EXPECT_EQ(report.launchers[0].end, LauncherEnd::kVanished);
    EXPECT_FALSE(report.launchers[0].is_certain);
    for (const char* name : {"a", "b"}) {
        EXPECT_EQ(ItemOf(report, name).starts, 2U);
        EXPECT_EQ(ItemOf(report, name).failed_starts, 0U);
    }
}

TEST(History, RecognisesAStop)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b");
    Stop(log, kHour, {"b", "a"}, kLauncher);
    const Report report = ReportOn(log);
    ASSERT_EQ(report.launchers.size(), 1U);
    EXPECT_EQ(report.launchers[0].end, LauncherEnd::kStopped);
    EXPECT_TRUE(report.launchers[0].is_certain);
    for (const char* name : {"a", "b"}) {
        const ItemReport& item = ItemOf(report, name);
        EXPECT_EQ(item.stops, 1U);
        EXPECT_EQ(item.crashes, 0U);
        EXPECT_EQ(item.state, State::kStopped);
        EXPECT_EQ(item.severity, ItemSeverity::kHealthy);
    }
}

TEST(History, TreatsTheStopOfAnItemInItsPauseAsOne)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b");
    log.End(kHour - 20, kLauncher, "b", 300, kExit3).End(kHour, kLauncher, "a", 200, kKilled);
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers[0].end, LauncherEnd::kStopped);
    EXPECT_EQ(ItemOf(report, "b").crashes, 1U);
    EXPECT_EQ(ItemOf(report, "b").state, State::kEnded);
}

TEST(History, DoesNotCallALauncherStoppedIfItsChildWasJustKilled)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(kHour, kLauncher, "a", 200, kKilled);
    ReportRange range;
    range.now = At(kHour + 999);
    const Report now = ReportOn(log, range);
    EXPECT_NE(now.launchers[0].end, LauncherEnd::kStopped);
    EXPECT_EQ(ItemOf(now, "a").possible_stops, 1U);
    range.now = At(kHour + 1000);
    const Report later = ReportOn(log, range);
    EXPECT_EQ(later.launchers[0].end, LauncherEnd::kStopped);
    EXPECT_FALSE(later.launchers[0].is_certain);  // It may have been killed right afterwards.
}

TEST(History, CallsAKillACrashIfTheItemIsRestarted)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(1000, kLauncher, "a", 200, kKilled);
    log.Start(1050, kLauncher, "a");
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.crashes, 1U);
    EXPECT_EQ(item.stops + item.possible_stops, 0U);
}

TEST(History, WithoutDebugRecordsTheLastKillMayBeAStop)
{
    LogText log;
    log.End(1000, kLauncher, "a", 200, kKilled);
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers[0].end, LauncherEnd::kUnknown);
    EXPECT_EQ(ItemOf(report, "a").possible_stops, 1U);
    EXPECT_EQ(ItemOf(report, "a").crashes, 0U);
    EXPECT_EQ(ItemOf(report, "a").state, State::kUnknown);
}

TEST(History, WithoutDebugRecordsAKillLongBeforeTheLaunchersLastRecordIsACrash)
{
    // "b" was running before the kill of "a" and was not killed, so this was no stop.
    LogText log;
    log.End(1000, kLauncher, "b", 199, kExit3).End(9000, kLauncher, "a", 200, kKilled);
    log.End(kHour, kLauncher, "b", 201, kExit3);
    EXPECT_EQ(ItemOf(ReportOn(log), "a").crashes, 1U);
}

TEST(History, WithoutDebugRecordsRecognisesAProbableStopByItsOrder)
{
    LogText log;
    log.End(1000, kLauncher, "a", 200, 0);
    Stop(log, kHour, {"a", "b", "c"}, kLauncher);
    log.End(kHour + 5000, 700, "d", 701, kExit3);
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers[0].end, LauncherEnd::kStopped);
    EXPECT_FALSE(report.launchers[0].is_certain);
    for (const char* name : {"a", "b"}) {
        EXPECT_EQ(ItemOf(report, name).possible_stops, 1U);
        EXPECT_EQ(ItemOf(report, name).stops, 0U);
        // Something else may have killed it, and it may have been restarted.
        EXPECT_EQ(ItemOf(report, name).state, State::kUnknown);
    }
    EXPECT_EQ(ItemOf(report, "b").down, 0);
}

TEST(History, WithoutDebugRecordsDoesNotTakeTwoKillsOfALauncherThatContinuesForAStop)
{
    // Seconds after the kills, and after a silence that another launcher of the same id may
    // explain.
    for (const Milliseconds later : {Milliseconds{3000}, Milliseconds{120000}}) {
        LogText log;
        Stop(log, 5000, {"a", "b", "c"}, kLauncher);
        log.End(5200 + later, kLauncher, "a", 500, kExit3);
        const Report report = ReportOn(log);
        ASSERT_EQ(report.launchers.size(), 1U) << later;
        EXPECT_NE(report.launchers[0].end, LauncherEnd::kStopped) << later;
        for (const char* name : {"b", "c"}) {
            EXPECT_EQ(ItemOf(report, name).stops, 0U) << later;
            EXPECT_EQ(ItemOf(report, name).down, 0) << later;
        }
    }
}

TEST(History, DoesNotTakeSimultaneousKillsForAStop)
{
    LogText log;
    log.End(kHour, kLauncher, "a", 200, kKilled).End(kHour + 1, kLauncher, "b", 201, kKilled);
    EXPECT_NE(ReportOn(log).launchers[0].end, LauncherEnd::kStopped);
}

TEST(History, RecognisesARejectedList)
{
    LogText log;
    log.Start(0, kLauncher, "a");
    log.Add(1, "ERROR", kLauncher, "[LAUNCHER  ] Error while parsing saved json string.");
    log.End(20, kLauncher, "a", 200, kKilled);
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers[0].end, LauncherEnd::kRejected);
    EXPECT_EQ(ItemOf(report, "a").stops, 1U);
}

TEST(History, CallsALauncherVanishedWhenAnotherStartsItsItems)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b").Start(kHour, 400, "a");
    log.Start(kHour + 1, 400, "b").End(2 * kHour, 400, "a", 500, kExit3);
    const Report report = ReportOn(log);
    ASSERT_EQ(report.launchers.size(), 2U);
    EXPECT_EQ(report.launchers[0].end, LauncherEnd::kVanished);
    EXPECT_EQ(report.launchers[1].end, LauncherEnd::kRunning);
    EXPECT_EQ(ItemOf(report, "b").state, State::kRunning);
}

TEST(History, FindsTheLauncherThatFollowsAmongOverlappingOnes)
{
    // Launchers 1 to 9 begin every second and run for 4.5 seconds; each supervises "a" and "b".
    LogText log;
    for (int second = 0; second < 15; ++second) {
        for (int i = std::max(1, second - 4); i <= std::min(9, second); ++i) {
            if (i == second) {
                log.Start(1000 * second, i, "a").Start(1000 * second, i, "b");
            } else if (i == second - 4) {
                log.Add(1000 * second, "ERROR", i, "[LAUNCHER  ] There is an item has no name.");
            }
        }
    }
    const Report report = ReportOn(log);
    ASSERT_EQ(report.launchers.size(), 9U);
    for (std::size_t i = 0; i < 9; ++i) {
        // The last one to begin did so at 9 s.
        EXPECT_EQ(report.launchers[i].end == LauncherEnd::kVanished, i + 1 + 4 < 9) << i + 1;
    }
}

TEST(History, TakesNoRecordOfAChildForASignOfLifeOfItsLauncher)
{
    // The launcher is killed after 2 s; the children of "missing" continue.
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "missing").Start(51, 300, "missing");
    log.Start(1900, kLauncher, "b");
    for (int i = 1; i < 100; ++i) {
        log.Start(51 + 50 * i, 300 + i, "missing");
    }
    const Report alone = ReportOn(log);
    ASSERT_EQ(alone.launchers.size(), 1U);
    EXPECT_EQ(alone.launchers[0].end, LauncherEnd::kUnknown);
    EXPECT_EQ(ItemOf(alone, "a").running, 1900);
    EXPECT_EQ(ItemOf(alone, "a").state, State::kUnknown);
    // Another launcher starts the same items while they do.
    log.Start(3000, 800, "a").Start(3001, 800, "b").Start(3002, 800, "missing");
    const Report replaced = ReportOn(log);
    ASSERT_EQ(replaced.launchers.size(), 2U);
    EXPECT_EQ(replaced.launchers[0].end, LauncherEnd::kVanished);
}

TEST(History, DoesNotCallALauncherVanishedIfItHasOtherItems)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(kHour, 400, "b");
    EXPECT_EQ(ReportOn(log).launchers[0].end, LauncherEnd::kUnknown);
}

TEST(History, SeparatesLaunchersThatUseAProcessIdInTurn)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b");
    Stop(log, 5000, {"a", "b"}, kLauncher);
    log.Start(995000, kLauncher, "a").Start(995001, kLauncher, "b");
    const Report report = ReportOn(log);
    ASSERT_EQ(report.launchers.size(), 2U);
    EXPECT_EQ(report.launchers[0].end, LauncherEnd::kStopped);
    EXPECT_EQ(ItemOf(report, "a").restarts, 0U);
}

TEST(History, SeparatesALauncherFromAKilledOneOfTheSameId)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(990000, kLauncher, "a");
    const Report report = ReportOn(log);
    ASSERT_EQ(report.launchers.size(), 2U);
    EXPECT_EQ(report.launchers[0].end, LauncherEnd::kVanished);
    EXPECT_TRUE(report.launchers[0].is_certain);
    // Nothing shows how long the first run lasted.
    EXPECT_EQ(ItemOf(report, "a").running, 0);
}

TEST(History, WithoutDebugRecordsInventsNoRunAcrossAPossibleStop)
{
    LogText log;
    Stop(log, 5000, {"a", "b"}, kLauncher);
    log.End(995000, kLauncher, "c", 499, 0);
    log.End(995500, kLauncher, "a", 500, kTerminated);
    const Report report = ReportOn(log);
    const ItemReport& item = ItemOf(report, "a");
    EXPECT_EQ(item.unknown_runs, 2U);
    EXPECT_FALSE(item.longest);
    EXPECT_EQ(item.down, 0);
    EXPECT_EQ(item.possible_stops, 1U);
    EXPECT_EQ(item.crashes, 1U);
    EXPECT_EQ(ItemOf(report, "b").possible_stops, 1U);
    // With one item only, nothing shows whether there was a stop.
    LogText single;
    single.End(5000, kLauncher, "a", 500, kKilled).End(995000, kLauncher, "a", 501, kTerminated);
    EXPECT_EQ(ItemOf(ReportOn(single), "a").unknown_runs, 2U);
    EXPECT_EQ(ItemOf(ReportOn(single), "a").possible_stops, 1U);
}

TEST(History, DoesNotCallAnItemRunningUntilASecondAfterItsStart)
{
    LogText log;
    log.Start(0, kLauncher, "a");
    EXPECT_EQ(ItemOf(ReportOn(log), "a").state, State::kStarted);
    log.Add(999, "ERROR", kLauncher, "[LAUNCHER  ] There is an item has no name.");
    EXPECT_EQ(ItemOf(ReportOn(log), "a").state, State::kStarted);
    log.Add(1000, "ERROR", kLauncher, "[LAUNCHER  ] There is an item has no name.");
    EXPECT_EQ(ItemOf(ReportOn(log), "a").state, State::kRunning);
}

TEST(History, DoesNotCallAnItemRunningIfItsStartsFailed)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(50, 300, "a").Start(100, 301, "a");
    EXPECT_EQ(ItemOf(ReportOn(log), "a").state, State::kFailing);
    log.Add(5000, "ERROR", kLauncher, "[LAUNCHER  ] There is an item has no name.");
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.state, State::kUnknown);
    EXPECT_EQ(item.failed_starts, 2U);
    EXPECT_EQ(item.running, 0);
}

TEST(History, CallsTheEndThatALaterItemOfTheSameNameCausesAStop)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(20, kLauncher, "a").End(21, kLauncher, "a", 200, kKilled);
    log.Add(5000, "ERROR", kLauncher, "[LAUNCHER  ] There is an item has no name.");
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.stops, 1U);
    EXPECT_EQ(item.crashes, 0U);
    EXPECT_EQ(item.state, State::kRunning);
}

TEST(History, CallsAnEndAStopIfALaterItemOfTheSameNameStartsSoonerThanARestart)
{
    const struct
    {
        Milliseconds start;
        std::size_t stops, crashes, restarts;
    } kTable[] = {{1001, 1, 0, 0}, {1048, 1, 0, 0}, {1049, 0, 1, 1}};
    for (const auto& row : kTable) {
        LogText log;
        log.Start(0, kLauncher, "a").End(1000, kLauncher, "a", 200, kKilled);
        log.Start(row.start, kLauncher, "a");
        const ItemReport item = ItemOf(ReportOn(log), "a");
        EXPECT_EQ(item.starts, 2U) << row.start;
        EXPECT_EQ(item.stops, row.stops) << row.start;
        EXPECT_EQ(item.crashes, row.crashes) << row.start;
        EXPECT_EQ(item.restarts, row.restarts) << row.start;
    }
}

TEST(History, WithoutDebugRecordsTheStartsOfAnItemWithoutAProgramAreUnknown)
{
    LogText log;
    log.Add(0, "ERROR", 201, "[LAUNCHER  ] program path of a is empty");
    EXPECT_FALSE(ItemOf(ReportOn(log), "a").starts);
}

TEST(History, KnowsItemsThatNeverRan)
{
    LogText log;
    log.Start(0, kLauncher, "a");
    log.Add(1, "ERROR", 201, "[LAUNCHER  ] program path of a is empty");
    log.Start(2, kLauncher, "b");
    log.Add(3, "ERROR", kLauncher, "[LAUNCHER  ] Failed to fork b");
    log.Add(4, "ERROR", kLauncher, "[LAUNCHER  ] There is an item has no name.");
    const Report report = ReportOn(log);
    EXPECT_EQ(report.launchers.size(), 1U);
    EXPECT_EQ(report.nameless_items, 1U);
    EXPECT_EQ(ItemOf(report, "a").no_program, 1U);
    EXPECT_EQ(ItemOf(report, "a").failed_starts, 0U);
    EXPECT_EQ(ItemOf(report, "a").state, State::kFailing);
    EXPECT_EQ(ItemOf(report, "b").failed_forks, 1U);
    EXPECT_EQ(ItemOf(report, "b").failed_starts, 0U);
    EXPECT_EQ(ItemOf(report, "b").state, State::kAbandoned);
}

TEST(History, ConcludesNothingFromAMissingRestartWhereRecordsAreMissing)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b").End(100, kLauncher, "a", 200, kExit3);
    log.Raw("torn\n").End(9000, kLauncher, "b", 201, kExit3);
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.down, 0);
    EXPECT_EQ(item.unknown, 8900);
}

TEST(History, CallsAnEndUnknownIfWaitpidFailed)
{
    LogText log;
    log.Start(0, kLauncher, "a");
    for (int i = 0; i < 6; ++i) {
        log.Add(1000 * i + 900, "ERROR", kLauncher,
                "[LAUNCHER  ] a 200 is killed. ret = -1, status = 0");
        log.Start(1000 * i + 1000, kLauncher, "a");
    }
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.ends, 6U);
    EXPECT_EQ(item.unknown_ends, 6U);
    EXPECT_EQ(item.crashes + item.clean_ends + item.stops + item.possible_stops, 0U);
    EXPECT_TRUE(item.causes.empty());
    EXPECT_FALSE(item.rate);
    EXPECT_FALSE(item.loop);
    EXPECT_EQ(item.severity, ItemSeverity::kNotable);
    // The program may have continued to run, or may have ended at any time.
    EXPECT_EQ(item.unknown_runs, 6U);
    EXPECT_EQ(item.running, 0);
    EXPECT_EQ(item.down, 0);
}
