#include "tools/launchlist/output/report_output.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json/json_object.h"
#include "tests/tools/launchlist/log/log_text.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/log/report.h"
#include "tools/launchlist/output/timeline.h"

using namespace launchlist;

namespace {

constexpr int kLauncher = 100;
constexpr char kLevelFile[] = "/home/log.ini";

Report ReportOn(const LogText& log)
{
    const TempFolder folder;
    return MakeReport({folder.Write("qv7log", log.Text())}, {});
}

std::string Text(const Report& report)
{
    return ReportText(report, kLevelFile, {});
}

bool Holds(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

std::string Signs(const std::vector<Cell>& cells)
{
    std::string text;
    for (const Cell cell : cells) {
        text += ".=|x!"[static_cast<int>(cell)];
    }
    return text;
}

}  // namespace

TEST(Timeline, ShowsTheWorstOfEachCell)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(3900, kLauncher, "a", 201, 0);
    log.Start(5100, kLauncher, "a").End(5200, kLauncher, "a", 202, 0);
    log.Start(5300, kLauncher, "a").End(5400, kLauncher, "a", 203, 256);
    log.Start(7000, kLauncher, "a").End(10000, kLauncher, "b", 204, 0);
    const Report report = ReportOn(log);
    EXPECT_EQ(Signs(Timeline(report.items[0], *report.first, *report.last, 10)), "===|.x.===");
    EXPECT_EQ(Signs(Timeline(report.items[1], *report.first, *report.last, 10)), ".........|");
}

TEST(Timeline, MarksWhatCouldNotBeStarted)
{
    LogText log;
    log.Start(0, kLauncher, "other").Start(500, kLauncher, "a").Start(550, 300, "a");
    log.End(10000, kLauncher, "other", 200, 0);
    const Report report = ReportOn(log);
    EXPECT_EQ(Signs(Timeline(report.items[1], *report.first, *report.last, 10)), "!=========");
}

TEST(Timeline, ShowsOnlyTheStartOfARunWhoseEndIsNotKnown)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(5500, 200, "a").End(10000, 200, "b", 300, 0);
    const Report report = ReportOn(log);
    EXPECT_EQ(Signs(Timeline(report.items[0], *report.first, *report.last, 10)), "=....=====");
}

TEST(Timeline, OfOneMomentHasACell)
{
    LogText log;
    log.End(5, kLauncher, "a", 200, 0);
    const Report report = ReportOn(log);
    EXPECT_EQ(Signs(Timeline(report.items[0], *report.first, *report.last, 3)), "|..");
}

TEST(Timeline, OfTwoMomentsBeginsAndEndsWithThem)
{
    LogText log;
    log.End(0, kLauncher, "a", 200, 0).End(1, kLauncher, "a", 201, 256);
    const Report report = ReportOn(log);
    EXPECT_EQ(Signs(Timeline(report.items[0], *report.first, *report.last, 4)), "|..x");
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

TEST(ReportText, SaysUnknownAndWhichLevelWouldTell)
{
    LogText log;
    log.End(0, kLauncher, "a", 201, 0);
    const std::string text = Text(ReportOn(log));
    EXPECT_TRUE(Holds(text, "unknown     1")) << text;
    EXPECT_TRUE(Holds(text, "put LEVEL=DEBUG into the section [LOG] of /home/log.ini")) << text;
    EXPECT_FALSE(Holds(Text(ReportOn(LogText().Start(0, kLauncher, "a"))), "LEVEL=DEBUG"));
}

TEST(ReportText, FitsTheTerminal)
{
    LogText log;
    log.Start(0, kLauncher, std::string(200, 'x')).Start(90, kLauncher, "b");
    const Report report = ReportOn(log);
    for (const std::size_t width : {60U, 80U, 120U}) {
        const std::string text = ReportText(report, kLevelFile, {width, false});
        const std::size_t row = text.rfind("\nb ");
        EXPECT_EQ(text.find('\n', row + 1) - row - 1, width);
    }
}

TEST(ReportText, OfAnEmptyLogSaysSo)
{
    EXPECT_EQ(Text(ReportOn(LogText())), "no records\n");
}

TEST(ReportOutput, ShowsNothingHostile)
{
    LogText log;
    const std::string name = "\\x1b]0;owned\\x07\\u202e<script>alert('1')</script>\"&\\xff\\n";
    for (const Milliseconds time : {0, 100, 200, 300, 400, 500}) {
        log.Start(time, kLauncher, name).End(time + 50, kLauncher, name, 200, 256);
    }
    log.Raw(
        "\x1b[2J<img src=x onerror=alert(2)>\xc2\x9b"
        "31m\n");
    const TempFolder folder;
    const std::string path = folder.Write("<b>\x1b[1m", log.Text());
    const Report report = MakeReport({path}, {});
    EXPECT_EQ(report.items[0].name, "\x1b]0;owned\x07\u202e<script>alert('1')</script>\"&\xff\n");
    const std::string page = ReportHtml(report, "<i>");
    for (const std::string& output : {Text(report), ReportJson(report), page}) {
        EXPECT_TRUE(is_utf8(output));
        for (const char* part : {"\x1b", "\x07", "\u202e", "\xc2\x9b", "\xff"}) {
            EXPECT_FALSE(Holds(output, part)) << printable(part);
        }
    }
    for (const char* part : {"<script", "<img", "<i>", "<b>", "alert('"}) {
        EXPECT_FALSE(Holds(page, part)) << part;
    }
    JsonObject json(ReportJson(report).c_str());
    const std::string read = json["items"][0]["name"];
    EXPECT_EQ(read, "\x1b]0;owned\x07\u202e<script>alert('1')</script>\"&\ufffd\n");
}

TEST(ReportOutput, StaysSoundWhateverByteOfTheLogChanges)
{
    LogText log;
    log.Start(0, kLauncher, "a\\n").End(1000, kLauncher, "a\\n", 201, 256);
    log.Add(2000, "ERROR", 201, "[LAUNCHER  ] program path of a is empty");
    const TempFolder folder;
    for (std::size_t i = 0; i < log.Text().size(); ++i) {
        for (const char c : {'\n', '\x1b', '9', '\xff'}) {
            std::string changed = log.Text();
            changed[i] = c;
            const Report report = MakeReport({folder.Write("qv7log", changed)}, {});
            for (const std::string& output : {Text(report), ReportJson(report)}) {
                EXPECT_TRUE(is_utf8(output));
                EXPECT_FALSE(Holds(output, "\x1b"));
            }
        }
    }
}

TEST(ReportHtml, LoadsAndRunsNothing)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(1000, kLauncher, "a", 201, 256);
    const std::string page = ReportHtml(ReportOn(log), kLevelFile);
    EXPECT_TRUE(Holds(page, "default-src 'none'"));
    for (const char* part : {"<script", "src=", "url(", "@import", "http:", "https:", "<link"}) {
        EXPECT_FALSE(Holds(page, part)) << part;
    }
}

TEST(ReportHtml, StaysSmallWhateverTheLog)
{
    LogText log;
    for (int i = 0; i < 20000; ++i) {
        const Milliseconds time = Milliseconds{100} * i;
        log.Start(time, kLauncher, "a").End(time + 50, kLauncher, "a", 200 + i, i % 2 * 256);
    }
    EXPECT_LT(ReportHtml(ReportOn(log), kLevelFile).size(), 200000U);
}

TEST(ReportJson, HasTheFigures)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(1250, kLauncher, "a", 201, 768).Start(1300, kLauncher, "a");
    JsonObject json(ReportJson(ReportOn(log)).c_str());
    EXPECT_EQ(static_cast<std::string>(json["from"]), LogText::Time(0));
    EXPECT_EQ(static_cast<int>(json["records"]), 3);
    JsonObject item = json["items"][0];
    EXPECT_EQ(static_cast<int>(item["starts"]), 2);
    EXPECT_EQ(static_cast<int>(item["ends"]), 1);
    EXPECT_EQ(static_cast<int>(item["longest_run_ms"]), 1250);
    EXPECT_EQ(static_cast<std::string>(item["state"]), "running");
    EXPECT_EQ(static_cast<std::string>(item["ended"][0]["how"]), "exit status 3");
    EXPECT_FALSE(item["loop"].IsValid());
}
