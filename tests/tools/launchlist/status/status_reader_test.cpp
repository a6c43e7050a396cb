#include "tools/launchlist/status/status_reader.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>

#include <fstream>

#include "logging/log_path.h"
#include "tests/support/temp_directory.h"
#include "tests/tools/launchlist/status/fake_processes.h"

using namespace launchlist;

namespace {

constexpr pid_t kLauncher = 100;

// "a running 7; b unknown": the names, states and processes of the items.
std::string Text(const LauncherStatus& launcher)
{
    static const char* const kNames[kItemStates] = {"running",   "starting", "between",  "failing",
                                                    "abandoned", "never",    "replaced", "unknown"};
    std::string text;
    for (const ItemStatus& item : launcher.items) {
        text += (text.empty() ? "" : "; ") + item.name.value_or("-") + " " +
                kNames[static_cast<std::size_t>(item.state)] +
                (item.process ? " " + std::to_string(item.process->id) : "");
    }
    return text;
}

class StatusReaderTest : public testing::Test
{
protected:
    StatusReaderTest()
    {
        m_bundle = m_directory.path() + "/Some.app/Contents";
        m_profile = m_directory.Write("Some.app/Contents/Frameworks/qv7api.ini",
                                      "[SDK]\nNAME=Kestrane-Status-Test\n");
        m_program = m_bundle + "/MacOS/launcher";
    }

    // A launcher with a list of these items, each of which is a program and its arguments. Its name
    // is the last of the words.
    void Launch(const std::vector<std::string>& items, pid_t id = kLauncher,
                const std::string& list = "list.json")
    {
        std::string text;
        for (std::size_t i = 0; i < items.size(); ++i) {
            text += (i > 0 ? ",\n" : "") + std::string("\"") + std::to_string(i) +
                    "\": " + ItemText(items[i]);
        }
        const std::string path = m_directory.Write(list, "{" + text + "}");
        FakeProcess& launcher = m_processes.Add(id, 1, m_program + " app " + path);
        // Not before the list.
        launcher.process.start = m_processes.now + 2000;
        m_processes.now += 10000;
    }

    static std::string ItemText(const std::string& words)
    {
        if (words[0] == '{') {
            return words;
        }
        std::string arguments;
        std::string name = words;
        int count = 0;
        for (std::size_t at = words.find(' '); at != std::string::npos; ++count) {
            const std::size_t end = words.find(' ', at + 1);
            name = words.substr(at + 1, end - at - 1);
            arguments +=
                (count > 0 ? ", \"" : "\"") + std::to_string(count) + "\": \"" + name + "\"";
            at = end;
        }
        return R"({"name": ")" + name + R"(", "program": ")" + words.substr(0, words.find(' ')) +
               R"(", "argc": )" + std::to_string(count) + R"(, "args": {)" + arguments + "}}";
    }

    Status Read() { return m_reader.Read(m_processes.now); }

    LauncherStatus ReadOne()
    {
        const Status status = Read();
        EXPECT_EQ(status.launchers.size(), 1U);
        return status.launchers.empty() ? LauncherStatus() : status.launchers.front();
    }

    const TempDirectory m_directory;
    std::string m_bundle;
    std::string m_profile;
    std::string m_program;
    FakeProcesses m_processes;
    StatusReader m_reader{m_processes, std::nullopt};
};

}  // namespace

TEST_F(StatusReaderTest, FindsNoLauncher)
{
    m_processes.Add(7, 1, "/bin/sh a b");
    const Status status = Read();
    EXPECT_EQ(status.error, "");
    EXPECT_TRUE(status.launchers.empty());
    EXPECT_TRUE(status.leftovers.empty());
}

TEST_F(StatusReaderTest, ReportsThatProcessesCannotBeListed)
{
    m_processes.list_error = "no /proc";
    EXPECT_EQ(Read().error, "no /proc");
}

TEST_F(StatusReaderTest, MatchesChildrenToItems)
{
    Launch({"/a x", "/a y"});
    m_processes.Add(7, kLauncher, "/a y");
    m_processes.Add(8, kLauncher, "/a x");
    m_processes.Add(9, 8, "/a x");
    const LauncherStatus launcher = ReadOne();
    EXPECT_EQ(Text(launcher), "x running 8; y running 7");
    EXPECT_EQ(launcher.running, 2U);
    EXPECT_EQ(launcher.expected, 2U);
    EXPECT_EQ(launcher.application, "app");
    EXPECT_EQ(launcher.list, m_directory / "list.json");
    EXPECT_EQ(launcher.process.id, kLauncher);
    EXPECT_FALSE(launcher.list_may_have_changed);
    EXPECT_TRUE(launcher.others.empty());
    EXPECT_NE(launcher.log.find("/Library/Logs/Kestrane-Status-Test/qv7log"), std::string::npos);
}

TEST_F(StatusReaderTest, RecognizesOnlyTheLauncherOfABundle)
{
    Launch({"/a x"});
    // A helper that is called launcher, and one with the launcher's command line.
    m_processes.Add(20, 1, "/other/Contents/MacOS/launcher app list");
    m_processes.Add(21, 1, "/usr/bin/launcher app list");
    m_processes.Add(22, 1, "/bin/sh").command_line = m_processes.Get(kLauncher).command_line;
    EXPECT_EQ(Read().launchers.size(), 1U);
    // Too few arguments: it ends immediately.
    m_processes.Add(23, 1, m_program + " app");
    EXPECT_EQ(Read().launchers.size(), 1U);
    m_processes.Add(24, 1, m_program + " app list more");
    EXPECT_EQ(Read().launchers.size(), 2U);
}

TEST_F(StatusReaderTest, IgnoresLaunchersOfOtherUsers)
{
    Launch({"/a x"});
    m_processes.Get(kLauncher).user = getuid() + 1;
    EXPECT_TRUE(Read().launchers.empty());
    m_processes.Get(kLauncher).user.reset();
    EXPECT_TRUE(Read().launchers.empty());
}

TEST_F(StatusReaderTest, RecognizesALauncherWhoseFileWasReplacedOrRemoved)
{
    Launch({"/a x"});
    m_processes.Get(kLauncher).executable.is_deleted = true;
    EXPECT_TRUE(ReadOne().is_deleted);
    const std::string removed = "/gone/Kestrane.app/Contents/MacOS/launcher";
    m_processes.Get(kLauncher).executable.path = removed;
    EXPECT_EQ(ReadOne().executable, removed);
    m_processes.Get(kLauncher).executable.path = "/gone/Other.app/Contents/MacOS/launcher";
    EXPECT_TRUE(Read().launchers.empty());
}

TEST_F(StatusReaderTest, NamesProcessesThatItMayNotExamine)
{
    Launch({"/a x"});
    Executable& executable = m_processes.Get(kLauncher).executable;
    executable.path.clear();
    executable.is_denied = true;
    EXPECT_EQ(Read().unexamined, std::vector<pid_t>{kLauncher});
    m_processes.Get(kLauncher).user = getuid() + 1;
    EXPECT_TRUE(Read().unexamined.empty());
    m_processes.Get(kLauncher).user = getuid();
    m_processes.Get(kLauncher).command_line = CommandLine("/bin/sh app list");
    EXPECT_TRUE(Read().unexamined.empty());
}

TEST_F(StatusReaderTest, ResolvesTheListInTheLaunchersDirectory)
{
    Launch({"/a x"});
    m_processes.Get(kLauncher).command_line = CommandLine(m_program + " app ./list.json");
    EXPECT_EQ(ReadOne().list, "./list.json");
    m_processes.Get(kLauncher).directory = m_directory.path();
    EXPECT_EQ(ReadOne().list, m_directory / "list.json");
    EXPECT_EQ(ReadOne().items.size(), 1U);
}

TEST_F(StatusReaderTest, ReadsOnlyAboutTheLaunchersOfAList)
{
    Launch({"/a x"});
    Launch({"/a y"}, 200, "other.json");
    EXPECT_EQ(Read().launchers.size(), 2U);
    StatusReader one(m_processes, m_directory / "other.json");
    const Status status = one.Read(m_processes.now);
    ASSERT_EQ(status.launchers.size(), 1U);
    EXPECT_EQ(status.launchers[0].process.id, 200);
    StatusReader none(m_processes, m_directory / "third.json");
    EXPECT_TRUE(none.Read(m_processes.now).launchers.empty());
    ASSERT_EQ(symlink((m_directory / "other.json").c_str(), (m_directory / "link.json").c_str()),
              0);
    StatusReader linked(m_processes, m_directory / "link.json");
    EXPECT_EQ(linked.Read(m_processes.now).launchers.size(), 1U);
}

TEST_F(StatusReaderTest, SaysWhyTheListCannotBeUsed)
{
    Launch({"/a x"});
    m_processes.Add(7, kLauncher, "/a x");
    m_directory.Write("list.json", "[]");
    LauncherStatus launcher = ReadOne();
    EXPECT_EQ(launcher.list_error, "the launcher would reject it");
    EXPECT_EQ(launcher.others.size(), 1U);
    unlink(launcher.list.c_str());
    EXPECT_EQ(ReadOne().list_error, "No such file or directory");
    ASSERT_EQ(mkdir(launcher.list.c_str(), 0700), 0);
    EXPECT_EQ(ReadOne().list_error, "it is not a regular file");
}

TEST_F(StatusReaderTest, NoticesThatTheListMayHaveChanged)
{
    Launch({"/a x"});
    m_processes.Get(kLauncher).process.start -= 3600000;
    EXPECT_TRUE(ReadOne().list_may_have_changed);
}

TEST_F(StatusReaderTest, KnowsChildrenThatDoNotExecuteTheirProgram)
{
    Launch({"/missing x", "/a y"});
    m_processes.Add(7, kLauncher, "/a y");
    m_processes.Fork(30, kLauncher);
    LauncherStatus launcher = ReadOne();
    EXPECT_EQ(Text(launcher), "x starting; y running 7");
    m_processes.Fork(31, 30);
    launcher = ReadOne();
    EXPECT_EQ(Text(launcher), "x failing; y running 7");
    EXPECT_EQ(launcher.items[0].supervisors, 1U);
    ASSERT_EQ(launcher.supervisors.size(), 2U);
    EXPECT_EQ(launcher.supervisors[1].process.parent, 30);
    EXPECT_EQ(launcher.supervisors[1].item, 0);
    EXPECT_EQ(launcher.running, 1U);
}

TEST_F(StatusReaderTest, KnowsAForkedChildWithoutTheSystemsHelp)
{
    Launch({"/missing x"});
    m_processes.Fork(30, kLauncher).process.has_executed = true;
    const Status status = Read();
    ASSERT_EQ(status.launchers.size(), 1U);
    EXPECT_EQ(Text(status.launchers[0]), "x starting");
}

TEST_F(StatusReaderTest, DoesNotGuessWhichItemFails)
{
    Launch({"/missing x", "/missing y", "/a z"});
    m_processes.Fork(30, kLauncher);
    m_processes.Fork(31, 30);
    m_processes.Add(7, kLauncher, "/a z");
    LauncherStatus launcher = ReadOne();
    EXPECT_EQ(Text(launcher), "x unknown; y unknown; z running 7");
    EXPECT_FALSE(launcher.supervisors[0].item);
    m_processes.Fork(40, kLauncher);
    EXPECT_EQ(Text(ReadOne()), "x unknown; y unknown; z running 7")
        << "one of them may be starting";
    m_processes.Fork(41, 40);
    launcher = ReadOne();
    EXPECT_EQ(Text(launcher), "x failing; y failing; z running 7");
    EXPECT_FALSE(launcher.supervisors[0].item);
}

TEST_F(StatusReaderTest, FindsAProgramThatAFurtherSupervisorStarted)
{
    Launch({"/late x"});
    m_processes.Fork(30, kLauncher);
    m_processes.Fork(31, 30);
    m_processes.Add(7, 31, "/late x");
    const LauncherStatus launcher = ReadOne();
    EXPECT_EQ(Text(launcher), "x running 7");
    EXPECT_TRUE(launcher.items[0].has_further_supervisor);
    EXPECT_EQ(launcher.items[0].supervisors, 2U);
}

TEST_F(StatusReaderTest, ReportsItemsThatAreNeverStartedOrReplaced)
{
    Launch({R"({"program": "/a"})", "/a x", "/b x"});
    m_processes.Add(7, kLauncher, "/b x");
    const LauncherStatus launcher = ReadOne();
    EXPECT_EQ(Text(launcher), "- never; x replaced; x running 7");
    EXPECT_EQ(launcher.running, 1U);
    EXPECT_EQ(launcher.expected, 2U);
}

TEST_F(StatusReaderTest, CountsItemsThatCannotBeToldApart)
{
    Launch({R"({"name": "x", "program": "/a"})", R"({"name": "y", "program": "/a"})"});
    m_processes.Add(7, kLauncher, "/a");
    LauncherStatus launcher = ReadOne();
    EXPECT_EQ(Text(launcher), "x unknown; y unknown");
    EXPECT_EQ(launcher.running, 1U);
    m_processes.Add(8, kLauncher, "/a");
    launcher = ReadOne();
    EXPECT_EQ(Text(launcher), "x running 7; y running 8");
    EXPECT_EQ(launcher.running, 2U);
    ASSERT_EQ(launcher.groups.size(), 1U);
    EXPECT_EQ(launcher.groups[0].items, (std::vector<int>{0, 1}));
    EXPECT_EQ(launcher.items[1].group, 0U);
}

TEST_F(StatusReaderTest, NamesChildrenThatMatchNoItem)
{
    Launch({"/a x"});
    m_processes.Add(7, kLauncher, "/b z");
    const LauncherStatus launcher = ReadOne();
    ASSERT_EQ(launcher.others.size(), 1U);
    EXPECT_EQ(launcher.others[0].command, "/b z");
    EXPECT_EQ(Text(launcher), "x unknown");
    EXPECT_NE(launcher.items[0].reason.find("matches no item"), std::string::npos);
}

TEST_F(StatusReaderTest, FindsAnItemByItsProgramFile)
{
    const std::string program = m_directory.Write("program", "");
    ASSERT_EQ(symlink(program.c_str(), (m_directory / "link").c_str()), 0);
    Launch({m_directory / "link" + " x"});
    FakeProcess& child = m_processes.Add(7, kLauncher, "a: busy");
    child.executable.path = program;
    const LauncherStatus launcher = ReadOne();
    EXPECT_EQ(Text(launcher), "x running 7");
    EXPECT_EQ(launcher.items[0].matched_by, MatchedBy::kExecutable);
}

TEST_F(StatusReaderTest, IgnoresProcessesThatHaveEnded)
{
    Launch({"/a x"});
    m_processes.Add(7, kLauncher, "/a x").process.is_zombie = true;
    EXPECT_EQ(Text(ReadOne()), "x unknown");
    m_processes.Add(8, kLauncher, "/a x");
    m_processes.on_list = [this] { m_processes.Remove(8); };
    EXPECT_EQ(Text(ReadOne()), "x unknown");
}

TEST_F(StatusReaderTest, StartsAgainIfALauncherEndsWhileItIsExamined)
{
    Launch({"/a x"});
    Launch({"/a y"}, 200, "other.json");
    m_processes.on_directory = [this] {
        if (m_processes.lists == 1) {
            m_processes.Remove(kLauncher);
        }
    };
    const Status status = Read();
    EXPECT_EQ(m_processes.lists, 2);
    ASSERT_EQ(status.launchers.size(), 1U);
    EXPECT_EQ(status.launchers[0].process.id, 200);
}

TEST_F(StatusReaderTest, OmitsLaunchersThatKeepEnding)
{
    Launch({"/a x"});
    m_processes.on_directory = [this] {
        m_processes.Remove(kLauncher + m_processes.lists - 1);
        Launch({"/a x"}, kLauncher + m_processes.lists);
    };
    EXPECT_TRUE(Read().launchers.empty());
    EXPECT_EQ(m_processes.lists, 3);
}

TEST_F(StatusReaderTest, TreatsAProcessThatGotTheParentsIdAsNoParent)
{
    m_processes.Add(7, kLauncher, "/a x");
    Launch({"/a x"});  // Younger than the process, whose parent had its id before.
    EXPECT_EQ(Text(ReadOne()), "x unknown");
}

TEST_F(StatusReaderTest, MeasuresProcessorTime)
{
    Launch({"/a x"});
    FakeProcess& child = m_processes.Add(7, kLauncher, "/a x");
    child.process.start = m_processes.now - 10000;
    child.process.cpu = 2500;
    EXPECT_DOUBLE_EQ(*ReadOne().items[0].process->cpu_percent, 25);
    m_processes.now += 1000;
    m_processes.Get(7).process.cpu += 500;
    EXPECT_DOUBLE_EQ(*ReadOne().items[0].process->cpu_percent, 50);
}

TEST_F(StatusReaderTest, FindsHelpersWhoseLauncherHasEnded)
{
    Launch({"/a x"});
    m_processes.Add(7, kLauncher, "/a x").input = GetLogPath();
    m_processes.Add(8, 1, "/a x").input = GetLogPath() + ".2";
    m_processes.Add(9, 8, "/bin/sh").input = GetLogPath();  // Its parent started it.
    m_processes.Add(10, 1, "/other").input = GetLogPath();
    m_processes.Add(11, 1, "/a x");
    m_processes.Add(12, 1, "/a x").user = getuid() + 1;
    m_processes.Add(13, 1, "/other").input = GetLogPath() + ".old";
    Status status = Read();
    ASSERT_EQ(status.leftovers.size(), 3U);
    EXPECT_EQ(status.leftovers[0].process.id, 8);
    EXPECT_EQ(status.leftovers[0].kind, LeftoverKind::kHelper);
    EXPECT_EQ(status.leftovers[0].names, std::vector<std::string>{"x"});
    EXPECT_EQ(status.leftovers[1].process.id, 10);
    EXPECT_EQ(status.leftovers[1].kind, LeftoverKind::kHasLog);
    EXPECT_EQ(status.leftovers[1].command, "/other");
    EXPECT_EQ(status.leftovers[2].process.id, 11);
    EXPECT_EQ(status.leftovers[2].kind, LeftoverKind::kSameCommand);

    StatusReader one(m_processes, m_directory / "list.json");
    m_processes.Remove(kLauncher);
    status = one.Read(m_processes.now);
    EXPECT_TRUE(status.launchers.empty());
    ASSERT_EQ(status.leftovers.size(), 3U) << "only those of the list";
    EXPECT_EQ(status.leftovers[0].process.id, 7);
}

TEST_F(StatusReaderTest, FindsSupervisorsWhoseLauncherHasEnded)
{
    Launch({"/late x"});
    m_processes.Fork(30, kLauncher);
    m_processes.Fork(31, 30);
    m_processes.Add(7, 31, "/late x");
    m_processes.Remove(kLauncher);
    m_processes.Get(30).process.parent = 1;
    const Status status = Read();
    EXPECT_TRUE(status.launchers.empty());
    ASSERT_EQ(status.leftovers.size(), 3U);
    EXPECT_EQ(status.leftovers[0].kind, LeftoverKind::kSupervisor);
    EXPECT_EQ(status.leftovers[0].list, m_directory / "list.json");
    EXPECT_EQ(status.leftovers[1].process.id, 31);
    EXPECT_EQ(status.leftovers[2].kind, LeftoverKind::kHelper);
    EXPECT_EQ(status.leftovers[2].process.id, 7);
}

TEST_F(StatusReaderTest, KnowsALauncherThatIsAHelper)
{
    Launch({"/a x"}, 200, "inner.json");
    Launch({m_program + " app " + (m_directory / "inner.json")});
    m_processes.Get(200).process.parent = kLauncher;
    m_processes.Get(200).process.birth = 1000;
    const Status status = Read();
    ASSERT_EQ(status.launchers.size(), 2U);
    EXPECT_EQ(status.launchers[0].items[0].process->id, 200);
    EXPECT_EQ(Text(status.launchers[1]), "x unknown");
}

TEST_F(StatusReaderTest, AsksNothingAgainAboutAProcessThatItHasRecognized)
{
    Launch({"/a x", "/a y"});
    m_processes.Add(7, kLauncher, "/a x").process.image = 1;
    m_processes.Add(8, kLauncher, "/a y");
    EXPECT_EQ(Text(ReadOne()), "x running 7; y running 8");
    m_processes.questions.clear();
    m_processes.Get(7).process.cpu = 500;
    const LauncherStatus launcher = ReadOne();
    EXPECT_EQ(Text(launcher), "x running 7; y running 8");
    EXPECT_EQ(launcher.items[0].process->cpu, 500);
    EXPECT_EQ(m_processes.questions.count(7), 0U);
    EXPECT_GT(m_processes.questions[8], 0) << "the system does not say whether it is the same";
}

TEST_F(StatusReaderTest, ForgetsAProcessWhoseIdIsReused)
{
    Launch({"/a x", "/a y"});
    m_processes.Add(7, kLauncher, "/a x").process.image = 1;
    EXPECT_EQ(Text(ReadOne()), "x running 7; y unknown");
    m_processes.Add(7, kLauncher, "/a y").process.image = 1;
    EXPECT_EQ(Text(ReadOne()), "x unknown; y running 7");
    // Another process in place of the launcher.
    m_processes.Add(kLauncher, 1, "/bin/sh a b").process.image = 1;
    EXPECT_TRUE(Read().launchers.empty());
    Launch({"/a x", "/a y"});
    EXPECT_EQ(Read().launchers.size(), 1U);
}

TEST_F(StatusReaderTest, ForgetsAProcessThatExecutesAnotherProgram)
{
    Launch({"/a x", "/a y"});
    FakeProcess& child = m_processes.Add(7, kLauncher, "/a x");
    child.process.image = 1;
    EXPECT_EQ(Text(ReadOne()), "x running 7; y unknown");
    child.command_line = CommandLine("/a y");
    child.process.image = 2;
    EXPECT_EQ(Text(ReadOne()), "x unknown; y running 7");
    // A shell that executes a launcher.
    FakeProcess& shell = m_processes.Add(20, 1, "/bin/sh a b");
    shell.process.image = 3;
    EXPECT_EQ(Read().launchers.size(), 1U);
    shell.command_line = m_processes.Get(kLauncher).command_line;
    shell.executable = m_processes.Get(kLauncher).executable;
    shell.process.image = 4;
    EXPECT_EQ(Read().launchers.size(), 2U);
}

TEST_F(StatusReaderTest, ShowsEachCommandLineThatAProcessWithoutAnItemWrites)
{
    Launch({"/a x"});
    FakeProcess& child = m_processes.Add(7, kLauncher, "worker idle");
    child.process.image = 1;
    EXPECT_EQ(ReadOne().others.at(0).command, "worker idle");
    child.command_line = CommandLine("worker busy");
    EXPECT_EQ(ReadOne().others.at(0).command, "worker busy");
}

TEST_F(StatusReaderTest, ReadsAListAgainThatWasReplaced)
{
    Launch({"/a x"});
    m_processes.Add(7, kLauncher, "/a x").process.image = 1;
    EXPECT_EQ(Text(ReadOne()), "x running 7");
    // Of the same size and with the same time, which is also later than that of the change of
    // times.
    const std::string path = m_directory / "list.json";
    const timeval later = {time(nullptr) + 3600, 0};
    const timeval times[] = {later, later};
    for (const std::string name : {"y", "z", "x"}) {
        m_directory.Write("list.json", "{\"0\": " + ItemText("/a " + name) + "}");
        ASSERT_EQ(utimes(path.c_str(), times), 0);
        EXPECT_EQ(ReadOne().items.at(0).name, name);
    }
    // By another file.
    m_directory.Write("other", "{\"0\": " + ItemText("/a w") + "}");
    ASSERT_EQ(rename((m_directory / "other").c_str(), path.c_str()), 0);
    EXPECT_EQ(ReadOne().items.at(0).name, "w");
}

TEST_F(StatusReaderTest, SeesWithoutReadingThatSomethingMayHaveChanged)
{
    Launch({"/a x"});
    m_processes.Add(7, kLauncher, "/a x");
    EXPECT_TRUE(m_reader.MayHaveChanged());  // Nothing was read yet.
    // After three reads, nothing counts as changed any more.
    const auto settle = [this] {
        for (int i = 0; i < 3; ++i) {
            Read();
        }
        return !m_reader.MayHaveChanged();
    };
    ASSERT_TRUE(settle());

    m_processes.Get(7).process.cpu += 1000;
    EXPECT_FALSE(m_reader.MayHaveChanged());

    m_processes.Add(8, 1, "/b");
    EXPECT_TRUE(m_reader.MayHaveChanged());
    Read();
    EXPECT_TRUE(m_reader.MayHaveChanged()) << "the process may have executed a program";
    ASSERT_TRUE(settle());

    m_processes.Remove(8);
    EXPECT_TRUE(m_reader.MayHaveChanged());
    ASSERT_TRUE(settle());

    const std::string list = m_directory / "list.json";
    ASSERT_EQ(rename(list.c_str(), (m_directory / "moved").c_str()), 0);
    EXPECT_TRUE(m_reader.MayHaveChanged());
    ASSERT_TRUE(settle());
    m_directory.Write("list.json", "{}");
    EXPECT_TRUE(m_reader.MayHaveChanged());
    ASSERT_TRUE(settle());
    m_directory.Write("list.json", "{ }");
    EXPECT_TRUE(m_reader.MayHaveChanged());
}
