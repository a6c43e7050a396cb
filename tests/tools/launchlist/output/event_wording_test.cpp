#include "tools/launchlist/output/event_wording.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "tests/support/temp_directory.h"
#include "tests/tools/launchlist/log/report_on.h"

using namespace launchlist;

namespace {

// Added by the system to the wait status of a program that dumped core.
constexpr int kCore = 0x80;

LogEvent End(int wait_status)
{
    LogEvent event;
    event.kind = EventKind::kEnd;
    event.time = At(3000);
    event.name = "thumbnailer";
    event.child = 4712;
    event.run = Run();
    event.run->start = At(0);
    event.run->end = At(3000);
    event.run->termination = {true, wait_status};
    return event;
}

LogEvent EndBy(EndedBy ended_by)
{
    LogEvent event = End(kKilled);
    event.run->ended_by = ended_by;
    return event;
}

LogEvent Of(EventKind kind, const std::string& name = "")
{
    LogEvent event;
    event.kind = kind;
    event.time = At(0);
    event.name = name;
    event.process = 4711;
    return event;
}

LogEvent Entry(EntryKind entry, const std::string& text)
{
    LogEvent event;
    event.entry = entry;
    event.text = text;
    event.place = "qv7log:12";
    return event;
}

LogEvent Timed(LogEvent event, Milliseconds time, std::size_t launcher, std::int64_t process)
{
    event.time = At(time);
    event.launcher = LauncherId{launcher, process, std::nullopt};
    return event;
}

}  // namespace

TEST(EventText, NamesTheEndOfAProgram)
{
    EXPECT_EQ(EventText(End(SIGABRT)), "thumbnailer was killed by SIGABRT after 3.0 s");
    EXPECT_EQ(EventText(End(SIGSEGV | kCore)),
              "thumbnailer was killed by SIGSEGV after 3.0 s (core dumped)");
    EXPECT_EQ(EventText(End(0)), "thumbnailer exited with status 0 after 3.0 s");
    EXPECT_EQ(EventText(End(kExit3)), "thumbnailer exited with status 3 after 3.0 s");
    EXPECT_EQ(EventText(End(0x137f)), "thumbnailer ended with wait status 4991 after 3.0 s");
    LogEvent event = End(SIGABRT);
    event.run->start.reset();
    EXPECT_EQ(EventText(event), "thumbnailer was killed by SIGABRT");
}

TEST(EventText, SaysRestartingOnlyWhereItIsShown)
{
    LogEvent event = End(SIGABRT);
    event.is_restarted = true;
    EXPECT_EQ(EventText(event), "thumbnailer was killed by SIGABRT after 3.0 s; restarting");
    event = End(SIGABRT);
    event.run->is_final = true;
    EXPECT_EQ(EventText(event), "thumbnailer was killed by SIGABRT after 3.0 s; not restarted");
}

TEST(EventText, NamesTheLauncherAsTheCause)
{
    EXPECT_EQ(EventText(EndBy(EndedBy::kLauncher)),
              "thumbnailer was killed by its launcher after 3.0 s");
    LogEvent event = EndBy(EndedBy::kLauncher);
    event.run->is_final = true;
    EXPECT_EQ(EventText(event), "thumbnailer was killed by its launcher after 3.0 s");
    EXPECT_EQ(EventText(EndBy(EndedBy::kMaybeLauncher)),
              "thumbnailer was killed by SIGKILL after 3.0 s, perhaps by its launcher");
}

TEST(EventText, SaysWhatIsUnknownIfWaitpidFailed)
{
    LogEvent event = EndBy(EndedBy::kUnknown);
    event.run->termination = {false, 0};
    EXPECT_EQ(EventText(event),
              "thumbnailer: waitpid failed for process 4712, so whether, when and how it ended is "
              "unknown");
}

TEST(EventText, DistinguishesAChildThatDidNotExecuteTheProgram)
{
    LogEvent event = End(kKilled);
    event.run->role = Role::kFailed;
    EXPECT_EQ(EventText(event),
              "process 4712 of thumbnailer, which could not be executed, was killed by SIGKILL");
    event = End(0);
    event.run->role = Role::kFailed;
    event.run->lacks_program = true;
    event.is_restarted = true;
    EXPECT_EQ(EventText(event),
              "process 4712 of thumbnailer, which has no program, exited with status 0; "
              "restarting");
}

TEST(EventText, NamesStarts)
{
    LogEvent event = Of(EventKind::kStart, "thumbnailer");
    event.run = launchlist::Run();
    event.run->is_first = true;
    EXPECT_EQ(EventText(event), "thumbnailer is starting");
    event.is_continued = true;
    EXPECT_EQ(EventText(event),
              "thumbnailer could not be executed; its child 4711 is starting it again");
    event.is_continued = false;
    event.run->is_first = false;
    EXPECT_EQ(EventText(event), "thumbnailer is starting again");
}

TEST(EventText, NamesTheOtherEvents)
{
    EXPECT_EQ(EventText(Of(EventKind::kForkFailed, "a")), "a is abandoned: fork failed");
    EXPECT_EQ(EventText(Of(EventKind::kNoProgram, "a")), "a has no program");
    EXPECT_EQ(EventText(Of(EventKind::kNoName)), "an item without a name was skipped");
    EXPECT_EQ(EventText(Of(EventKind::kListRejected)),
              "the launcher could not use its list, or could not create a thread");
    LogEvent event = Of(EventKind::kRecordsLost);
    event.number = 1;
    EXPECT_EQ(EventText(event), "process 4711 could not write 1 record");
    EXPECT_EQ(EventText(Entry(EntryKind::kTruncated, "")),
              "the log was truncated; events may be missing");
    EXPECT_EQ(EventText(Entry(EntryKind::kReplaced, "")), "the log was removed or replaced");
}

TEST(EventText, QuotesNamesThatCouldImitateItsWords)
{
    const auto text = [](const std::string& name) {
        return EventText(Of(EventKind::kNoProgram, name));
    };
    EXPECT_EQ(text(""), "\"\" has no program");
    EXPECT_EQ(text("a is starting; b"), "\"a is starting; b\" has no program");
    EXPECT_EQ(text("a\" b"), "\"a\\\" b\" has no program");
    EXPECT_EQ(text("\x1b]0;x\x07\n\xe2\x80\xae"), "\\x1b]0;x\\x07\\n\\u{202e} has no program");
}

TEST(EventText, ShowsOtherEntriesWithoutControlCharacters)
{
    LogEvent event =
        Entry(EntryKind::kOtherRecord, LogText::Time(0) + " INFO     indexer[77] news\\n\x1b[2J");
    event.time = At(0);
    EXPECT_EQ(EventText(event), "INFO     indexer[77] news\\n\\x1b[2J");
    EXPECT_EQ(EventText(Entry(EntryKind::kOtherRecord, "2026-02-30T00:00:00.000Z INFO     a[7] b")),
              "2026-02-30T00:00:00.000Z INFO     a[7] b");
    EXPECT_EQ(EventText(Entry(EntryKind::kUnparsed, "\x1b]0;owned\x07")),
              "not a record (qv7log:12): \"\\x1b]0;owned\\x07\"");
}

TEST(EventLines, NamesTheDayAndTheLauncherWhenTheyChange)
{
    EventLines lines(Zone::kUtc, false);
    const LogEvent event = Of(EventKind::kNoProgram, "a");
    EXPECT_EQ(lines.Of(Entry(EntryKind::kUnparsed, "x")),
              "--:--:-- not a record (qv7log:12): \"x\"\n");
    EXPECT_EQ(lines.Of(event), "-- 2026-11-21 UTC --\n00:00:00 a has no program\n");
    EXPECT_EQ(lines.Of(event), "00:00:00 a has no program\n");
    EXPECT_EQ(lines.Of(Timed(event, 1000, 1, 100)),
              "-- 2026-11-21 UTC, launcher 100 --\n00:00:01 a has no program\n");
    EXPECT_EQ(lines.Of(event), "00:00:00 a has no program\n");
    EXPECT_EQ(lines.Of(Timed(event, 2000, 1, 100)), "00:00:02 a has no program\n");
    // Another one with the same process id.
    EXPECT_EQ(lines.Of(Timed(event, 3000, 2, 100)),
              "-- 2026-11-21 UTC, launcher 100 --\n00:00:03 a has no program\n");
    EXPECT_EQ(lines.Of(Timed(event, Milliseconds{24} * 3600 * 1000, 2, 100)),
              "-- 2026-11-22 UTC, launcher 100 --\n00:00:00 a has no program\n");
}

TEST(EventLines, SaysIfAProcessMayBeALauncherOrAChild)
{
    EventLines lines(Zone::kUtc, false);
    LogEvent event = Timed(Of(EventKind::kNoProgram, "a"), 1000, 1, 101);
    event.launcher->may_be_child_of = 100;
    EXPECT_EQ(lines.Of(event),
              "-- 2026-11-21 UTC, process 101, a launcher or a child of launcher 100 --\n"
              "00:00:01 a has no program\n");
}

TEST(EventLines, ColoursWhatIsWrong)
{
    EventLines lines(Zone::kUtc, true);
    EXPECT_NE(lines.Of(Of(EventKind::kNoProgram, "a")).find("\x1b["), std::string::npos);
}
