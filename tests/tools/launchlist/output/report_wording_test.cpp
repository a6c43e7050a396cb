#include "tools/launchlist/output/report_wording.h"

#include <gtest/gtest.h>

#include "tests/tools/launchlist/log/report_on.h"
#include "tools/launchlist/base/text.h"

using namespace launchlist;

TEST(Shortened, CutsInTheMiddle)
{
    EXPECT_EQ(Shortened("com.kestrane.helper.indexer", 27), "com.kestrane.helper.indexer");
    EXPECT_EQ(Shortened("com.kestrane.helper.indexer", 20), "com.kest...r.indexer");
    EXPECT_EQ(Shortened(std::string(1000000, 'x'), 5), "x...x");
}

TEST(Shortened, CutsNoCharacterInTwo)
{
    for (std::size_t width = 5; width < 20; ++width) {
        const std::string text = Shortened("日本語日本語日本語日本語", width);
        EXPECT_TRUE(is_utf8(text)) << width;
        EXPECT_LE(display_width(text), width);
    }
}

TEST(WorstFirst, PutsWhatIsBrokenNowBeforeWhatWas)
{
    LogText log;
    log.Start(0, kLauncher, "healthy");
    for (int i = 0; i < 20; ++i) {
        log.End(1000 * i, kLauncher, "was", 200 + i, kExit3).Start(1000 * i + 50, kLauncher, "was");
    }
    log.Start(20000, kLauncher, "once").End(30000, kLauncher, "once", 300, kExit3);
    log.Start(30050, kLauncher, "once");
    for (int i = 0; i < 6; ++i) {
        log.Start(3600000 + 1000 * i, kLauncher, "is");
        log.End(3600900 + 1000 * i, kLauncher, "is", 400 + i, kExit3);
    }
    std::vector<std::string> names;
    const Report report = ReportOn(log);
    for (const ItemReport* item : WorstFirst(report)) {
        names.push_back(item->name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"is", "was", "once", "healthy"}));
}

TEST(ItemNotes, GiveTheTotalBeforeTheLongestLoop)
{
    LogText log;
    for (int i = 0; i < 30; ++i) {
        const Milliseconds begin = Milliseconds{20000} * i;
        log.Start(begin, kLauncher, "a");
        log.End(begin + (i < 8 ? 1000 : 19000), kLauncher, "a", 200 + i, kExit3);
    }
    const auto notes = ItemNotes(ReportOn(log).items[0]);
    ASSERT_GE(notes.size(), 2U);
    EXPECT_EQ(notes[0].find("crashes repeatedly: 30 crashes in 9 min 58 s"), 0U) << notes[0];
    EXPECT_EQ(notes[1].find("longest loop: 8 runs"), 0U) << notes[1];
}

TEST(ReportNotes, NameTheLevelFileOnlyIfItIsKnown)
{
    LogText log;
    log.End(0, kLauncher, "a", 200, 0);
    EXPECT_NE(ReportNotes(ReportOn(log), "")[0].find("the log.ini of the user"), std::string::npos);
    EXPECT_NE(ReportNotes(ReportOn(log), "/home/log.ini")[0].find("/home/log.ini"),
              std::string::npos);
}

TEST(LauncherProblems, NameLaunchersThatVanishedOrRejectedTheirList)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b");
    EXPECT_TRUE(LauncherProblems(ReportOn(log)).empty());
    log.Start(60000, 400, "a").Start(60001, 400, "b");
    log.Add(61000, "ERROR", 500, "[LAUNCHER  ] Error while parsing saved json string.");
    log.Add(62000, "ERROR", 400, "[LAUNCHER  ] There is an item has no name.");
    Report report = ReportOn(log);
    EXPECT_EQ(LauncherProblems(report),
              (std::vector<std::string>{
                  "launcher 500 could not use its list, or could not create a thread; `launchlist "
                  "check` shows the mistakes of a list",
                  "launcher 100 probably vanished, after 2026-11-21 00:00:00 UTC",
                  "items without a name were skipped once"}));
    report.launchers[1].end = LauncherEnd::kVanished;
    EXPECT_EQ(LauncherProblems(report)[1],
              "2 launchers probably vanished, the last after 2026-11-21 00:01:02 UTC");
}

TEST(LauncherText, SaysWhatTheRecordsShow)
{
    const std::string records = "launcher 7: records from 2026-11-21 00:00:00 to 00:00:02 UTC; ";
    const struct
    {
        LauncherEnd end;
        bool is_certain;
        const char* words;
    } kTable[] = {
        {LauncherEnd::kUnknown, true, "unknown whether it still runs"},
        {LauncherEnd::kRunning, true, "running at the last record of the log"},
        {LauncherEnd::kStopped, true, "stopped"},
        {LauncherEnd::kStopped, false, "probably stopped"},
        {LauncherEnd::kVanished, true,
         "vanished: no stop is logged, and another process got its id"},
        {LauncherEnd::kVanished, false,
         "probably vanished: no stop is logged, and a later launcher started its items"},
        {LauncherEnd::kRejected, true, "could not use its list, or could not create a thread"},
    };
    for (const auto& row : kTable) {
        Launcher launcher;
        launcher.process = 7;
        launcher.from = At(0);
        launcher.to = At(2000);
        launcher.end = row.end;
        launcher.is_certain = row.is_certain;
        EXPECT_EQ(LauncherText(launcher), records + row.words);
    }
}

TEST(ReportNotes, SayWhatTheLogShows)
{
    LogText log;
    log.End(5000, kLauncher, "a", 200, 0).End(0, kLauncher, "a", 201, 0);
    const std::vector<std::string> notes = ReportNotes(ReportOn(log), "");
    ASSERT_EQ(notes.size(), 2U);
    EXPECT_EQ(notes[0].find("Starts and first runs are unknown where the log holds no DEBUG "), 0U);
    EXPECT_EQ(notes[1],
              "A time in the log is a second or more before the preceding one (once), as after the "
              "clock was set back; lengths around it may be wrong.");
}
