#include "tools/launchlist/log/log_follower.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/qv7log/read_log.h"
#include "tests/support/next_descriptor.h"
#include "tests/tools/launchlist/log/log_text.h"

using namespace launchlist;

namespace {

// Follows the log "qv7log" of a directory. An entry that is not a record becomes "!" and its text.
class Follower
{
public:
    Follower() : m_follower(path, Sink()) {}

    // What the next call of Poll passes.
    std::vector<std::string> Next()
    {
        m_entries.clear();
        std::string error;
        EXPECT_TRUE(m_follower.Poll(error)) << error;
        return m_entries;
    }

    std::string Failure()
    {
        std::string error;
        return m_follower.Poll(error) ? "" : error;
    }

    void Append(const std::string& bytes, const std::string& name = "qv7log") const
    {
        std::ofstream(directory / name, std::ios::binary | std::ios::app) << bytes;
    }

    // Appends the record of a start. Its name is the entry that is passed.
    void AppendStart(const std::string& item, const std::string& name = "qv7log") const
    {
        Append(Record(item), name);
    }

    static std::string Record(const std::string& item)
    {
        return LogText().Start(0, 100, item).Text();
    }

    void Rename(const std::string& from, const std::string& to) const
    {
        std::filesystem::rename(directory / from, directory / to);
    }

    bool HasFile() const { return m_follower.HasFile(); }
    bool HasGrown() const { return m_follower.HasGrown(); }

    const TempDirectory directory;
    const std::string path = directory / "qv7log";

private:
    FollowSink Sink()
    {
        FollowSink sink;
        sink.on_file = [] {};
        sink.on_record = [this](const qv7log::Record& record, std::string_view) {
            m_entries.push_back(record.text.substr(record.text.rfind(' ') + 1));
        };
        sink.on_unparsed = [this](const UnparsedEntry& entry) {
            m_entries.push_back("!" + std::string(entry.text));
        };
        sink.on_change = [this](LogChange change) {
            m_entries.push_back(change == LogChange::kTruncated ? "truncated" : "replaced");
        };
        sink.on_unreadable = [this](const std::string& file, const std::string& error) {
            m_entries.push_back(file.substr(file.rfind('/') + 1) + ": " + error);
        };
        return sink;
    }

    std::vector<std::string> m_entries;
    LogFollower m_follower;
};

using Entries = std::vector<std::string>;

}  // namespace

TEST(LogFollower, PassesWhatIsThereAndThenWhatIsAppended)
{
    Follower log;
    log.AppendStart("a");
    log.AppendStart("b");
    EXPECT_EQ(log.Next(), (Entries{"a", "b"}));
    EXPECT_TRUE(log.HasGrown());
    EXPECT_EQ(log.Next(), Entries{});
    EXPECT_FALSE(log.HasGrown());
    log.AppendStart("c");
    EXPECT_EQ(log.Next(), Entries{"c"});
}

TEST(LogFollower, WaitsForALogThatDoesNotExist)
{
    Follower log;
    EXPECT_EQ(log.Next(), Entries{});
    EXPECT_FALSE(log.HasFile());
    log.AppendStart("a");
    EXPECT_EQ(log.Next(), Entries{"a"});
    EXPECT_TRUE(log.HasFile());
}

TEST(LogFollower, WaitsForADirectoryThatDoesNotExist)
{
    const TempDirectory directory;
    FollowSink sink;
    sink.on_file = [] {};
    std::size_t records = 0;
    sink.on_record = [&](const qv7log::Record&, std::string_view) { ++records; };
    LogFollower follower(directory / "a/b/qv7log", sink);
    std::string error;
    EXPECT_TRUE(follower.Poll(error));
    directory.Write("a/b/qv7log", Follower::Record("a"));
    EXPECT_TRUE(follower.Poll(error));
    EXPECT_EQ(records, 1U);
}

TEST(LogFollower, KeepsAnIncompleteEntryUntilItIsComplete)
{
    Follower log;
    const std::string record = Follower::Record("a");
    for (std::size_t cut = 1; cut < record.size(); ++cut) {
        log.Append(record.substr(0, cut));
        EXPECT_EQ(log.Next(), Entries{}) << cut;
        EXPECT_EQ(log.Next(), Entries{}) << cut;
        log.Append(record.substr(cut));
        EXPECT_EQ(log.Next(), Entries{"a"}) << cut;
    }
}

TEST(LogFollower, PassesATornRecordOnceTheNextOneFollows)
{
    Follower log;
    log.Append(LogText::Time(0) + " ERROR    launcher[100] [LAUN");
    EXPECT_EQ(log.Next(), Entries{});
    log.AppendStart("b");
    EXPECT_EQ(log.Next(), (Entries{"!" + LogText::Time(0) + " ERROR    launcher[100] [LAUN", "b"}));
}

TEST(LogFollower, ReadsOldFilesFirst)
{
    Follower log;
    log.AppendStart("a", "qv7log.2");
    log.AppendStart("b", "qv7log.1");
    log.AppendStart("c");
    EXPECT_EQ(log.Next(), (Entries{"a", "b", "c"}));
}

// The log may have to be created again by the process that rotates it, and a process that was
// stopped before its write may still write to the renamed file.
TEST(LogFollower, FollowsRotations)
{
    struct Step
    {
        std::vector<std::pair<const char*, const char*>> renamed;
        std::vector<std::pair<const char*, const char*>> written;  // A record, and its file.
        Entries passed;
    };
    const std::vector<std::vector<Step>> kCases = {
        {{{}, {{"a", "qv7log"}}, {"a"}},
         {{{"qv7log", "qv7log.1"}}, {{"b", "qv7log.1"}}, {"b"}},
         {{}, {{"c", "qv7log.1"}, {"d", "qv7log"}}, {"c", "d"}},
         {{}, {{"e", "qv7log.1"}, {"f", "qv7log"}}, {"e", "f"}}},
        // Several rotations between two calls.
        {{{}, {{"a", "qv7log.1"}, {"b", "qv7log"}}, {"a", "b"}},
         {{{"qv7log.1", "qv7log.4"}, {"qv7log", "qv7log.3"}},
          {{"c", "qv7log.3"}, {"d", "qv7log.2"}, {"e", "qv7log.1"}, {"f", "qv7log"}},
          {"c", "d", "e", "f"}},
         {{}, {}, {}}},
        // A rotation that is not completed.
        {{{}, {{"a", "qv7log"}}, {"a"}},
         {{{"qv7log", "qv7log.2"}}, {{"b", "qv7log.1"}}, {"b"}},
         {{}, {{"c", "qv7log"}}, {"c"}},
         {{{"qv7log", "moved"}}, {}, {}}}};
    for (const std::vector<Step>& steps : kCases) {
        Follower log;
        for (const Step& step : steps) {
            for (const auto& [from, to] : step.renamed) {
                log.Rename(from, to);
            }
            for (const auto& [item, name] : step.written) {
                log.AppendStart(item, name);
            }
            EXPECT_EQ(log.Next(), step.passed);
        }
    }
}

TEST(LogFollower, PassesTheIncompleteEndOfAnOldFile)
{
    Follower log;
    log.Append("torn");
    EXPECT_EQ(log.Next(), Entries{});
    log.Rename("qv7log", "qv7log.1");
    log.AppendStart("b");
    EXPECT_EQ(log.Next(), (Entries{"b", "!torn"}));
    EXPECT_EQ(log.Next(), Entries{});
}

TEST(LogFollower, NoticesATruncation)
{
    Follower log;
    log.AppendStart("a");
    log.AppendStart("b");
    log.Append("torn");
    EXPECT_EQ(log.Next(), (Entries{"a", "b"}));
    log.directory.Write("qv7log", "");
    EXPECT_EQ(log.Next(), (Entries{"!torn", "truncated"}));
    log.AppendStart("c");
    EXPECT_EQ(log.Next(), Entries{"c"});
}

TEST(LogFollower, NoticesATruncatedLogThatHasGrownLongerThanBefore)
{
    Follower log;
    log.AppendStart("a");
    EXPECT_EQ(log.Next(), Entries{"a"});
    log.directory.Write("qv7log", Follower::Record("other") + Follower::Record("further"));
    EXPECT_EQ(log.Next(), (Entries{"truncated", "other", "further"}));
}

TEST(LogFollower, ReportsATruncationAfterTheEntriesOfOlderFiles)
{
    Follower log;
    log.AppendStart("a", "qv7log.1");
    log.Append(Follower::Record("b") + "torn");
    EXPECT_EQ(log.Next(), (Entries{"a", "b"}));
    log.AppendStart("c", "qv7log.1");
    log.directory.Write("qv7log", Follower::Record("d"));
    EXPECT_EQ(log.Next(), (Entries{"c", "!torn", "truncated", "d"}));
    EXPECT_EQ(log.Next(), Entries{});
}

TEST(LogFollower, FollowsALogThatIsRemovedAndCreatedAgain)
{
    Follower log;
    log.AppendStart("a");
    EXPECT_EQ(log.Next(), Entries{"a"});
    log.AppendStart("b");
    unlink(log.path.c_str());
    EXPECT_EQ(log.Next(), Entries{"b"});
    EXPECT_EQ(log.Next(), Entries{});
    log.AppendStart("c");
    EXPECT_EQ(log.Next(), (Entries{"replaced", "c"}));
    EXPECT_EQ(log.Next(), Entries{});
}

TEST(LogFollower, FollowsALogThatIsReplacedByAnotherFile)
{
    Follower log;
    log.AppendStart("a");
    EXPECT_EQ(log.Next(), Entries{"a"});
    log.AppendStart("b");
    log.AppendStart("c", "other");
    log.Rename("other", "qv7log");
    EXPECT_EQ(log.Next(), (Entries{"b", "replaced", "c"}));
}

TEST(LogFollower, ReportsOldFilesThatItCannotRead)
{
    Follower log;
    std::filesystem::create_directory(log.directory / "qv7log.1");
    log.AppendStart("a");
    EXPECT_EQ(log.Next(), (Entries{"qv7log.1: Is a directory", "a"}));
    EXPECT_EQ(log.Next(), Entries{});
}

TEST(LogFollower, ReportsUnreadableFilesWhereTheirRecordsAreMissing)
{
    Follower log;
    const std::string utf16 = "2" + std::string(1, '\0') + "0" + std::string(1, '\0');
    log.AppendStart("a", "qv7log.5");
    std::filesystem::create_directory(log.path + ".4");
    std::filesystem::create_directory(log.path + ".3");
    log.AppendStart("b", "qv7log.2");
    log.Append(utf16, "qv7log.1");
    log.AppendStart("c");
    EXPECT_EQ(log.Next(), (Entries{"a", "qv7log.4: Is a directory", "qv7log.3: Is a directory", "b",
                                   "qv7log.1: is UTF-16 text; convert it to UTF-8 first", "c"}));
    EXPECT_EQ(log.Next(), Entries{});
}

TEST(LogFollower, ReportsAnUnreadableFileThatIsNewerThanAllOthersLast)
{
    Follower log;
    std::filesystem::create_directory(log.path + ".1");
    log.AppendStart("a", "qv7log.2");
    EXPECT_EQ(log.Next(), (Entries{"a", "qv7log.1: Is a directory"}));
    EXPECT_EQ(log.Next(), Entries{});
}

TEST(LogFollower, FailsIfTheLogIsNotARegularFile)
{
    Follower directory;
    std::filesystem::create_directory(directory.path);
    EXPECT_EQ(directory.Failure(), "Is a directory");
    Follower pipe;
    ASSERT_EQ(mkfifo(pipe.path.c_str(), 0600), 0);
    EXPECT_NE(pipe.Failure(), "");
}

TEST(LogFollower, ClosesItsFiles)
{
    const int before = NextDescriptor();
    {
        Follower log;
        for (int i = 0; i < 30; ++i) {
            log.AppendStart("a");
            EXPECT_EQ(log.Next().back(), "a");
            unlink(log.path.c_str());
        }
        log.Next();
        EXPECT_LE(NextDescriptor(), before + 3);
    }
    EXPECT_EQ(NextDescriptor(), before);
}

TEST(LogFollower, KeepsFewFilesOpen)
{
    const int before = NextDescriptor();
    Follower log;
    for (int i = 0; i < 50; ++i) {
        log.AppendStart("a");
        log.Next();
        log.Rename("qv7log", "moved-" + std::to_string(i));
    }
    EXPECT_LE(NextDescriptor(), before + 20);
}

// Every record of a log that is rotated again and again is passed exactly once, and those of each
// thread in their order.
TEST(LogFollower, PassesEachRecordOfTheLogLibraryOnce)
{
    constexpr int kThreads = 3;
    constexpr int kRecords = 3000;
    const TempDirectory directory;
    const std::string path = directory / "log";
    std::map<int, int> next;
    std::size_t wrong = 0;
    FollowSink sink;
    sink.on_file = [] {};
    sink.on_record = [&](const qv7log::Record& record, std::string_view) {
        int thread = 0;
        int number = 0;
        const bool is_ours =
            std::sscanf(record.text.c_str(), "thread %d record %d", &thread, &number) == 2;
        wrong += is_ours && next[thread]++ == number ? 0 : 1;
    };
    sink.on_unparsed = [&](const UnparsedEntry&) { ++wrong; };
    sink.on_change = [&](LogChange) { ++wrong; };
    LogFollower follower(path, sink);
    std::string error;
    EXPECT_TRUE(follower.Poll(error));
    ILog* const log = StartLog(path);
    ASSERT_NE(log, nullptr);
    std::atomic<int> running{kThreads};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int number = 0; number < kRecords; ++number) {
                Log(log, LOGLEVEL_ERROR, "thread %d record %d %s", thread, number,
                    std::string(static_cast<std::size_t>(number) % 300, '.').c_str());
                if (number % 50 == 0) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            }
            --running;
        });
    }
    while (running > 0) {
        EXPECT_TRUE(follower.Poll(error)) << error;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(follower.Poll(error)) << error;
    EXPECT_EQ(wrong, 0U);
    for (int thread = 0; thread < kThreads; ++thread) {
        EXPECT_EQ(next[thread], kRecords);
    }
    EXPECT_GT(OldFiles(path).size(), 50U);
}

// launchlist(1) states both rates.
TEST(NextPause, PollsALogThatGrowsTwentyTimesASecond)
{
    for (const Milliseconds pause : {0, 50, 400, 500}) {
        EXPECT_EQ(1000 / NextPause(pause, true), 20);
    }
}

TEST(NextPause, PollsALogThatDoesNotGrowTwiceASecond)
{
    std::vector<Milliseconds> pauses;
    Milliseconds pause = NextPause(0, true);
    for (int i = 0; i < 5; ++i) {
        pause = NextPause(pause, false);
        pauses.push_back(pause);
    }
    EXPECT_EQ(pauses, (std::vector<Milliseconds>{100, 200, 400, 500, 500}));
    EXPECT_EQ(1000 / pauses.back(), 2);
}

// Before the first call there was no pause.
TEST(NextPause, IsNeverShorterThanThatOfALogThatGrows)
{
    EXPECT_EQ(NextPause(0, false), NextPause(0, true));
}
