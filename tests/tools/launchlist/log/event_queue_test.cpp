#include "tools/launchlist/log/event_queue.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tests/support/temp_directory.h"
#include "tests/tools/launchlist/log/report_on.h"

using namespace launchlist;

namespace {

// Adds the entries of a log to a queue.
class Queue
{
public:
    explicit Queue(EventSelection selection = {}, std::size_t max_history = kMaxHistory)
        : m_queue(std::move(selection), max_history)
    {
    }

    Queue& Add(const LogText& log)
    {
        LogSink sink;
        sink.on_record = [&](const qv7log::Record& record, std::string_view raw) {
            m_queue.AddRecord(record, raw);
        };
        sink.on_unparsed = [&](const UnparsedEntry& entry) { m_queue.AddUnparsed(entry); };
        std::string_view bytes = log.Text();
        std::size_t line = 1;
        PassEntries("/logs/qv7log", true, bytes, line, sink);
        return *this;
    }

    // What the queue releases.
    std::vector<LogEvent> Release(Milliseconds now, bool is_growing)
    {
        std::vector<LogEvent> events;
        m_queue.Release(At(now), is_growing,
                        [&](const LogEvent& event) { events.push_back(event); });
        return events;
    }

    // All events of a log that does not grow any more.
    std::vector<LogEvent> All() { return Release(Milliseconds{1000} * 24 * 3600 * 1000, false); }

    EventQueue& Get() { return m_queue; }

private:
    EventQueue m_queue;
};

std::vector<std::string> NamesOf(const std::vector<LogEvent>& events)
{
    std::vector<std::string> names;
    for (const LogEvent& event : events) {
        names.push_back(event.name);
    }
    return names;
}

EventSelection Named(std::vector<std::string> names)
{
    EventSelection selection;
    selection.names = std::move(names);
    return selection;
}

using Names = std::vector<std::string>;

}  // namespace

TEST(EventQueue, KnowsARestartFromALaterStart)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(3000, kLauncher, "a", 201, kExit3).Start(3050, kLauncher, "a");
    const std::vector<LogEvent> events = Queue().Add(log).All();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_TRUE(events[0].run->is_first);
    EXPECT_FALSE(events[0].is_restarted);
    EXPECT_TRUE(events[1].is_restarted);
    EXPECT_EQ(events[1].run->Length(), 3000);
    EXPECT_EQ(events[1].child, 201);
    EXPECT_FALSE(events[2].run->is_first);
}

TEST(EventQueue, KnowsARestartWithoutDebugRecordsFromTheNextEnd)
{
    LogText log;
    log.End(0, kLauncher, "a", 201, kExit3).End(3050, kLauncher, "a", 202, kExit3);
    const std::vector<LogEvent> events = Queue().Add(log).All();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_TRUE(events[0].is_restarted);
    EXPECT_FALSE(events[0].run->Length());
    EXPECT_FALSE(events[1].is_restarted);
    EXPECT_EQ(events[1].run->Length(), 3000);
}

TEST(EventQueue, DoesNotTakeAStartByAnotherLauncherForARestart)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(3000, kLauncher, "a", 201, kExit3).Start(3050, 300, "a");
    const std::vector<LogEvent> events = Queue().Add(log).All();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_FALSE(events[1].is_restarted);
    EXPECT_EQ(events[1].launcher->process, kLauncher);
    EXPECT_EQ(events[2].launcher->process, 300);
    EXPECT_NE(events[1].launcher->number, events[2].launcher->number);
    EXPECT_FALSE(events[2].is_continued);
}

TEST(EventQueue, AttributesAFurtherSupervisorToItsLauncher)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(50, 300, "a").Start(100, 301, "a");
    const std::vector<LogEvent> events = Queue().Add(log).All();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_FALSE(events[0].is_continued);
    EXPECT_TRUE(events[1].is_continued);
    EXPECT_TRUE(events[2].is_continued);
    EXPECT_EQ(events[2].launcher->process, kLauncher);
    EXPECT_EQ(events[2].process, 301);
}

TEST(EventQueue, WaitsForTheSecondItemOfALateProcess)
{
    for (const bool has_second : {false, true}) {
        Queue queue;
        LogText log;
        log.Start(0, kLauncher, "a").Start(3000, 300, "a");
        queue.Add(log);
        EXPECT_EQ(NamesOf(queue.Release(3999, true)), Names{"a"});
        if (has_second) {
            queue.Add(LogText().Start(3001, 300, "b"));
        }
        const std::vector<LogEvent> events = queue.Release(4000, true);
        ASSERT_EQ(events.size(), has_second ? 2U : 1U);
        EXPECT_EQ(events[0].launcher->process, 300);
        EXPECT_EQ(events[0].launcher->may_be_child_of == kLauncher, !has_second);
    }
}

TEST(EventQueue, WaitsForTheRestartOfALogThatGrows)
{
    Queue queue;
    LogText log;
    log.Start(0, kLauncher, "a").End(3000, kLauncher, "a", 201, kExit3);
    queue.Add(log);
    EXPECT_EQ(NamesOf(queue.Release(3010, true)), Names{"a"});
    EXPECT_EQ(NamesOf(queue.Release(3999, true)), Names{});
    queue.Add(LogText().Start(3050, kLauncher, "a"));
    const std::vector<LogEvent> events = queue.Release(3999, true);
    ASSERT_EQ(events.size(), 2U);
    EXPECT_TRUE(events[0].is_restarted);
}

TEST(EventQueue, ForgetsThatAProgramSeemedToBeStoppedWhenItIsRestarted)
{
    Queue queue;
    LogText log;
    log.Start(0, kLauncher, "a").End(3000, kLauncher, "a", 201, kKilled);
    queue.Add(log);
    EXPECT_EQ(NamesOf(queue.Release(3999, true)), Names{"a"});
    queue.Add(LogText().Start(3050, kLauncher, "a"));
    const std::vector<LogEvent> events = queue.Release(3999, true);
    ASSERT_EQ(events.size(), 2U);
    EXPECT_TRUE(events[0].is_restarted);
    EXPECT_EQ(events[0].run->ended_by, EndedBy::kProgram);
}

TEST(EventQueue, WaitsForARestartForASecond)
{
    Queue queue;
    LogText log;
    log.Start(0, kLauncher, "a").End(3000, kLauncher, "a", 201, kKilled).End(3000, 7, "b", 8, 0);
    queue.Add(log);
    EXPECT_EQ(queue.Release(3999, true).size(), 1U);
    const std::vector<LogEvent> events = queue.Release(4000, true);
    // The event after it had to wait as well.
    ASSERT_EQ(NamesOf(events), (Names{"a", "b"}));
    EXPECT_FALSE(events[0].is_restarted);
}

// The end of a stop is recognised a second after its last record.
TEST(EventQueue, WaitsForTheWholeStop)
{
    Queue queue;
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b").Start(2, kLauncher, "c");
    queue.Add(log.End(5000, kLauncher, "a", 201, kKilled).End(5051, kLauncher, "b", 202, kKilled));
    EXPECT_EQ(queue.Release(5100, true).size(), 3U);
    queue.Add(LogText().End(5900, kLauncher, "c", 203, kKilled));
    EXPECT_EQ(queue.Release(6899, true).size(), 0U);
    const std::vector<LogEvent> events = queue.Release(6900, true);
    ASSERT_EQ(events.size(), 3U);
    for (const LogEvent& event : events) {
        EXPECT_EQ(event.run->ended_by, EndedBy::kLauncher);
    }
}

TEST(EventQueue, WaitsNoLongerWhileTheLauncherKeepsWriting)
{
    Queue queue;
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b").End(2000, kLauncher, "a", 201, kKilled);
    for (int i = 0; i < 11; ++i) {
        log.End(2000 + 100 * i, kLauncher, "b", 202, kExit3);
        log.Start(2050 + 100 * i, kLauncher, "b");
    }
    const std::vector<LogEvent> events = queue.Add(log).Release(3060, true);
    ASSERT_EQ(events.size(), 25U);
    EXPECT_EQ(events[2].run->ended_by, EndedBy::kLauncher);
}

TEST(EventQueue, DoesNotWaitWhereStartsAreNotLogged)
{
    Queue queue;
    queue.Add(LogText().End(3000, kLauncher, "a", 201, kExit3));
    EXPECT_EQ(NamesOf(queue.Release(3000, true)), Names{"a"});
}

TEST(EventQueue, DoesNotWaitIfTheClockWasSetBack)
{
    Queue queue;
    queue.Add(LogText().Start(0, kLauncher, "a").End(3000, kLauncher, "a", 201, kExit3));
    EXPECT_EQ(queue.Release(2000, true).size(), 2U);
}

TEST(EventQueue, RecognisesAStop)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "b");
    log.End(5000, kLauncher, "b", 201, kKilled).End(5051, kLauncher, "a", 202, kKilled);
    const std::vector<LogEvent> events = Queue().Add(log).All();
    ASSERT_EQ(events.size(), 4U);
    EXPECT_EQ(events[2].run->ended_by, EndedBy::kLauncher);
    EXPECT_EQ(events[3].run->ended_by, EndedBy::kLauncher);
    EXPECT_FALSE(events[2].is_restarted);
}

TEST(EventQueue, ForgetsThatTheLauncherSeemedToBeStopped)
{
    Queue queue;
    queue.Add(LogText().Start(0, kLauncher, "a").End(1000, kLauncher, "a", 201, kKilled));
    const std::vector<LogEvent> stopped = queue.Release(5000, true);
    ASSERT_EQ(stopped.size(), 2U);
    EXPECT_EQ(stopped[1].run->ended_by, EndedBy::kLauncher);
    LogText log;
    log.Start(6000, kLauncher, "b").Start(6001, kLauncher, "c");
    log.End(7000, kLauncher, "b", 202, kKilled).Start(7500, 700, "d");
    const std::vector<LogEvent> events = queue.Add(log).Release(9000, true);
    ASSERT_EQ(events.size(), 4U);
    EXPECT_EQ(events[2].run->ended_by, EndedBy::kMaybeLauncher);
}

TEST(EventQueue, ConcludesNothingFromRecordsThatMayBeMissing)
{
    const std::string lost =
        LogText().Add(1500, "ERROR", kLauncher, "[QV7LOG    ] 1 records were lost").Text();
    const struct
    {
        std::string gap;
        EndedBy ended_by;
    } kTable[] = {{"", EndedBy::kLauncher},
                  {"foreign\n", EndedBy::kMaybeLauncher},
                  {lost, EndedBy::kMaybeLauncher}};
    for (const auto& row : kTable) {
        LogText log;
        log.Start(0, kLauncher, "a")
            .Start(1, kLauncher, "b")
            .End(1000, kLauncher, "a", 201, kKilled);
        log.Raw(row.gap).End(3000, kLauncher, "b", 202, kExit3).Start(3050, kLauncher, "b");
        EXPECT_EQ(Queue().Add(log).All()[2].run->ended_by, row.ended_by) << row.gap;
    }
}

TEST(EventQueue, DoesNotTakeTheStartOfALaterItemOfTheSameNameForARestart)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(10, kLauncher, "a", 201, kKilled).Start(12, kLauncher, "a");
    const std::vector<LogEvent> events = Queue().Add(log).All();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[1].run->ended_by, EndedBy::kLauncher);
    EXPECT_FALSE(events[1].is_restarted);
}

TEST(EventQueue, KeepsWhatIsNotALaunchersRecord)
{
    LogText log;
    log.Raw("foreign\n").Add(0, "ERROR", kLauncher, "[LAUNCHER  ] news");
    log.Add(1, "ERROR", kLauncher, "[QV7LOG    ] 12 records were lost");
    log.Add(2, "ERROR", kLauncher, "[LAUNCHER  ] There is an item has no name.");
    log.Add(3, "ERROR", kLauncher, "[LAUNCHER  ] Start to fork aaa\\<70000 bytes cut>");
    log.Raw("torn");
    const std::vector<LogEvent> events = Queue().Add(log).All();
    ASSERT_EQ(events.size(), 6U);
    EXPECT_EQ(events[0].entry, EntryKind::kUnparsed);
    EXPECT_EQ(events[0].place, "qv7log:1");
    EXPECT_EQ(events[0].text, "foreign");
    EXPECT_FALSE(events[0].time);
    EXPECT_EQ(events[1].entry, EntryKind::kOtherRecord);
    EXPECT_EQ(events[1].text, LogText::Time(0) + " ERROR    launcher[100] [LAUNCHER  ] news");
    EXPECT_EQ(events[2].kind, EventKind::kRecordsLost);
    EXPECT_EQ(events[2].number, 12U);
    EXPECT_EQ(events[3].kind, EventKind::kNoName);
    EXPECT_EQ(events[3].launcher->process, kLauncher);
    EXPECT_EQ(events[4].entry, EntryKind::kOtherRecord);
    EXPECT_EQ(events[5].place, "qv7log:6");
}

TEST(EventQueue, SelectsItemsByNameAndAsTheyArePrinted)
{
    LogText log;
    log.Start(0, kLauncher, "a").Start(1, kLauncher, "a\\x1b").Start(2, kLauncher, "b");
    log.Raw("foreign\n").Add(3, "ERROR", kLauncher, "[QV7LOG    ] 1 records were lost");
    log.Add(4, "ERROR", kLauncher, "[LAUNCHER  ] There is an item has no name.");
    log.Add(5, "INFO", 7, "[OTHER     ] a");
    EXPECT_EQ(NamesOf(Queue(Named({"a"})).Add(log).All()), (Names{"a", ""}));
    EXPECT_EQ(NamesOf(Queue(Named({"a\\x1b"})).Add(log).All()), (Names{"a\x1b", ""}));
    EXPECT_EQ(NamesOf(Queue(Named({"a\x1b", "b"})).Add(log).All()), (Names{"a\x1b", "b", ""}));
    Queue unknown(Named({"a", "c", "a\\x1b"}));
    unknown.Add(log);
    EXPECT_EQ(unknown.Get().UnknownNames(), Names{"c"});
    EXPECT_EQ(unknown.Get().ItemNames(), (Names{"a", "a\x1b", "b"}));
}

TEST(EventQueue, KnowsWhatPrecedesTheSelectedTime)
{
    LogText log;
    log.Raw("foreign before\n").Start(0, kLauncher, "a").Raw("foreign\n");
    log.End(3000, kLauncher, "a", 201, kExit3).Raw("foreign after\n").Start(3050, kLauncher, "a");
    EventSelection selection;
    selection.since = At(3000);
    selection.until = At(3000);
    const std::vector<LogEvent> events = Queue(selection).Add(log).All();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].run->Length(), 3000);
    EXPECT_TRUE(events[0].is_restarted);
    EXPECT_EQ(events[1].text, "foreign after");
}

TEST(EventQueue, KeepsTheLastEventsUntilTheLimitIsRemoved)
{
    EventSelection selection;
    selection.last = 2;
    Queue queue(selection);
    queue.Add(LogText().Start(0, 1, "a").Start(1, 1, "b").Start(2, 1, "c"));
    EXPECT_EQ(NamesOf(queue.Release(5000, true)), (Names{"b", "c"}));
    queue.Get().RemoveLimit();
    queue.Add(LogText().Start(3, 1, "d").Start(4, 1, "e").Start(5, 1, "f"));
    EXPECT_EQ(NamesOf(queue.Release(5000, true)), (Names{"d", "e", "f"}));
    selection.last = 0;
    EXPECT_TRUE(Queue(selection).Add(LogText().Start(0, 1, "a")).All().empty());
}

TEST(EventQueue, KeepsTheTextOfEveryEntryOfARawSelection)
{
    LogText log;
    log.Start(0, kLauncher, "a").End(3000, kLauncher, "a", 201, 0).Raw("foreign\n");
    EventSelection selection;
    selection.is_raw = true;
    Queue queue(selection);
    queue.Add(log);
    // And shows it at once.
    std::string text;
    for (const LogEvent& event : queue.Release(3000, true)) {
        text += event.text + "\n";
    }
    EXPECT_EQ(text, log.Text());
}

TEST(EventQueue, ForgetsOldEvents)
{
    Queue queue({}, 2);
    queue.Add(LogText().Start(0, kLauncher, "a"));
    EXPECT_EQ(queue.All().size(), 1U);
    queue.Add(LogText().Start(1, kLauncher, "b"));
    const std::vector<LogEvent> before = queue.All();
    ASSERT_EQ(before.size(), 1U);
    queue.Add(LogText().End(3000, kLauncher, "a", 201, kExit3).Start(3050, kLauncher, "a"));
    queue.Add(LogText().End(5050, kLauncher, "a", 201, kExit3));
    const std::vector<LogEvent> events = queue.All();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_FALSE(events[0].run->Length());
    EXPECT_TRUE(events[0].is_restarted);
    EXPECT_EQ(events[2].run->Length(), 2000);
    EXPECT_GT(events[0].launcher->number, before[0].launcher->number);
}

TEST(EventQueue, HoldsNothingBackOnceItsHistoryIsFull)
{
    const LogText log = LogText().Start(0, kLauncher, "a").End(3000, kLauncher, "a", 201, kExit3);
    EXPECT_EQ(Queue().Add(log).Release(3010, true).size(), 1U);
    EXPECT_EQ(Queue({}, 2).Add(log).Release(3010, true).size(), 2U);
}

TEST(EventQueue, ConcludesNothingFromRecordsThatAnUnreadableFileMayHold)
{
    for (const bool is_unreadable : {false, true}) {
        Queue queue;
        queue.Add(LogText()
                      .Start(0, kLauncher, "a")
                      .Start(1, kLauncher, "b")
                      .End(100, kLauncher, "a", 200, kExit3));
        if (is_unreadable) {
            queue.Get().AddUnreadableFile();
        }
        const std::vector<LogEvent> events =
            queue.Add(LogText().End(9000, kLauncher, "b", 201, kExit3)).All();
        ASSERT_EQ(events.size(), 4U);
        EXPECT_EQ(events[2].run->is_final, !is_unreadable);
    }
}

// Whatever the log contains, its report and its events agree.
TEST(EventQueue, AgreesWithTheReport)
{
    LogText log;
    unsigned state = 1;
    const auto random = [&state](unsigned bound) {
        state = state * 1103515245U + 12345U;
        return static_cast<int>((state >> 16U) % bound);
    };
    const char* const names[] = {"a", "b", "c"};
    Milliseconds time = 0;
    for (int i = 0; i < 20000; ++i) {
        time += random(4) == 0 ? random(3000) : random(60);
        const int launcher = 100 + random(3);
        const char* name = names[random(3)];
        switch (random(12)) {
            case 0:
                log.Add(time, "ERROR", launcher,
                        std::string("[LAUNCHER  ] Failed to fork ") + name);
                break;
            case 1:
                log.Add(time, "ERROR", 500 + random(9),
                        std::string("[LAUNCHER  ] program path of ") + name + " is empty");
                break;
            case 2:
                log.Raw("foreign\n");
                break;
            case 3:
            case 4:
            case 5:
            case 6:
                log.Start(time, launcher + (random(5) == 0 ? 400 : 0), name);
                break;
            default:
                log.End(time, launcher, name, 500 + random(9), random(2) == 0 ? kKilled : kExit3);
        }
    }
    const Report report = ReportOn(log);
    std::map<std::string, std::size_t> ends;
    std::map<std::string, std::size_t> stops;
    std::map<std::string, std::size_t> crashes;
    for (const LogEvent& event : Queue().Add(log).All()) {
        if (event.kind != EventKind::kEnd || event.run->role == Role::kFailed) {
            continue;
        }
        ++ends[event.name];
        stops[event.name] += event.run->ended_by == EndedBy::kLauncher ? 1 : 0;
        crashes[event.name] += event.run->IsCrash() ? 1 : 0;
    }
    for (const char* name : names) {
        EXPECT_EQ(ends[name], ItemOf(report, name).ends);
        EXPECT_EQ(stops[name], ItemOf(report, name).stops);
        EXPECT_EQ(crashes[name], ItemOf(report, name).crashes);
    }
}
