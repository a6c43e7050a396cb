#include "tools/launchlist/output/timeline.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/tools/launchlist/log/report_on.h"

using namespace launchlist;

namespace {

// The cells of item `index`, one character each.
std::string Signs(const Report& report, std::size_t index, std::size_t count)
{
    std::string text;
    for (const TimelineCell& cell :
         Timeline(report.items[index], *report.first, *report.last, count)) {
        text += "?.=s~|x!"[static_cast<int>(cell.cell)];
    }
    return text;
}

}  // namespace

TEST(Timeline, ShowsTheGravestOfEachCell)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(3900, kLauncher, "a", 201, 0);
    log.Start(5100, kLauncher, "a").End(5200, kLauncher, "a", 202, 0);
    log.Start(5300, kLauncher, "a").End(5400, kLauncher, "a", 203, 256);
    log.Start(7000, kLauncher, "a").Start(7001, kLauncher, "b");
    log.End(10000, kLauncher, "b", 204, 0);
    const Report report = ReportOn(log);
    EXPECT_EQ(Signs(report, 0, 10), "===|.x.===");
    EXPECT_EQ(Signs(report, 1, 10),
              "??????"
              "?==|");
}

TEST(Timeline, ShowsUnknownWhereTheLogDoesNotSay)
{
    LogText log;
    log.End(2500, kLauncher, "a", 201, 0).End(4500, kLauncher, "a", 202, 256);
    log.Add(0, "ERROR", 77, "[LAUNCHER  ] news").End(10000, kLauncher, "b", 203, 0);
    EXPECT_EQ(Signs(ReportOn(log), 0, 10), "??|=x?????");
}

TEST(Timeline, ShowsUnknownAfterALauncherWasKilled)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b").End(3900, kLauncher, "b", 201, 256);
    log.Start(3950, kLauncher, "b").Start(9950, 400, "a").Start(9960, 400, "b");
    log.End(10000, 400, "b", 203, 0);
    EXPECT_EQ(Signs(ReportOn(log), 0, 10), "====??????");
}

TEST(Timeline, CountsWhatEachMarkStandsFor)
{
    for (const bool has_starts : {true, false}) {
        LogText log;
        if (has_starts) {
            log.Start(0, kLauncher, "a").Start(0, kLauncher, "b");
        }
        log.Add(1, "ERROR", 201, "[LAUNCHER  ] program path of a is empty");
        log.Add(1, "ERROR", kLauncher, "[LAUNCHER  ] Failed to fork b");
        log.End(2, kLauncher, "a", 201, kKilled);
        const Report report = ReportOn(log);
        for (const ItemReport& item : report.items) {
            const TimelineCell cell = Timeline(item, *report.first, *report.last, 1)[0];
            EXPECT_EQ(cell.cell, Cell::kFailed) << item.name;
            EXPECT_EQ(cell.CountOf(Cell::kFailed), 1U) << item.name;
            // This item's program never ran.
            EXPECT_EQ(item.ends, 0U) << item.name;
            EXPECT_EQ(item.failed_starts, 0U) << item.name;
        }
    }
    LogText log;
    for (int i = 0; i < 20; ++i) {
        log.End(1000 * i, kLauncher, "a", 200 + i, i == 3 ? kExit3 : 0);
    }
    const Report report = ReportOn(log);
    const TimelineCell cell = Timeline(report.items[0], *report.first, *report.last, 1)[0];
    EXPECT_EQ(cell.CountOf(Cell::kCrash), 1U);
    EXPECT_EQ(cell.CountOf(Cell::kEnd), 19U);
}

TEST(Timeline, ShowsFailedStartsWithoutARun)
{
    LogText log;
    log.Start(0, kLauncher, "other").Start(500, kLauncher, "a").Start(550, 300, "a");
    log.End(10000, kLauncher, "other", 200, 0);
    EXPECT_EQ(Signs(ReportOn(log), 1, 10), "!" + std::string(9, '?'));
}

TEST(Timeline, ShowsAStop)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b").End(4500, kLauncher, "a", 200, 9);
    log.End(4560, kLauncher, "b", 201, 9).Add(10000, "ERROR", 77, "[LAUNCHER  ] news");
    EXPECT_EQ(Signs(ReportOn(log), 0, 10), "====s.....");
}

TEST(Timeline, OfOneMomentHasACell)
{
    LogText log;
    log.End(5, kLauncher, "a", 200, 0);
    EXPECT_EQ(Signs(ReportOn(log), 0, 3), "|??");
}

TEST(Timeline, OfTwoMomentsBeginsAndEndsWithThem)
{
    LogText log;
    log.End(0, kLauncher, "a", 200, 0).End(1, kLauncher, "a", 201, 256);
    EXPECT_EQ(Signs(ReportOn(log), 0, 4), "|??x");
}

TEST(Timeline, CountsTheCausesOfACell)
{
    LogText log;
    for (int i = 0; i < 6; ++i) {
        log.End(100 * i, kLauncher, "a", 200 + i, i < 4 ? 256 : 11);
    }
    const Report report = ReportOn(log);
    const auto cells = Timeline(report.items[0], *report.first, *report.last, 1);
    ASSERT_EQ(cells.size(), 1U);
    EXPECT_EQ(cells[0].CountOf(Cell::kCrash), 6U);
    EXPECT_EQ(cells[0].causes.at({true, 256}), 4U);
    EXPECT_EQ(cells[0].causes.at({true, 11}), 2U);
}

TEST(Stretches, JoinEqualCells)
{
    const auto stretches = Stretches({Cell::kRunning, Cell::kRunning, Cell::kCrash});
    ASSERT_EQ(stretches.size(), 2U);
    EXPECT_EQ(stretches[0].begin, 0U);
    EXPECT_EQ(stretches[0].end, 2U);
    EXPECT_EQ(stretches[1].cell, Cell::kCrash);
    EXPECT_EQ(stretches[1].end, 3U);
}

TEST(Timeline, MarksFailuresWhereTheirTimeIsKnown)
{
    launchlist::Run failed;
    failed.role = Role::kFailed;
    ItemReport item;
    item.runs.assign(5, failed);  // the first one has no time at all
    item.runs[1].start = 1500;
    item.runs[2].end = 2500;
    item.runs[3].start = 3500;
    item.runs[3].lacks_program = true;
    item.runs[4].start = 20000;
    item.no_program_times = {3600, 20000};
    item.failed_fork_times = {-1, 4500};
    std::string text;
    for (const TimelineCell& cell : Timeline(item, 0, 10000, 10)) {
        text += std::to_string(cell.CountOf(Cell::kFailed));
        EXPECT_EQ(cell.cell == Cell::kFailed, cell.failed > 0);
    }
    EXPECT_EQ(text, "0111100000");
}

TEST(Timeline, MarksNoEndThatWasNotSeen)
{
    launchlist::Run run;
    run.end = 1500;
    run.ended_by = EndedBy::kUnknown;
    ItemReport item;
    item.runs = {run, run};
    item.runs[1].ended_by = EndedBy::kMaybeLauncher;
    item.runs[1].end = 2500;
    const std::vector<TimelineCell> cells = Timeline(item, 0, 10000, 10);
    EXPECT_EQ(cells[1].cell, Cell::kUnknown);
    EXPECT_TRUE(cells[1].causes.empty());
    EXPECT_EQ(cells[2].cell, Cell::kMaybeStop);
    EXPECT_EQ(cells[2].CountOf(Cell::kMaybeStop), 1U);
    EXPECT_EQ(cells[2].CountOf(Cell::kStop), 0U);
    EXPECT_EQ(cells[2].CountOf(Cell::kCrash), 0U);
}
