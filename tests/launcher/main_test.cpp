#include "launcher/main.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "logging/log.h"
#include "tests/support/fake_log_library.h"
#include "tests/support/fake_machine.h"
#include "tests/support/fake_processes.h"
#include "tests/support/fake_syslog.h"
#include "tests/support/log_recorder.h"
#include "tests/support/next_descriptor.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait_until.h"

int launcher_main(int argc, char** argv);

namespace {

std::vector<int> g_closed;

}  // namespace

// Records the closing of descriptors 0 to 2 instead of closing them.
extern "C" int close(int descriptor)
{
    static const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "close"));
    if (descriptor >= 0 && descriptor <= 2) {
        g_closed.push_back(descriptor);
        return 0;
    }
    return real(descriptor);
}

namespace {

using Events = std::vector<std::pair<int, std::string>>;
using Kills = std::vector<std::pair<pid_t, int>>;

FakeProcesses& Processes()
{
    return FakeProcesses::Instance();
}

// A thread that waits on the launcher's condition, as main does. The constructor returns once it
// waits.
class ConditionWaiter
{
public:
    ConditionWaiter()
    {
        while (!m_locked) {
            std::this_thread::yield();
        }
        // Available only once the thread waits.
        const std::lock_guard<std::mutex> lock(g_process_mutex);
    }
    ~ConditionWaiter() { m_thread.join(); }

    bool woken() const { return m_woken; }

private:
    void Wait()
    {
        std::unique_lock<std::mutex> lock(g_process_mutex);
        m_locked = true;
        g_process_condition.wait(lock);
        m_woken = true;
    }

    std::atomic<bool> m_locked = false;
    std::atomic<bool> m_woken = false;
    std::thread m_thread{[this] { Wait(); }};
};

class LauncherTest : public testing::Test
{
protected:
    void SetUp() override
    {
        Processes().Reset();
        g_closed.clear();
        g_system_events.clear();
        g_openlog_calls = 0;
        g_fake_log_library = {};
        g_fake_log_library.log = &m_log;
        g_fake_machine.user = FakeMachine::User{"u", m_directory.path()};
        logger = nullptr;
    }

    void TearDown() override
    {
        Processes().EndAll();
        g_child_map.clear();
        signal(SIGTERM, SIG_DFL);
    }

    static int Run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "launcher");
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        return launcher_main(static_cast<int>(arguments.size()), argv.data());
    }

    // Runs the launcher on the list `list`, which must make it end by itself.
    int RunList(const std::string& list)
    {
        logger = nullptr;
        return Run({"app", m_directory.Write("list.json", list)});
    }

    // Runs the launcher on the list `list` and stops it once `children` children run.
    // A list with children must end with an item without a name: its record shows that the loop
    // over the items no longer changes the map.
    int RunUntilStopped(const std::string& list, int children)
    {
        std::atomic<bool> ended = false;
        int status = -1;
        std::thread thread([&] {
            status = RunList(list);
            ended = true;
        });
        EXPECT_TRUE(WaitUntil([&] {
            return Processes().awaited() >= children &&
                   (children == 0 || m_log.Has(LOGLEVEL_ERROR, kNoName));
        }));
        // Repeated, because a notification is lost if main does not wait yet.
        EXPECT_TRUE(WaitUntil([&] {
            sigterm_handler(SIGTERM);
            return ended.load();
        }));
        thread.join();
        return status;
    }

    const std::string kNoName = "[LAUNCHER  ] There is an item has no name.";
    const std::string kParseError = "[LAUNCHER  ] Error while parsing saved json string.";

    TempDirectory m_directory;
    LogRecorder m_log;
};

using InitDaemonTest = LauncherTest;
using ReadDataTest = LauncherTest;
using CommandLine = LauncherTest;
using Launching = LauncherTest;
using SigtermHandler = LauncherTest;

}  // namespace

TEST_F(InitDaemonTest, ClosesTheStandardDescriptorsAndInstallsTheHandler)
{
    InitDaemon();
    EXPECT_EQ(g_closed, (std::vector<int>{0, 1, 2}));
    struct sigaction action;
    ASSERT_EQ(sigaction(SIGTERM, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, sigterm_handler);
}

TEST_F(ReadDataTest, ReadsAFileOfAnySizeCompletely)
{
    for (const std::size_t size : {1U, 127U, 128U, 129U, 256U, 100'000U}) {
        const std::string content(size, 'x');
        std::string data = "before";
        EXPECT_TRUE(ReadData(m_directory.Write("f", content), data)) << size;
        EXPECT_EQ(data, content) << size;
    }
}

TEST_F(ReadDataTest, ClosesTheFileThatTheChildrenWouldInherit)
{
    const int before = NextDescriptor();
    std::string data;
    EXPECT_TRUE(ReadData(m_directory.Write("f", "text"), data));
    EXPECT_FALSE(ReadData(m_directory.Write("empty", ""), data));
    EXPECT_EQ(NextDescriptor(), before);
}

TEST_F(ReadDataTest, TruncatesTheTextAtItsFirstNul)
{
    std::string data = "before";
    EXPECT_TRUE(ReadData(m_directory.Write("f", std::string("ab\0cd", 5)), data));
    EXPECT_EQ(data, "ab");
    EXPECT_TRUE(ReadData(m_directory.Write("f", std::string("\0cd", 3)), data));
    EXPECT_EQ(data, "") << "something was read";
}

TEST_F(ReadDataTest, LeavesTheDataUnchangedIfNothingCanBeRead)
{
    logger = &m_log;
    const std::string missing = m_directory.path() + "/none";
    const std::string empty = m_directory.Write("empty", "");
    std::string data = "before";
    EXPECT_FALSE(ReadData(missing, data));
    EXPECT_FALSE(ReadData(empty, data));
    EXPECT_EQ(data, "before");
    EXPECT_EQ(m_log.records(), (std::vector<Record>{
                                   {LOGLEVEL_ERROR, "[LAUNCHER  ] Failed to open file " + missing},
                                   {LOGLEVEL_ERROR, "[LAUNCHER  ] Size of read " + empty + " is 0"},
                               }));
}

TEST_F(CommandLine, NeedsTwoArguments)
{
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, std::vector<std::string>{"app"}}) {
        g_system_events.clear();
        EXPECT_EQ(Run(arguments), 0);
        EXPECT_EQ(g_system_events, (Events{{3, "Morvel Launcher : wrong parameters."}}));
    }
    EXPECT_EQ(launcher_main(0, nullptr), 0);
    EXPECT_TRUE(g_fake_log_library.init_paths.empty());
    EXPECT_EQ(g_closed.size(), 9U) << "the descriptors are closed before the arguments are checked";
    EXPECT_EQ(g_openlog_calls, 0);
}

TEST_F(CommandLine, IgnoresFurtherArguments)
{
    const std::string path = m_directory.Write("list.json", "[]");
    EXPECT_EQ(Run({"app", path, "more", "still more"}), 0);
    EXPECT_EQ(m_log.records(), (std::vector<Record>{{LOGLEVEL_ERROR, kParseError}}));
}

TEST_F(CommandLine, PassesTheApplicationNameToTheLogSetUp)
{
    g_fake_log_library.init_result = 1;
    EXPECT_EQ(Run({"component", m_directory.Write("list.json", "[]")}), 0);
    EXPECT_EQ(g_system_events,
              (Events{{3, "Morvel Launcher for component : Failed to initialize logger"}}));
    EXPECT_EQ(g_openlog_calls, 0);
}

TEST_F(CommandLine, EndsSilentlyOnAnUnreadableOrEmptyList)
{
    for (const std::string& path : {m_directory.path() + "/none", m_directory.Write("empty", "")}) {
        EXPECT_EQ(Run({"app", path}), 0) << path;
    }
    EXPECT_TRUE(m_log.records().empty());
    EXPECT_TRUE(g_system_events.empty());
    EXPECT_TRUE(g_fake_log_library.init_paths.empty());
}

TEST_F(CommandLine, LogsTheReadingOfTheListIfThereIsALog)
{
    // Unlike in the program itself, which sets up its log after reading the list.
    logger = &m_log;
    const std::string missing = m_directory.path() + "/none";
    const std::string empty = m_directory.Write("empty", "");
    Run({"app", missing});
    Run({"app", empty});
    EXPECT_EQ(m_log.records(),
              (std::vector<Record>{
                  {LOGLEVEL_ERROR, "[LAUNCHER  ] Read data from " + missing},
                  {LOGLEVEL_ERROR, "[LAUNCHER  ] Failed to open file " + missing},
                  {LOGLEVEL_ERROR, "[LAUNCHER  ] Failed to read data from " + missing},
                  {LOGLEVEL_ERROR, "[LAUNCHER  ] Read data from " + empty},
                  {LOGLEVEL_ERROR, "[LAUNCHER  ] Size of read " + empty + " is 0"},
                  {LOGLEVEL_ERROR, "[LAUNCHER  ] Failed to read data from " + empty},
              }));
}

TEST_F(Launching, StartsEveryNamedItemUpToTheFirstGap)
{
    const int status = RunUntilStopped(R"({
        "0": {"name": "sync-agent", "program": "/s", "argc": 1, "args": {"0": "a"}},
        "1": {"name": "indexer", "program": "/i"},
        "2": {"program": "/orphan"},
        "4": {"name": "late", "program": "/late"},
        "x": {"name": "other", "program": "/other"}})",
                                       2);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(Processes().forks().size(), 2U);
    EXPECT_TRUE(m_log.Has(LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork sync-agent"));
    EXPECT_TRUE(m_log.Has(LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork indexer"));
    EXPECT_TRUE(m_log.Has(LOGLEVEL_ERROR, "[LAUNCHER  ] There is an item has no name."));
    EXPECT_EQ(m_log.records().size(), 5U) << "with the two ends";
}

TEST_F(Launching, AcceptsNoOtherSpellingOfTheNumbers)
{
    EXPECT_EQ(RunUntilStopped(R"({"00":{"name":"a"},"+0":{"name":"b"},"1":{"name":"c"}})", 0), 1);
    EXPECT_TRUE(m_log.records().empty());
}

// The argument vector is on the supervisor's stack, whose size the program sets on Linux.
TEST_F(Launching, StartsAProgramWithFiftyThousandArguments)
{
    Processes().ScriptForks({0});
    RunUntilStopped(R"({"0":{"name":"a","program":"/p","argc":50000},"1":{}})", 1);
    const std::vector<FakeProcesses::Exec> execs = Processes().execs();
    ASSERT_EQ(execs.size(), 1U);
    EXPECT_EQ(execs[0].arguments.size(), 50'001U);
}

TEST_F(Launching, OfAnEmptyListWaitsForTheStop)
{
    for (const char* list : {"null", "{}", R"({"a":1})", "{} trailing text"}) {
        EXPECT_EQ(RunUntilStopped(list, 0), 1) << list;
    }
    EXPECT_TRUE(m_log.records().empty());
}

TEST_F(Launching, SkipsItemsWithoutName)
{
    EXPECT_EQ(RunUntilStopped(R"({"0":null,"1":{},"2":{"name":"n","program":"/p"},"3":{}})", 1), 1);
    const std::vector<Record> records = m_log.records();
    EXPECT_EQ(std::count(records.begin(), records.end(), Record(LOGLEVEL_ERROR, kNoName)), 3);
    EXPECT_TRUE(m_log.Has(LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork n"));
}

TEST_F(Launching, TreatsANullNameAsTheEmptyName)
{
    EXPECT_EQ(RunUntilStopped(R"({"0":{"name":null,"program":"/p"},"1":{}})", 1), 1);
    EXPECT_TRUE(m_log.Has(LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork "));
}

TEST_F(Launching, EndsTheLauncherOnAnInvalidList)
{
    for (const char* list :
         {"not json", "[]", "\"text\"", "5", "true", "{", R"({"0":[]})", R"({"0":"text"})",
          R"({"0":5})", R"({"0":false})", R"({"0":{"name":{}}})", R"({"0":{"name":[]}})"}) {
        LogRecorder log;
        g_fake_log_library.log = &log;
        EXPECT_EQ(RunList(list), 0) << list;
        EXPECT_EQ(log.records(), (std::vector<Record>{{LOGLEVEL_ERROR, kParseError}})) << list;
    }
    EXPECT_TRUE(Processes().forks().empty());
}

TEST_F(Launching, EndsOnAListThatBeginsWithANul)
{
    EXPECT_EQ(RunList(std::string("\0{}", 3)), 0);
    EXPECT_EQ(m_log.records(), (std::vector<Record>{{LOGLEVEL_ERROR, kParseError}}));
}

TEST_F(Launching, EndsOnAListThatIsNestedTooDeeply)
{
    EXPECT_EQ(RunList(std::string(5000, '[')), 0);
    EXPECT_EQ(m_log.records(), (std::vector<Record>{{LOGLEVEL_ERROR, kParseError}}));
}

TEST_F(Launching, KeepsTheChildrenStartedBeforeItFailed)
{
    EXPECT_EQ(RunList(R"({"0":{"name":"n","program":"/p"},"1":[]})"), 0);
    EXPECT_EQ(g_child_map.size(), 1U);
    EXPECT_EQ(g_child_map.count("n"), 1U);
    EXPECT_TRUE(Processes().kills().empty());
}

TEST_F(Launching, KillsTheEarlierOfTwoItemsWithTheSameNameBeforeItContinues)
{
    // The item without a name delays the loop until item "0" has forked.
    m_log.SetHook([&](const std::string& text) {
        if (text == kNoName) {
            EXPECT_TRUE(WaitUntil([] { return Processes().awaited() == 1; }));
        }
    });
    EXPECT_EQ(RunList(R"({"0":{"name":"a","program":"/first"},"1":{},
                          "2":{"name":"a","program":"/second"},"3":[]})"),
              0);
    EXPECT_EQ(g_child_map.size(), 1U);
    EXPECT_EQ(Processes().kills(), (Kills{{1001, SIGKILL}}));
    EXPECT_TRUE(m_log.Has(LOGLEVEL_ERROR, "[LAUNCHER  ] a 1001 is killed. ret = 1001, status = 9"));
    EXPECT_EQ(m_log.records().back().second, kParseError) << "joined before the loop continued";
}

TEST_F(Launching, SignalsTheProcessGroupForAnEarlierItemThatHasNotForked)
{
    // Both supervisors wait before their forks until the earlier item is being destroyed.
    m_log.SetHook([](const std::string& text) {
        if (text == "[LAUNCHER  ] Start to fork a") {
            EXPECT_TRUE(WaitUntil([] { return !Processes().kills().empty(); }));
        }
    });
    // Otherwise nothing ends the earlier item's child, for which its destructor waits.
    Processes().EndAll();
    EXPECT_EQ(RunList(R"({"0":{"name":"a","program":"/first"},
                          "1":{"name":"a","program":"/second"},"2":[]})"),
              0);
    EXPECT_EQ(Processes().kills(), (Kills{{0, SIGKILL}}));
    EXPECT_EQ(g_child_map.size(), 1U);
}

TEST_F(SigtermHandler, KillsEveryChildAndWakesMain)
{
    EXPECT_EQ(RunUntilStopped(R"({"0":{"name":"a","program":"/a"},"1":{"name":"b","program":"/b"},
                                  "2":{"name":"c","program":"/c"},"3":{}})",
                              3),
              1);
    EXPECT_TRUE(g_child_map.empty());
    EXPECT_EQ(Processes().kills().size(), 3U);
    int ends = 0;
    for (const Record& record : m_log.records()) {
        ends += record.second.find("is killed. ret = ") != std::string::npos &&
                record.second.find("status = 9") != std::string::npos;
    }
    EXPECT_EQ(ends, 3);
}

TEST_F(SigtermHandler, DoesNothingForAnyOtherSignal)
{
    g_child_map["n"] = std::make_shared<ChildProc>("app", JsonObject(R"({"name":"n"})"));
    ConditionWaiter waiter;
    for (const int signal : {0, SIGINT, SIGHUP, SIGKILL}) {
        sigterm_handler(signal);
    }
    EXPECT_EQ(g_child_map.size(), 1U);
    EXPECT_TRUE(Processes().kills().empty());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(waiter.woken()) << "no thread was notified";
    Processes().EndAll();
    sigterm_handler(SIGTERM);
    EXPECT_TRUE(WaitUntil([&] { return waiter.woken(); }));
}

TEST_F(SigtermHandler, DoesNotLockTheMutex)
{
    const std::lock_guard<std::mutex> lock(g_process_mutex);
    std::atomic<bool> returned = false;
    std::thread thread([&] {
        sigterm_handler(SIGTERM);
        returned = true;
    });
    EXPECT_TRUE(WaitUntil([&] { return returned.load(); }));
    thread.join();
}

TEST_F(SigtermHandler, IsNotTheOnlyWakeUpThatMainTreatsAsAStop)
{
    std::atomic<bool> ended = false;
    int status = -1;
    std::thread thread([&] {
        status = RunList(R"({"0":{"name":"n","program":"/p"}})");
        ended = true;
    });
    EXPECT_TRUE(WaitUntil([&] {
        g_process_condition.notify_all();
        return ended.load();
    }));
    thread.join();
    EXPECT_EQ(status, 1);
    EXPECT_EQ(g_child_map.size(), 1U);
}

TEST_F(SigtermHandler, NotifiesWithAnEmptyMap)
{
    EXPECT_EQ(RunUntilStopped("null", 0), 1);
    EXPECT_TRUE(Processes().kills().empty());
}
