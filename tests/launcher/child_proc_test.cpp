#include "launcher/child_proc.h"

#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <system_error>

#include "logging/log.h"
#include "tests/support/fake_processes.h"
#include "tests/support/log_recorder.h"
#include "tests/support/wait_until.h"

ILog* logger = nullptr;

namespace {

std::atomic<bool> g_no_threads = false;

}  // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument)
{
    static const auto real =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return g_no_threads ? EAGAIN : real(thread, attributes, start, argument);
}

namespace {

using Arguments = std::vector<std::string>;
using Kills = std::vector<std::pair<pid_t, int>>;

FakeProcesses& Processes()
{
    return FakeProcesses::Instance();
}

// Ends every child before the supervisor is joined, so that no test waits for a child that the
// destructor did not kill.
struct EndChildrenAndDelete
{
    void operator()(ChildProc* child) const
    {
        Processes().EndAll();
        delete child;
    }
};

using OwnedChild = std::unique_ptr<ChildProc, EndChildrenAndDelete>;

// Destroys the object as the launcher does: only the destructor's signal ends the child.
void Destroy(OwnedChild& child)
{
    delete child.release();
}

class ChildProcTest : public testing::Test
{
protected:
    void SetUp() override
    {
        Processes().Reset();
        logger = &m_log;
    }

    OwnedChild Start(const char* item)
    {
        return OwnedChild(new ChildProc("app", JsonObject(item)));
    }

    // The arguments that the child passes to execv for an item with `members` besides "name" and
    // "program".
    Arguments ArgumentsOf(const std::string& members)
    {
        Processes().Reset();
        Processes().ScriptForks({0});
        const std::string item =
            R"({"name":"n","program":"/p")" + (members.empty() ? "" : "," + members) + "}";
        const OwnedChild child = Start(item.c_str());
        EXPECT_TRUE(WaitUntil([] { return Processes().forks().size() == 2; }));
        const std::vector<FakeProcesses::Exec> execs = Processes().execs();
        EXPECT_EQ(execs.size(), 1U);
        return execs.empty() ? Arguments{} : execs[0].arguments;
    }

    bool WaitForRecord(LOGLEVEL level, const std::string& text)
    {
        return WaitUntil([&] { return m_log.Has(level, text); });
    }

    LogRecorder m_log;
};

using Supervisor = ChildProcTest;
using Child = ChildProcTest;
using Destruction = ChildProcTest;
using Construction = ChildProcTest;

}  // namespace

TEST_F(Supervisor, ForksWaitsLogsAndRestarts)
{
    const auto child = Start(R"({"name":"sync","program":"/p"})");
    ASSERT_TRUE(WaitUntil([] { return Processes().forks().size() == 1; }));
    Processes().End(1001, 256);
    ASSERT_TRUE(WaitUntil([] { return Processes().forks().size() == 2; }));
    EXPECT_EQ(m_log.records(),
              (std::vector<Record>{
                  {LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork sync"},
                  {LOGLEVEL_ERROR, "[LAUNCHER  ] sync 1001 is killed. ret = 1001, status = 256"},
                  {LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork sync"},
              }));
}

TEST_F(Supervisor, LogsTheRawWaitStatus)
{
    const auto child = Start(R"({"name":"n","program":"/p"})");
    pid_t pid = 1001;
    for (const int wait_status : {0, 9, 134, 256, 65280}) {
        Processes().End(pid, wait_status);
        const std::string number = std::to_string(pid);
        EXPECT_TRUE(WaitForRecord(LOGLEVEL_ERROR, "[LAUNCHER  ] n " + number +
                                                      " is killed. ret = " + number +
                                                      ", status = " + std::to_string(wait_status)));
        ++pid;
    }
}

TEST_F(Supervisor, LogsTheResultOfWaitpidAndContinues)
{
    Processes().FailWait(1001);
    const auto child = Start(R"({"name":"n","program":"/p"})");
    EXPECT_TRUE(
        WaitForRecord(LOGLEVEL_ERROR, "[LAUNCHER  ] n 1001 is killed. ret = -1, status = 0"));
    EXPECT_TRUE(WaitUntil([] { return Processes().forks().size() == 2; }));
}

TEST_F(Supervisor, PausesAtLeast50MillisecondsBeforeARestart)
{
    for (pid_t pid = 1001; pid < 1006; ++pid) {
        Processes().End(pid, 0);
    }
    const auto child = Start(R"({"name":"n","program":"/p"})");
    ASSERT_TRUE(WaitUntil([] { return Processes().forks().size() == 6; }));
    const auto forks = Processes().forks();
    for (std::size_t i = 1; i < forks.size(); ++i) {
        EXPECT_GE(forks[i] - forks[i - 1], std::chrono::milliseconds(50));
    }
}

TEST_F(Supervisor, StopsPermanentlyWhenForkFails)
{
    Processes().ScriptForks({-1});
    const auto child = Start(R"({"name":"n","program":"/p"})");
    ASSERT_TRUE(WaitForRecord(LOGLEVEL_ERROR, "[LAUNCHER  ] Failed to fork n"));
    std::this_thread::sleep_for(std::chrono::milliseconds(120));
    EXPECT_EQ(Processes().forks().size(), 1U);
}

TEST_F(Supervisor, KeepsItsOwnCopyOfTheItem)
{
    auto document = std::make_unique<JsonObject>(R"({"0":{"name":"n","program":"/p"}})");
    Processes().ScriptForks({1001, 0});
    const OwnedChild child(new ChildProc("app", document->GetObject("0")));
    document.reset();
    Processes().End(1001, 0);
    ASSERT_TRUE(WaitUntil([] { return Processes().execs().size() == 1; }));
    EXPECT_EQ(Processes().execs()[0].path, "/p");
}

TEST_F(Supervisor, ForksEvenWithoutAProgram)
{
    const auto child = Start(R"({"name":"n"})");
    EXPECT_TRUE(WaitUntil([] { return Processes().forks().size() == 1; }));
}

TEST_F(Child, ExecutesTheProgramWithItsPathAsFirstArgument)
{
    Processes().ScriptForks({0});
    const auto child = Start(R"({"name":"n","program":"relative/p","args":{"0":"a"}})");
    ASSERT_TRUE(WaitUntil([] { return Processes().execs().size() == 1; }));
    EXPECT_EQ(Processes().execs()[0].path, "relative/p");
    EXPECT_EQ(Processes().execs()[0].arguments, Arguments{"relative/p"});
}

TEST_F(Child, ConvertsANumberOrBooleanToTheProgramText)
{
    const std::pair<const char*, const char*> cases[] = {
        {R"({"name":"n","program":42})", "42"},
        {R"({"name":"n","program":true})", "true"},
    };
    for (const auto& [item, path] : cases) {
        Processes().Reset();
        Processes().ScriptForks({0});
        const auto child = Start(item);
        ASSERT_TRUE(WaitUntil([] { return Processes().execs().size() == 1; }));
        EXPECT_EQ(Processes().execs()[0].path, path);
    }
}

TEST_F(Child, GetsTheNumberOfArgumentsInArgc)
{
    const struct
    {
        const char* members;
        Arguments arguments;
    } cases[] = {
        {R"("argc":2,"args":{"0":"--mode","1":"background"})", {"/p", "--mode", "background"}},
        {R"("args":{"0":"a"})", {"/p"}},
        {R"("argc":0,"args":{"0":"a"})", {"/p"}},
        {R"("argc":1,"args":{"0":"a","1":"b"})", {"/p", "a"}},
        {R"("argc":2,"args":{"0":"a"})", {"/p", "a", ""}},
        {R"("argc":2,"args":{"1":"b"})", {"/p", "", "b"}},
        {R"("argc":2)", {"/p", "", ""}},
        {R"("argc":1,"args":null)", {"/p", ""}},
        {R"("argc":0,"args":[1])", {"/p"}},
        {R"("argc":12,"args":{"10":"k","9":"j","11":"l"})",
         {"/p", "", "", "", "", "", "", "", "", "", "j", "k", "l"}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ArgumentsOf(c.members), c.arguments) << c.members;
    }
}

TEST_F(Child, ConvertsArgcTo64BitsAndCutsItTo32)
{
    const struct
    {
        const char* members;
        std::size_t count;
    } cases[] = {
        {R"("argc":1.9)", 2},         {R"("argc":true)", 2}, {R"("argc":false)", 1},
        {R"("argc":null)", 1},        {R"("argc":-0.5)", 1}, {R"("argc":4294967298)", 3},
        {R"("argc":-4294967295)", 2},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ArgumentsOf(c.members).size(), c.count) << c.members;
    }
}

TEST_F(Child, ConvertsEveryScalarArgumentToItsText)
{
    EXPECT_EQ(ArgumentsOf(R"("argc":6,"args":{"0":1,"1":-2,"2":1.5,"3":true,"4":false,"5":null})"),
              (Arguments{"/p", "1", "-2", "1.5", "true", "false", ""}));
    EXPECT_EQ(ArgumentsOf(R"("argc":2,"args":{"0":"a\u0000b","1":"\u00e9"})"),
              (Arguments{"/p", "a", "\xC3\xA9"}));
}

TEST_F(Child, GetsAnEmptyVectorForArgcMinusOne)
{
    EXPECT_EQ(ArgumentsOf(R"("argc":-1,"args":{"0":"a"})"), Arguments{});
}

TEST_F(Child, BecomesAnotherSupervisorWhenItCannotExecute)
{
    Processes().ScriptForks({0, 2001, 0});
    const auto child = Start(R"({"name":"n","program":"/p"})");
    ASSERT_TRUE(WaitUntil([] { return Processes().forks().size() == 2; }));
    Processes().End(2001, 0);
    ASSERT_TRUE(WaitUntil([] { return Processes().forks().size() == 4; }));
    EXPECT_EQ(Processes().execs().size(), 2U);
    EXPECT_EQ(m_log.records(),
              (std::vector<Record>{
                  {LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork n"},
                  {LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork n"},
                  {LOGLEVEL_ERROR, "[LAUNCHER  ] n 2001 is killed. ret = 2001, status = 0"},
                  {LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork n"},
                  {LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork n"},
              }));
    const auto forks = Processes().forks();
    EXPECT_GE(forks[1] - forks[0], std::chrono::milliseconds(50));
}

TEST_F(Child, FreesTheArgumentVectorsStackBeforeItContinues)
{
    // 25 vectors of 400 KB exceed the 8 MiB that a thread's stack has by default.
    Processes().ScriptForks(std::deque<pid_t>(25, 0));
    const auto child = Start(R"({"name":"n","program":"/p","argc":50000})");
    ASSERT_TRUE(WaitUntil([] { return Processes().forks().size() == 26; }));
    EXPECT_EQ(Processes().execs().back().arguments.size(), 50001U);
}

TEST_F(Child, StopsItsSupervisorWithoutAProgram)
{
    for (const char* item :
         {R"({"name":"n"})", R"({"name":"n","program":""})", R"({"name":"n","program":null})",
          R"({"name":"n","program":"\u0000x"})"}) {
        Processes().Reset();
        Processes().ScriptForks({0});
        const auto child = Start(item);
        EXPECT_TRUE(WaitForRecord(LOGLEVEL_ERROR, "[LAUNCHER  ] program path of n is empty"))
            << item;
        std::this_thread::sleep_for(std::chrono::milliseconds(70));
        EXPECT_EQ(Processes().forks().size(), 1U) << item;
        EXPECT_TRUE(Processes().execs().empty()) << item;
    }
}

TEST_F(Destruction, KillsTheChildAndWaitsForItsSupervisor)
{
    auto child = Start(R"({"name":"n","program":"/p"})");
    ASSERT_TRUE(WaitUntil([] { return Processes().awaited() == 1; }));
    const auto begin = std::chrono::steady_clock::now();
    Destroy(child);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
    EXPECT_EQ(Processes().kills(), (Kills{{1001, SIGKILL}}));
    EXPECT_EQ(Processes().forks().size(), 1U);
    EXPECT_TRUE(m_log.Has(LOGLEVEL_ERROR, "[LAUNCHER  ] n 1001 is killed. ret = 1001, status = 9"));
}

TEST_F(Destruction, SignalsEveryProcessAfterAFailedFork)
{
    Processes().ScriptForks({-1});
    auto child = Start(R"({"name":"n","program":"/p"})");
    ASSERT_TRUE(WaitForRecord(LOGLEVEL_ERROR, "[LAUNCHER  ] Failed to fork n"));
    Destroy(child);
    EXPECT_EQ(Processes().kills(), (Kills{{-1, SIGKILL}}));
}

TEST_F(Destruction, SignalsTheProcessGroupInAForkedChild)
{
    Processes().ScriptForks({0});
    auto child = Start(R"({"name":"n"})");
    ASSERT_TRUE(WaitForRecord(LOGLEVEL_ERROR, "[LAUNCHER  ] program path of n is empty"));
    Destroy(child);
    EXPECT_EQ(Processes().kills(), (Kills{{0, SIGKILL}}));
}

TEST_F(Destruction, BeforeTheForkSignalsTheProcessGroupAndWaitsForTheUnkilledChild)
{
    // Having checked the run flag, the supervisor waits until the destructor has signalled.
    std::atomic<bool> signalled = false;
    Processes().SetKillHook([&](pid_t) { signalled = true; });
    m_log.SetHook([&](const std::string& text) {
        if (text == "[LAUNCHER  ] Start to fork n") {
            WaitUntil([&] { return signalled.load(); });
        }
    });
    auto child = Start(R"({"name":"n","program":"/p"})");
    ASSERT_TRUE(WaitForRecord(LOGLEVEL_DEBUG, "[LAUNCHER  ] Start to fork n"));

    std::atomic<bool> destroyed = false;
    std::thread destroyer([&] {
        Destroy(child);
        destroyed = true;
    });
    EXPECT_TRUE(WaitUntil([] { return Processes().awaited() == 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(destroyed) << "the join waits for the child";
    EXPECT_EQ(Processes().kills(), (Kills{{0, SIGKILL}}));

    Processes().End(1001, 0);
    destroyer.join();
    EXPECT_EQ(Processes().forks().size(), 1U);
}

TEST_F(Destruction, SignalsAPidWhoseChildWasReaped)
{
    auto child = Start(R"({"name":"n","program":"/p"})");
    Processes().End(1001, 0);
    ASSERT_TRUE(
        WaitForRecord(LOGLEVEL_ERROR, "[LAUNCHER  ] n 1001 is killed. ret = 1001, status = 0"));
    Destroy(child);
    EXPECT_EQ(Processes().kills(), (Kills{{1001, SIGKILL}}));
}

TEST_F(Destruction, AfterStopSignalsAgain)
{
    auto child = Start(R"({"name":"n","program":"/p"})");
    ASSERT_TRUE(WaitUntil([] { return Processes().awaited() == 1; }));
    child->Stop();
    EXPECT_EQ(Processes().kills(), (Kills{{1001, SIGKILL}}));
    ASSERT_TRUE(
        WaitForRecord(LOGLEVEL_ERROR, "[LAUNCHER  ] n 1001 is killed. ret = 1001, status = 9"));
    Destroy(child);
    EXPECT_EQ(Processes().kills(), (Kills{{1001, SIGKILL}, {1001, SIGKILL}}));
    EXPECT_EQ(Processes().forks().size(), 1U);
}

TEST_F(Construction, ReportsTheThreadConstructorIfNoThreadCanBeCreated)
{
    g_no_threads = true;
    try {
        Start(R"({"name":"n","program":"/p"})");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::system_error& error) {
        const std::string reason = std::generic_category().message(EAGAIN);
        EXPECT_EQ(error.what(), "thread constructor failed: " + reason);
        EXPECT_EQ(error.code().value(), EAGAIN);
    }
    g_no_threads = false;
    EXPECT_TRUE(Processes().forks().empty());
    EXPECT_TRUE(Processes().kills().empty());
}

TEST_F(Construction, PropagatesNameConversionErrors)
{
    for (const char* item : {R"({"name":{}})", R"({"name":[1]})"}) {
        EXPECT_THROW(Start(item), std::exception) << item;
    }
    EXPECT_TRUE(Processes().forks().empty());
}

TEST_F(Construction, ConvertsAScalarNameToText)
{
    const struct
    {
        const char* item;
        const char* name;
    } cases[] = {
        {R"({"name":7,"program":"/p"})", "7"},
        {R"({"name":true,"program":"/p"})", "true"},
        {R"({"name":null,"program":"/p"})", ""},
        {R"({"program":"/p"})", ""},
    };
    for (const auto& c : cases) {
        Processes().Reset();
        const auto child = Start(c.item);
        EXPECT_TRUE(
            WaitForRecord(LOGLEVEL_DEBUG, std::string("[LAUNCHER  ] Start to fork ") + c.name))
            << c.item;
    }
}
