#include "tools/launchlist/log/item_summary.h"

#include <gtest/gtest.h>

#include "tests/tools/launchlist/log/report_on.h"

using namespace launchlist;

namespace {

constexpr Milliseconds kMinute = 60000;
constexpr Milliseconds kHour = 60 * kMinute;

// `count` runs of "a", each `length` long, from the beginning of the log.
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

TEST(ItemSummary, MeasuresRuns)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(1000, kLauncher, "a", 201, kExit3);
    log.Start(1050, kLauncher, "a").End(4050, kLauncher, "a", 202, kKilled);
    log.Start(4100, kLauncher, "a").End(4300, kLauncher, "a", 203, kExit3);
    log.Start(4350, kLauncher, "a");
    const Report report = ReportOn(log);
    EXPECT_EQ(report.records, 7U);
    EXPECT_EQ(report.launchers.size(), 1U);
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
    EXPECT_EQ(item.state, State::kStarted);
    EXPECT_FALSE(item.loop);
    EXPECT_EQ(item.causes,
              (std::map<Termination, std::size_t>{{{true, kExit3}, 2}, {{true, 9}, 1}}));
    EXPECT_EQ(item.crashes, 3U);
}

TEST(ItemSummary, HasNoStartsAndNoFirstRunWithoutDebugRecords)
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
    // A run begins one restart pause after the preceding end.
    EXPECT_EQ(item.shortest, 200);
    EXPECT_EQ(item.longest, 1000);
    EXPECT_EQ(item.state, State::kUnknown);
}

TEST(ItemSummary, CountsStartsWhenTheLogBeginsWithinARun)
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

TEST(ItemSummary, MeasuresARunOfNoLength)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(0, kLauncher, "a", 201, 0);
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.shortest, 0);
    EXPECT_EQ(item.unknown_runs, 0U);
}

TEST(ItemSummary, FindsLoops)
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

TEST(ItemSummary, EndsALoopAtALongRun)
{
    LogText log = Runs(4, 100, kExit3);
    log.Start(1000, kLauncher, "a").End(60000, kLauncher, "a", 300, kExit3);
    log.Start(60050, kLauncher, "a").End(60150, kLauncher, "a", 301, kExit3);
    EXPECT_FALSE(ItemOf(ReportOn(log), "a").loop);
}

TEST(ItemSummary, ReportsTheLongestLoopAndTheFirstOfTwo)
{
    const struct
    {
        std::size_t before, after, reported;
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
        add(row.after, 70000);
        const auto loop = ItemOf(ReportOn(log), "a").loop;
        ASSERT_TRUE(loop);
        EXPECT_EQ(loop->runs, row.reported);
        EXPECT_EQ(FormatTimeStamp(loop->from), LogText::Time(row.from));
        EXPECT_FALSE(loop->is_crash);
    }
}

TEST(ItemSummary, FindsTheWorstMinute)
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

TEST(ItemSummary, AveragesTheTwoMiddleRuns)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(1000, kLauncher, "a", 201, 0);
    log.Start(2000, kLauncher, "a").End(5000, kLauncher, "a", 202, 0);
    EXPECT_EQ(ItemOf(ReportOn(log), "a").median, 2000);
}

TEST(ItemSummary, EndsAMinuteAfterSixtySeconds)
{
    for (const Milliseconds second_restart : {60999, 61000}) {
        LogText log;
        log.Start(0, kLauncher, "a").End(950, kLauncher, "a", 201, 0).Start(1000, kLauncher, "a");
        log.End(second_restart - 50, kLauncher, "a", 202, 0).Start(second_restart, kLauncher, "a");
        EXPECT_EQ(ItemOf(ReportOn(log), "a").worst_minute, second_restart < 61000 ? 2U : 1U);
    }
}

TEST(ItemSummary, HasNoLengthAcrossAClockThatWasSetBack)
{
    LogText log;
    log.Start(10000, kLauncher, "a").End(5000, kLauncher, "a", 201, 0);
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.ends, 1U);
    EXPECT_EQ(item.unknown_runs, 1U);
    EXPECT_FALSE(item.shortest);
}

TEST(ItemSummary, DoesNotCountAStopAsPartOfALoop)
{
    LogText log = Runs(6, 1000, 0);
    log.Start(6300, kLauncher, "a").End(7000, kLauncher, "a", 300, kKilled);
    const ItemReport item = ItemOf(ReportOn(log), "a");
    ASSERT_TRUE(item.loop);
    EXPECT_EQ(item.loop->runs, 6U);
    EXPECT_FALSE(item.loop->is_crash);
    EXPECT_EQ(item.clean_ends, 6U);
    EXPECT_EQ(item.crashes, 0U);
    EXPECT_EQ(item.stops, 1U);
}

TEST(ItemSummary, EndsALoopWithItsLauncher)
{
    LogText log = Runs(4, 100, kExit3);
    for (int i = 0; i < 4; ++i) {
        log.Start(9000 + 150 * i, 400, "a").End(9100 + 150 * i, 400, "a", 500 + i, kExit3);
    }
    EXPECT_FALSE(ItemOf(ReportOn(log), "a").loop);
}

TEST(ItemSummary, ReportsFrequentCrashesOfLongerRuns)
{
    // Every 20 seconds for 2 hours.
    const ItemReport item = ItemOf(ReportOn(Runs(360, 19950, kExit3)), "a");
    EXPECT_FALSE(item.loop);
    ASSERT_TRUE(item.rate);
    EXPECT_EQ(item.crashes, 360U);
    EXPECT_EQ(item.rate->worst_hour, 180U);
    EXPECT_NEAR(item.rate->per_hour, 180, 1);
    EXPECT_TRUE(item.rate->continues);
    EXPECT_EQ(item.severity, ItemSeverity::kBroken);
}

TEST(ItemSummary, KnowsThatCrashesHaveCeased)
{
    LogText log = Runs(20, 1000, kExit3);
    log.Start(22000, kLauncher, "a").Add(kHour, "ERROR", kLauncher, "[LAUNCHER  ] news");
    const ItemReport item = ItemOf(ReportOn(log), "a");
    ASSERT_TRUE(item.rate);
    EXPECT_FALSE(item.rate->continues);
    EXPECT_EQ(item.severity, ItemSeverity::kTroubled);
}

TEST(ItemSummary, SaysThatALoopContinuesForThreeIntervalsOrTwoSeconds)
{
    const struct
    {
        Milliseconds length;  // The interval is 50 ms longer.
        Milliseconds after;
        bool continues;
    } kTable[] = {{100, 2000, true}, {100, 2001, false}, {1950, 6000, true}, {1950, 6001, false}};
    for (const auto& row : kTable) {
        LogText log = Runs(10, row.length, kExit3);
        const Milliseconds last = 10 * (row.length + 50) - 50;
        log.Start(last + 50, kLauncher, "a");
        log.Add(last + row.after, "ERROR", kLauncher, "[LAUNCHER  ] news");
        EXPECT_EQ(ItemOf(ReportOn(log), "a").rate->continues, row.continues)
            << row.length << " " << row.after;
    }
}

TEST(ItemSummary, DoesNotTakeASingleLaterEndForTheContinuationOfALoop)
{
    LogText log = Runs(20, 1000, kExit3);
    log.Start(22000, kLauncher, "a").End(400000, kLauncher, "a", 900, 0);
    log.Start(400050, kLauncher, "a").Add(401000, "ERROR", kLauncher, "[LAUNCHER  ] news");
    EXPECT_FALSE(ItemOf(ReportOn(log), "a").rate->continues);
}

TEST(ItemSummary, DividesTheTimeIntoRunningDownAndUnknown)
{
    LogText log;
    log.Add(0, "ERROR", 77, "[LAUNCHER  ] Error while parsing saved json string.");
    log.Start(1000, kLauncher, "a").End(4000, kLauncher, "a", 200, kExit3);
    log.Start(4050, kLauncher, "a").End(6000, kLauncher, "a", 201, kKilled);
    log.Add(10000, "ERROR", 78, "[LAUNCHER  ] Error while parsing saved json string.");
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.unknown, 1000);
    EXPECT_EQ(item.running, 3000 + 1950);
    EXPECT_EQ(item.down, 50 + 4000);
}

TEST(ItemSummary, KnowsNothingAfterTheLastEndWithoutDebugRecords)
{
    LogText log;
    log.End(1000, kLauncher, "a", 200, kExit3).End(2000, kLauncher, "a", 201, kExit3);
    log.End(10000, kLauncher, "b", 202, kExit3);
    const ItemReport item = ItemOf(ReportOn(log), "a");
    EXPECT_EQ(item.running, 950);
    EXPECT_EQ(item.down, 50);
    EXPECT_EQ(item.unknown, 8000);
}

TEST(KnownPeriodsOf, LetsRunningPrevailWhereLaunchersOverlap)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b");
    log.Start(2000, 400, "a").Start(2001, 400, "c");
    log.End(4000, kLauncher, "a", 200, kKilled).End(4051, kLauncher, "b", 201, kKilled);
    log.End(9000, 400, "a", 500, kKilled).End(9051, 400, "c", 501, kKilled);
    const Report report = ReportOn(log);
    const auto parts = KnownPeriodsOf(report.items[0], *report.first, *report.last);
    ASSERT_EQ(parts.size(), 2U);
    EXPECT_TRUE(parts[0].is_running);
    EXPECT_EQ(parts[0].to - parts[0].from, 9000);
    EXPECT_FALSE(parts[1].is_running);
}

TEST(Summarize, FindsTheStateAtTheEnd)
{
    // Starts at 1 s, runs from then on, and has no end.
    launchlist::Run run;
    run.start = run.from = run.to = 1000;
    const auto changed = [&run](const auto& change) {
        launchlist::Run result = run;
        change(result);
        return result;
    };
    const auto ended = [&run](Milliseconds end, EndedBy ended_by, bool is_final) {
        launchlist::Run result = run;
        result.end = result.to = end;
        result.ended_by = ended_by;
        result.is_final = is_final;
        return result;
    };
    const auto attempted = [&run](Milliseconds time, Role role) {
        launchlist::Run result = run;
        result.start = result.from = result.to = time;
        result.role = role;
        return result;
    };
    const struct
    {
        const char* what;
        std::vector<launchlist::Run> runs;
        bool lacks_starts;
        State state;
    } kTable[] = {
        {"nothing", {}, false, State::kUnknown},
        {"abandoned",
         {changed([](launchlist::Run& r) { r.is_abandoned = true; })},
         false,
         State::kAbandoned},
        {"stopped", {ended(2000, EndedBy::kLauncher, true)}, false, State::kStopped},
        {"end not seen", {ended(2000, EndedBy::kUnknown, false)}, false, State::kUnknown},
        {"not restarted", {ended(2000, EndedBy::kProgram, true)}, false, State::kEnded},
        {"in its pause", {ended(9500, EndedBy::kProgram, false)}, false, State::kEnded},
        {"perhaps stopped", {ended(9500, EndedBy::kMaybeLauncher, false)}, false, State::kUnknown},
        {"perhaps restarted", {ended(9500, EndedBy::kProgram, false)}, true, State::kUnknown},
        {"long after an end", {ended(8999, EndedBy::kProgram, false)}, false, State::kUnknown},
        {"failed", {attempted(1000, Role::kFailed)}, false, State::kFailing},
        {"just started", {attempted(9000, Role::kAttempt)}, false, State::kStarted},
        {"started earlier", {attempted(8999, Role::kAttempt)}, false, State::kUnknown},
        {"started after failures",
         {attempted(1000, Role::kFailed), attempted(9500, Role::kAttempt)},
         false,
         State::kFailing},
        {"running", {changed([](launchlist::Run& r) { r.to = 10000; })}, false, State::kRunning},
        {"ends later", {ended(20000, EndedBy::kProgram, false)}, false, State::kRunning},
        {"last seen earlier",
         {changed([](launchlist::Run& r) { r.to = 9000; })},
         false,
         State::kUnknown},
        {"starts later", {attempted(20000, Role::kRun)}, false, State::kUnknown},
    };
    for (const auto& row : kTable) {
        ItemReport item;
        item.runs = row.runs;
        item.lacks_starts = row.lacks_starts;
        Summarize(item, 0, 10000);
        EXPECT_EQ(item.state, row.state) << row.what;
    }
}

TEST(Summarize, TakesTheLatestFailureForTheState)
{
    launchlist::Run run;
    run.start = run.from = 1000;
    run.to = 2000;
    run.end = 2000;
    run.is_final = true;
    const struct
    {
        Milliseconds failed_fork;
        Milliseconds no_program;
        State state;
    } kTable[] = {{500, 500, State::kEnded},    {3000, 500, State::kAbandoned},
                  {500, 3000, State::kFailing}, {20000, 500, State::kEnded},
                  {500, 20000, State::kEnded},  {2000, 2000, State::kAbandoned}};
    for (const auto& row : kTable) {
        ItemReport item;
        item.runs = {run};
        item.failed_fork_times = {row.failed_fork};
        item.no_program_times = {row.no_program};
        Summarize(item, 0, 10000);
        EXPECT_EQ(item.state, row.state) << row.failed_fork << " " << row.no_program;
    }
}

TEST(RunLength, IsKnownIfBothTimesAre)
{
    launchlist::Run run;
    EXPECT_FALSE(run.Length());
    run.start = 1000;
    EXPECT_FALSE(run.Length());
    run.end = 3000;
    EXPECT_EQ(run.Length(), 2000);
    run.ended_by = EndedBy::kUnknown;
    EXPECT_FALSE(run.Length());
    run.ended_by = EndedBy::kProgram;
    run.end = 999;
    EXPECT_FALSE(run.Length());
    run.start.reset();
    EXPECT_FALSE(run.Length());
}

TEST(RunIsCrash, IfTheProgramEndedBadlyByItself)
{
    launchlist::Run run;
    run.termination = {true, kExit3};
    EXPECT_FALSE(run.IsCrash()) << "has not ended";
    run.end = 1000;
    EXPECT_TRUE(run.IsCrash());
    run.termination = {true, kKilled};
    EXPECT_TRUE(run.IsCrash());
    run.role = Role::kFailed;
    EXPECT_FALSE(run.IsCrash());
    run.role = Role::kRun;
    run.ended_by = EndedBy::kLauncher;
    EXPECT_FALSE(run.IsCrash());
    run.ended_by = EndedBy::kProgram;
    run.termination = {true, 0};
    EXPECT_FALSE(run.IsCrash());
}

TEST(KnownPeriodsOf, CutsWhatIsDownAroundWhatIsRunning)
{
    const auto run = [](Milliseconds from, Milliseconds to) {
        launchlist::Run result;
        result.start = result.from = from;
        result.end = result.to = to;
        return result;
    };
    ItemReport item;
    item.runs = {run(1000, 2000), run(3000, 4000), run(5000, 6000), run(20000, 21000)};
    item.runs[0].down_until = 9000;
    item.runs[2].role = Role::kFailed;
    item.runs[2].down_until = 9500;
    std::string parts;
    for (const KnownPeriod& part : KnownPeriodsOf(item, 0, 10000)) {
        parts += (part.is_running ? " running " : " down ") + std::to_string(part.from) + "-" +
                 std::to_string(part.to);
    }
    EXPECT_EQ(parts, " running 1000-2000 down 2000-3000 running 3000-4000 down 4000-9500");
    EXPECT_TRUE(KnownPeriodsOf(item, 10000, 10000).empty());
}
