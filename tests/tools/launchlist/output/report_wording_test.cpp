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
                  "an item without a name was skipped once"}));
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
        {LauncherEnd::kUnknown, true, "whether it still runs is unknown"},
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

TEST(ReportTitle, CountsTheProcessesThatMayBeLaunchers)
{
    const auto title_with = [](std::size_t late) {
        LogText log;
        log.Start(0, kLauncher, "a");
        for (std::size_t i = 1; i <= late; ++i) {
            log.Start(static_cast<Milliseconds>(i) * 2000, 200 + static_cast<int>(i), "a");
        }
        return ReportTitle(ReportOn(log));
    };
    EXPECT_NE(title_with(0).find(", 1 launcher, 1 item"), std::string::npos) << title_with(0);
    EXPECT_NE(title_with(1).find(", 1 or 2 launchers, "), std::string::npos) << title_with(1);
    EXPECT_NE(title_with(2).find(", 1 to 3 launchers, "), std::string::npos) << title_with(2);
}

TEST(LauncherText, SaysIfTheProcessMayBeAChild)
{
    Launcher launcher;
    launcher.process = 7;
    launcher.from = launcher.to = At(0);
    launcher.may_be_child_of = 6;
    EXPECT_EQ(LauncherText(launcher).find("process 7, a launcher or a child of launcher 6: "), 0U);
}

TEST(ReportNotes, SayWhatTheLogShows)
{
    LogText log;
    log.End(5000, kLauncher, "a", 200, 0).End(0, kLauncher, "a", 201, 0);
    const std::vector<std::string> notes = ReportNotes(ReportOn(log), "");
    ASSERT_EQ(notes.size(), 2U);
    EXPECT_EQ(notes[0].find("Starts and first runs are unknown where the log holds no DEBUG "), 0U);
    EXPECT_EQ(notes[1],
              "The time in the log goes back by a second or more (once), as if the clock had been "
              "set back; the lengths of runs around that time may be wrong.");
}

TEST(ItemNotes, GiveTheRatePerHourInFiguresThatAreKnown)
{
    const struct
    {
        Milliseconds interval;
        int ends;
        const char* rate;
    } kTable[] = {{120000, 61, " (30 an hour), at worst 30 in the hour"},
                  {540000, 61, " (6.8 an hour), at worst 7 in the hour from "},
                  {60000, 40, " in 39 min"}};
    for (const auto& row : kTable) {
        LogText log;
        for (int i = 0; i < row.ends; ++i) {
            log.Start(row.interval * i, kLauncher, "a");
            log.End(row.interval * i + 30000, kLauncher, "a", 200 + i, kExit3);
        }
        const std::vector<std::string> notes = ItemNotes(ItemOf(ReportOn(log), "a"));
        ASSERT_FALSE(notes.empty()) << row.rate;
        EXPECT_NE(notes[0].find(row.rate), std::string::npos) << notes[0];
    }
}

TEST(ItemNotes, CountCleanEndsAndOneCrash)
{
    LogText log;
    for (int i = 0; i < 6; ++i) {
        log.Start(1000 * i, kLauncher, "clean").End(1000 * i + 900, kLauncher, "clean", 200 + i, 0);
        log.Start(1000 * i, kLauncher, "mixed");
        log.End(1000 * i + 910, kLauncher, "mixed", 300 + i, i == 3 ? kExit3 : 0);
    }
    const Report report = ReportOn(log);
    EXPECT_EQ(ItemNotes(ItemOf(report, "clean"))[0].find(
                  "exits repeatedly: 6 exits with status 0 in 5.0 s"),
              0U);
    EXPECT_EQ(ItemNotes(ItemOf(report, "mixed"))[0].find(
                  "crashes repeatedly: 1 crash and 5 exits with status 0 in 5.0 s"),
              0U);
}

TEST(ItemNotes, CountWhatFailed)
{
    ItemReport item;
    EXPECT_TRUE(ItemNotes(item).empty());
    item.failed_starts = 1;
    item.no_program = 2;
    item.failed_forks = 1;
    item.crashes = 1;
    item.unknown_ends = 3;
    EXPECT_EQ(ItemNotes(item),
              (std::vector<std::string>{
                  "could not be started once; the log does not say why, `launchlist check` may",
                  "has no program (logged 2 times)", "abandoned: fork failed", "crashed once",
                  "waitpid failed 3 times: when and how the program ended is unknown"}));
    item.failed_forks = 2;
    EXPECT_EQ(ItemNotes(item)[2], "abandoned: fork failed 2 times");
}

TEST(ItemNotes, OmitTheTimeDownIfThereIsNone)
{
    ItemReport item;
    item.crashes = 5;
    item.rate = Rate();
    item.rate->worst_hour = kFrequentEnds;
    item.rate->first = At(0);
    item.rate->last = At(4000);
    item.running = 9000;
    EXPECT_EQ(ItemNotes(item)[0],
              "crashes repeatedly: 5 crashes in 4.0 s; the last at 2026-11-21 00:00:04 UTC");
    item.down = 1000;
    item.rate->continues = true;
    EXPECT_EQ(
        ItemNotes(item)[0],
        "crashes repeatedly: 5 crashes in 4.0 s, down for 10.0 % of the known time; continues "
        "at the end of the report");
}

TEST(ItemTitle, ShowsAnEmptyName)
{
    ItemReport item;
    EXPECT_EQ(ItemTitle(item), "\"\"");
    item.name = "a\x1b";
    EXPECT_EQ(ItemTitle(item), "a\\x1b");
}

TEST(LaunchersOf, AreThoseWithRecordsInTheTimeOfTheReport)
{
    Report report;
    for (const Milliseconds begin : {0, 1000, 2000, 3000}) {
        Launcher launcher;
        launcher.process = begin;
        launcher.from = At(begin);
        launcher.to = At(begin + 500);
        report.launchers.push_back(launcher);
    }
    EXPECT_TRUE(LaunchersOf(report).empty());
    report.first = At(1500);
    report.last = At(2500);
    std::vector<std::int64_t> processes;
    for (const Launcher* launcher : LaunchersOf(report)) {
        processes.push_back(launcher->process);
    }
    EXPECT_EQ(processes, (std::vector<std::int64_t>{1000, 2000}));
}

TEST(LauncherProblems, SayWhichConclusionsAreCertain)
{
    Report report;
    report.first = At(0);
    report.last = At(9000);
    Launcher launcher;
    launcher.process = 7;
    launcher.from = launcher.to = At(1000);
    launcher.end = LauncherEnd::kVanished;
    report.launchers.push_back(launcher);
    EXPECT_EQ(LauncherProblems(report)[0], "launcher 7 vanished, after 2026-11-21 00:00:01 UTC");
    report.launchers[0].end = LauncherEnd::kRejected;
    report.launchers.push_back(report.launchers[0]);
    report.nameless_items = 2;
    EXPECT_EQ(LauncherProblems(report),
              (std::vector<std::string>{
                  "2 launchers could not use their list, or could not create a thread; `launchlist "
                  "check` shows the mistakes of a list",
                  "an item without a name was skipped 2 times"}));
}

TEST(ReportNotes, CountRecordsThatAreMissingOrIgnored)
{
    const struct
    {
        std::size_t count;
        const char* lost;
        const char* set_back;
        const char* other;
    } kTable[] = {{1, "1 record could not be written and is missing from the log.", "(once)",
                   "1 record was ignored: written by another program, or with an unknown text."},
                  {2, "2 records could not be written and are missing from the log.", "(2 times)",
                   "2 records were ignored: written by another program, or with an unknown text."}};
    for (const auto& row : kTable) {
        Report report;
        report.lost_records = row.count;
        report.clock_set_back = row.count;
        report.other_records = row.count;
        const std::vector<std::string> notes = ReportNotes(report, "");
        ASSERT_EQ(notes.size(), 3U);
        EXPECT_EQ(notes[0], row.lost);
        EXPECT_NE(notes[1].find(row.set_back), std::string::npos) << notes[1];
        EXPECT_EQ(notes[2], row.other);
    }
}

TEST(ReportNotes, NameUnreadableFilesAndShowUnreadLines)
{
    Report report;
    report.files.resize(2);
    report.files[0].path = "/a\x1b";
    report.files[0].error = "is damaged";
    report.unread = 1;
    report.unread_samples = {"/b:1: torn"};
    EXPECT_EQ(ReportNotes(report, ""),
              (std::vector<std::string>{
                  "/a\\x1b could not be read, so records may be missing: is damaged",
                  "1 line could not be parsed (torn, or written by another program). The first:",
                  "/b:1: torn"}));
}
