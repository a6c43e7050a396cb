#include "tools/launchlist/output/report_formats.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json/json_object.h"
#include "tests/tools/launchlist/log/report_on.h"
#include "tools/launchlist/base/text.h"

using namespace launchlist;

namespace {

constexpr char kLevelFile[] = "/home/log.ini";

std::string Text(const Report& report)
{
    return ReportText(report, kLevelFile, {});
}

bool Holds(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// The names of the tracks, in their order.
std::vector<std::string> TrackNames(const std::string& trace)
{
    JsonObject json(trace.c_str());
    JsonObject events = json["traceEvents"];
    std::vector<std::string> names;
    for (unsigned int i = 0; i < events.GetArraySize(); ++i) {
        JsonObject event = events[static_cast<int>(i)];
        if (static_cast<std::string>(event["name"]) == "thread_name") {
            names.push_back(static_cast<std::string>(event["args"]["name"]));
        }
    }
    return names;
}

}  // namespace

TEST(ReportText, NamesTheLevelThatLogsStarts)
{
    LogText log;
    log.End(0, kLauncher, "a", 201, 0);
    const std::string text = Text(ReportOn(log));
    EXPECT_TRUE(Holds(text, "unknown     1")) << text;
    EXPECT_TRUE(Holds(text, "set LEVEL=DEBUG in the section [LOG] of /home/log.ini")) << text;
    EXPECT_FALSE(Holds(Text(ReportOn(LogText().Start(0, kLauncher, "a"))), "LEVEL=DEBUG"));
}

TEST(ReportText, FitsTheTerminal)
{
    LogText log;
    log.Start(0, kLauncher, std::string(200, 'x')).Start(90, kLauncher, "b");
    log.End(40000000, kLauncher, "b", 200, 256);
    const Report report = ReportOn(log);
    for (const std::size_t width : {60U, 80U, 120U, 200U}) {
        const std::string text = ReportText(report, kLevelFile, {width, false});
        std::size_t begin = text.find("\nitem ") + 1;
        const std::size_t last = text.find("\n= running");
        ASSERT_NE(last, std::string::npos);
        while (begin < last) {
            const std::size_t end = text.find('\n', begin);
            EXPECT_LE(end - begin, width) << text.substr(begin, end - begin);
            begin = end + 1;
        }
    }
}

TEST(ReportText, ShortensNothingWithoutATerminal)
{
    const std::string name(200, 'x');
    LogText log;
    log.Start(0, kLauncher, name).End(10, kLauncher, name, 200, 256);
    EXPECT_TRUE(Holds(Text(ReportOn(log)), "\n" + name + "  "));
}

TEST(ReportText, ReportsAnEmptyLog)
{
    EXPECT_EQ(Text(ReportOn(LogText())), "no records\n");
}

TEST(ReportOutput, IsLimitedWhereVeryManyItemsHaveProblems)
{
    LogText log;
    for (int i = 0; i < 1002; ++i) {
        log.Start(10 * i, kLauncher, "item " + std::to_string(i));
        log.End(10 * i + 5, kLauncher, "item " + std::to_string(i), 2000 + i, kExit3);
    }
    const Report report = ReportOn(log);
    const std::string text = Text(report);
    EXPECT_TRUE(Holds(text, "\n  and 982 more\n"));
    EXPECT_TRUE(Holds(text, "\n2 more items not shown, none of them worse; --json has all\n"));
    const std::string page = ReportHtml(report, kLevelFile);
    EXPECT_TRUE(Holds(page, "<li>982 more below</li>"));
    JsonObject json(ReportJson(report).c_str());
    EXPECT_EQ(json["items"].GetArraySize(), 1002U);
}

TEST(ReportOutput, ShowsTheLatestOfManyLaunchers)
{
    LogText log;
    for (int i = 0; i < 52; ++i) {
        log.Start(20000 * i, 1000 + i, "item " + std::to_string(i));
    }
    const Report report = ReportOn(log);
    const std::string text = Text(report);
    EXPECT_TRUE(Holds(text, "\n42 earlier launchers not shown\nlauncher 1042: ")) << text;
    EXPECT_TRUE(Holds(text, "\nlauncher 1051: ")) << text;
    const std::string page = ReportHtml(report, kLevelFile);
    EXPECT_TRUE(Holds(page, "<li>2 earlier launchers not shown</li>\n<li>launcher 1002: "));
    EXPECT_TRUE(Holds(page, "<li>launcher 1051: "));
}

TEST(ReportOutput, SaysThatThePeriodHasNoRecords)
{
    LogText log;
    log.Start(0, kLauncher, "a");
    ReportRange range;
    range.since = At(3600000);
    const Report report = ReportOn(log, range);
    for (const std::string& output : {Text(report), ReportHtml(report, kLevelFile)}) {
        EXPECT_TRUE(Holds(output,
                          "no records in this period; the last record of the log is from "
                          "2026-11-21 00:00:00 UTC"))
            << output;
    }
}

TEST(ReportHtml, ShortensLongNames)
{
    const std::string name = "begin" + std::string(2000, 'x') + "end";
    const std::string page = ReportHtml(ReportOn(LogText().Start(0, kLauncher, name)), kLevelFile);
    EXPECT_TRUE(Holds(page, std::string(200, 'x'))) << "not even in the tooltip";
    EXPECT_FALSE(Holds(page, std::string(500, 'x')));
    EXPECT_TRUE(Holds(page, "title=\"beginx"));
}

TEST(ReportOutput, FindsProblemsOfLaunchersWithoutItems)
{
    LogText log;
    log.Add(0, "ERROR", kLauncher, "[LAUNCHER  ] Error while parsing saved json string.");
    const Report report = ReportOn(log);
    for (const std::string& output : {Text(report), ReportHtml(report, kLevelFile)}) {
        EXPECT_FALSE(Holds(output, "No problems found.")) << output;
        EXPECT_TRUE(Holds(output, "launcher 100 could not use its list")) << output;
    }
}

TEST(ReportOutput, EscapesHostileText)
{
    LogText log;
    const std::string name = "\\x1b]0;owned\\x07\\u202e<script>alert('1')</script>\"&\\xff\\n";
    for (const Milliseconds time : {0, 100, 200, 300, 400, 500}) {
        log.Start(time, kLauncher, name).End(time + 50, kLauncher, name, 200, 256);
    }
    log.Raw(
        "\x1b[2J<img src=x onerror=alert(2)>\xc2\x9b"
        "31m\n");
    const TempDirectory directory;
    const std::string path = directory.Write("<b>\x1b[1m", log.Text());
    const Report report = MakeReport({path}, {});
    EXPECT_EQ(report.items[0].name, "\x1b]0;owned\x07\u202e<script>alert('1')</script>\"&\xff\n");
    const std::string page = ReportHtml(report, "<i>");
    for (const std::string& output : {Text(report), ReportJson(report), page}) {
        EXPECT_TRUE(is_utf8(output));
        for (const char* part : {"\x1b", "\x07", "\u202e", "\xc2\x9b", "\xff"}) {
            EXPECT_FALSE(Holds(output, part)) << printable(part);
        }
    }
    for (const char* part : {"<script>alert", "<img", "<i>", "<b>", "alert('"}) {
        EXPECT_FALSE(Holds(page, part)) << part;
    }
    JsonObject json(ReportJson(report).c_str());
    const std::string read = json["items"][0]["name"];
    EXPECT_EQ(read, "\x1b]0;owned\x07\u202e<script>alert('1')</script>\"&\ufffd\n");
}

TEST(ReportOutput, IsSafeWhicheverByteOfTheLogChanges)
{
    LogText log;
    log.Start(0, kLauncher, "a\\n").End(1000, kLauncher, "a\\n", 201, 256);
    log.Add(2000, "ERROR", 201, "[LAUNCHER  ] program path of a is empty");
    const TempDirectory directory;
    for (std::size_t i = 0; i < log.Text().size(); ++i) {
        for (const char c : {'\n', '\x1b', '9', '\xff'}) {
            std::string changed = log.Text();
            changed[i] = c;
            const Report report = MakeReport({directory.Write("qv7log", changed)}, {});
            for (const std::string& output : {Text(report), ReportJson(report)}) {
                EXPECT_TRUE(is_utf8(output));
                EXPECT_FALSE(Holds(output, "\x1b"));
            }
        }
    }
}

TEST(ReportHtml, LoadsNothing)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(1000, kLauncher, "a", 201, 256);
    const std::string page = ReportHtml(ReportOn(log), kLevelFile);
    EXPECT_TRUE(Holds(page, "default-src 'none'"));
    EXPECT_EQ(page.substr(0, kPageMark.size()), kPageMark);
    for (const char* part : {" src=", "url(", "@import", "http:", "https:", "<link", " style="}) {
        EXPECT_FALSE(Holds(page, part)) << part;
    }
}

TEST(ReportHtml, DrawsMarksAsHighAsTheyAreFrequent)
{
    // One crash among 999 exits with status 0, all in one cell.
    LogText log;
    for (int i = 0; i < 1000; ++i) {
        log.End(i, kLauncher, "a", 200 + i, i == 500 ? kExit3 : 0);
    }
    log.Start(100000000, kLauncher, "b");
    const std::string page = ReportHtml(ReportOn(log), kLevelFile);
    EXPECT_TRUE(Holds(page, "<path class=x stroke-width=3.2 d=\"M2 12v-5\"/>")) << page;
}

TEST(ReportHtml, DividesBarsLessFinelyTheMoreItemsHaveMarks)
{
    const struct
    {
        int items;
        const char* cells;
    } kTable[] = {
        {30, " data-n=120 "}, {31, " data-n=40 "}, {100, " data-n=40 "}, {101, " data-n=14 "}};
    for (const auto& row : kTable) {
        LogText log;
        for (int i = 0; i < 3 * row.items; ++i) {
            log.End(100 * i, kLauncher, "item " + std::to_string(i % row.items), 2000 + i, kExit3);
        }
        EXPECT_TRUE(Holds(ReportHtml(ReportOn(log), kLevelFile), row.cells)) << row.items;
    }
}

TEST(ReportHtml, StaysSmallForManyRuns)
{
    LogText log;
    for (int i = 0; i < 20000; ++i) {
        const Milliseconds time = Milliseconds{100} * i;
        log.Start(time, kLauncher, "a").End(time + 50, kLauncher, "a", 200 + i, i % 2 * 256);
    }
    EXPECT_LT(ReportHtml(ReportOn(log), kLevelFile).size(), 60000U);
}

TEST(ReportHtml, StaysSmallForManyItems)
{
    // 200 items that crash for 20 hours, and 100,000 names.
    LogText crashing;
    for (int i = 0; i < 20000; ++i) {
        const std::string name = "com.kestrane.helper.number-" + std::to_string(i % 200);
        crashing.Start(3600 * i, kLauncher, name);
        crashing.End(3600 * i + 900, kLauncher, name, 200 + i, i % 3 * 256);
    }
    const std::string page = ReportHtml(ReportOn(crashing), kLevelFile);
    EXPECT_LT(page.size(), 300000U);
    EXPECT_TRUE(Holds(page, "number-199"));
    LogText many;
    for (int i = 0; i < 100000; ++i) {
        many.End(i, kLauncher, "name-" + std::to_string(i), 200 + i, 256);
    }
    const std::string large = ReportHtml(ReportOn(many), kLevelFile);
    EXPECT_LT(large.size(), 1000000U);
    EXPECT_TRUE(Holds(large, "more items not shown"));
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
    EXPECT_EQ(static_cast<std::string>(item["state"]), "started");
    EXPECT_EQ(static_cast<std::string>(item["causes"][0]["how"]), "exit status 3");
    EXPECT_EQ(static_cast<int>(item["causes"][0]["exit_status"]), 3);
    EXPECT_FALSE(item["loop"].IsValid());
}

TEST(ReportTrace, NumbersTheTracksOfEachLauncher)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b").End(10, kLauncher, "a", 201, kKilled);
    log.End(20, kLauncher, "b", 202, kKilled);
    log.Start(20000, 900, "a").End(20100, 900, "a", 301, kExit3).Start(20150, 900, "a");
    const std::string trace = ReportTrace(ReportOn(log));
    EXPECT_EQ(TrackNames(trace), (std::vector<std::string>{"a", "a", "b"}));
    EXPECT_NE(trace.find("\"tid\": 3"), std::string::npos);
    EXPECT_EQ(trace.find("\"tid\": 4"), std::string::npos);
    EXPECT_EQ(trace.find("\"tid\": \""), std::string::npos);
}

TEST(ReportTrace, PutsRunsThatOverlapInSeparateTracks)
{
    LogText log;
    // A later item of the same name starts before the earlier one is killed.
    log.Start(0, kLauncher, "a").Start(100, kLauncher, "a").End(300, kLauncher, "a", 201, kKilled);
    log.End(900, kLauncher, "a", 202, kExit3).Start(950, kLauncher, "a");
    const std::string trace = ReportTrace(ReportOn(log));
    EXPECT_EQ(TrackNames(trace), (std::vector<std::string>{"a", "a (2)"}));
    EXPECT_EQ(trace.substr(0, kTraceMark.size()), kTraceMark);
}

TEST(ReportTrace, KeepsNamesThatLookAlikeApart)
{
    LogText log;
    log.End(0, kLauncher, "", 201, 0).End(1, kLauncher, "\"\"", 202, 0);
    log.End(2, kLauncher, "x\\x1b", 203, 0).End(3, kLauncher, "x\\\\x1b", 204, 0);
    const std::string trace = ReportTrace(ReportOn(log));
    EXPECT_EQ(TrackNames(trace),
              (std::vector<std::string>{"\"\"", "\"\" [2]", "x\\x1b", "x\\x1b [2]"}));
}

TEST(ReportTrace, NamesFailuresAndWhatIsUnknown)
{
    LogText log;
    log.Start(0, kLauncher, "bad").Start(50, 300, "bad");
    log.Start(60, kLauncher, "none")
        .Add(61, "ERROR", 400, "[LAUNCHER  ] program path of none is empty");
    log.Start(70, kLauncher, "lost")
        .Add(71, "ERROR", kLauncher, "[LAUNCHER  ] Failed to fork lost");
    log.Start(80, kLauncher, "a").End(5000, kLauncher, "b", 201, kKilled);
    const std::string trace = ReportTrace(ReportOn(log));
    for (const char* name :
         {"bad: could not be executed", "bad: started", "none: no program",
          "lost: abandoned: fork failed", "a: running", "b: killed by SIGKILL"}) {
        EXPECT_NE(trace.find("\"name\": \"" + std::string(name)), std::string::npos)
            << name << trace;
    }
}

TEST(ReportTrace, IsEmptyWithoutRecords)
{
    EXPECT_NE(ReportTrace(ReportOn(LogText())).find("\"traceEvents\": []"), std::string::npos);
}
