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
