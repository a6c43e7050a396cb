#include "tools/launchlist/processes/processes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "tests/support/temp_directory.h"
#include "tests/support/wait_until.h"

using namespace launchlist;

namespace {

std::optional<Process> Find(ProcessTable& table, pid_t id)
{
    std::vector<Process> processes;
    std::string error;
    EXPECT_TRUE(table.List(processes, error)) << error;
    for (const Process& process : processes) {
        if (process.id == id) {
            return process;
        }
    }
    return std::nullopt;
}

// A child that runs this program until the object is destroyed.
class ForkedChild
{
public:
    ForkedChild()
    {
        int ends[2] = {};
        EXPECT_EQ(pipe(ends), 0);
        id = fork();
        if (id == 0) {
            close(ends[1]);
            char byte = 0;
            _exit(read(ends[0], &byte, 1) == 0 ? 0 : 1);
        }
        close(ends[0]);
        m_end = ends[1];
    }
    ~ForkedChild() { End(); }
    ForkedChild(const ForkedChild&) = delete;
    ForkedChild& operator=(const ForkedChild&) = delete;

    // Leaves a zombie, for which nobody has waited.
    void LetExit()
    {
        close(m_end);
        m_end = -1;
    }

    void End()
    {
        if (m_end >= 0) {
            LetExit();
        }
        if (id > 0) {
            waitpid(id, nullptr, 0);
            id = -1;
        }
    }

    pid_t id = -1;

private:
    int m_end = -1;
};

}  // namespace

TEST(SystemProcesses, KnowThisProcess)
{
    const auto table = SystemProcesses();
    const auto self = Find(*table, getpid());
    ASSERT_TRUE(self);
    EXPECT_EQ(self->parent, getppid());
    EXPECT_FALSE(self->is_zombie);
    EXPECT_TRUE(self->has_executed);
    EXPECT_GT(self->memory.value_or(0), 4096U);
    EXPECT_TRUE(table->IsSame(*self));
    EXPECT_EQ(table->UserOf(*self), getuid());
    const std::unique_ptr<char, void (*)(void*)> directory(getcwd(nullptr, 0), std::free);
    EXPECT_EQ(table->DirectoryOf(*self), directory.get());
    const Executable executable = table->ExecutableOf(*self);
    EXPECT_EQ(executable.path.substr(executable.path.rfind('/') + 1),
              "tools_launchlist_processes_processes_test");
    EXPECT_FALSE(executable.is_deleted);
    EXPECT_FALSE(executable.is_denied);
    const auto command_line = table->CommandLineOf(*self);
    ASSERT_TRUE(command_line && !command_line->empty());
    EXPECT_EQ(command_line->back(), '\0');
    EXPECT_NE(command_line->find("processes_test"), std::string::npos);
}

TEST(SystemProcesses, ListIds)
{
    const auto table = SystemProcesses();
    const auto has = [&](pid_t id) {
        std::vector<pid_t> ids;
        std::string error;
        EXPECT_TRUE(table->ListIds(ids, error)) << error;
        return std::find(ids.begin(), ids.end(), id) != ids.end();
    };
    ForkedChild child;
    EXPECT_TRUE(has(getpid()));
    const pid_t id = child.id;
    EXPECT_TRUE(has(id));
    child.End();
    EXPECT_FALSE(has(id));
}

TEST(SystemProcesses, KnowWhenThisProcessWasStarted)
{
    const auto table = SystemProcesses();
    const auto self = Find(*table, getpid());
    ASSERT_TRUE(self);
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t age = static_cast<std::int64_t>(now.tv_sec) * 1000 - self->start;
    EXPECT_GE(age, -1100);
    EXPECT_LT(age, 600000);
}

TEST(SystemProcesses, MeasureProcessorTimeInSmallSteps)
{
    const auto table = SystemProcesses();
    const auto first = Find(*table, getpid());
    ASSERT_TRUE(first);
    std::int64_t before = first->cpu;
    std::int64_t smallest = 1000;
    int steps = 0;
    // Listing the processes uses processor time.
    ASSERT_TRUE(WaitUntil([&] {
        const auto self = Find(*table, getpid());
        if (self && self->cpu != before) {
            smallest = std::min(smallest, self->cpu - before);
            before = self->cpu;
            ++steps;
        }
        return steps == 3;
    }));
    EXPECT_GT(smallest, 0);
    EXPECT_LE(smallest, 20);
}

TEST(SystemProcesses, DoNotTakeAnotherBirthForTheSameProcess)
{
    const auto table = SystemProcesses();
    auto self = Find(*table, getpid());
    ASSERT_TRUE(self);
    ++self->birth;
    EXPECT_FALSE(table->IsSame(*self));
}

TEST(SystemProcesses, TellWhetherAForkedChildHasExecutedAProgram)
{
    const auto table = SystemProcesses();
    ForkedChild child;
    const auto process = Find(*table, child.id);
    ASSERT_TRUE(process);
    EXPECT_EQ(process->parent, getpid());
    EXPECT_FALSE(process->has_executed);
    const auto self = Find(*table, getpid());
    EXPECT_EQ(table->CommandLineOf(*process), table->CommandLineOf(*self));
    EXPECT_EQ(table->ExecutableOf(*process).path, table->ExecutableOf(*self).path);
}

#ifdef __linux__
TEST(SystemProcesses, TellWhetherAProcessHasExecutedAnotherProgram)
{
    const auto table = SystemProcesses();
    ForkedChild child;
    const auto forked = Find(*table, child.id);
    ASSERT_TRUE(forked);
    EXPECT_NE(forked->image, 0U);
    EXPECT_EQ(Find(*table, child.id)->image, forked->image);
    // A shell that executes itself with other arguments.
    int input[2] = {};
    ASSERT_EQ(pipe(input), 0);
    const pid_t shell = fork();
    if (shell == 0) {
        dup2(input[0], 0);
        close(input[0]);
        close(input[1]);
        execl("/bin/sh", "sh", "-c", "read x; exec sh -c 'read x; exit' b", "a", nullptr);
        _exit(127);
    }
    close(input[0]);
    const std::string first = std::string("sh\0-c\0read x; exec", 18);
    const auto runs = [&](const std::string& begin) {
        const auto process = Find(*table, shell);
        return process &&
               table->CommandLineOf(*process).value_or("").substr(0, begin.size()) == begin;
    };
    EXPECT_TRUE(WaitUntil([&] { return runs(first); }));
    const auto before = Find(*table, shell);
    EXPECT_EQ(write(input[1], "\n", 1), 1);
    EXPECT_TRUE(WaitUntil([&] { return !runs(first); }));
    const auto after = Find(*table, shell);
    if (before && after) {
        EXPECT_EQ(before->birth, after->birth);
        EXPECT_NE(before->image, after->image);
    }
    close(input[1]);
    waitpid(shell, nullptr, 0);
}
#endif

TEST(SystemProcesses, SayNothingAboutAProcessThatHasEnded)
{
    const auto table = SystemProcesses();
    ForkedChild child;
    const auto process = Find(*table, child.id);
    ASSERT_TRUE(process);
    child.LetExit();
    EXPECT_TRUE(WaitUntil([&] { return !table->IsSame(*process); })) << "a zombie has ended";
    child.End();
    EXPECT_FALSE(table->IsSame(*process));
    EXPECT_FALSE(Find(*table, process->id));
    EXPECT_EQ(table->ExecutableOf(*process).path, "");
    EXPECT_FALSE(table->CommandLineOf(*process));
    EXPECT_EQ(table->DirectoryOf(*process), "");
    EXPECT_EQ(table->AppendedInputOf(*process), "");
}

TEST(SystemProcesses, NameTheFileThatDescriptorZeroAppendsTo)
{
    const TempDirectory directory;
    const std::string log = directory.Write("log", "");
    const auto table = SystemProcesses();
    const auto self = Find(*table, getpid());
    ASSERT_TRUE(self);
    const int saved = dup(0);
    const auto input_with = [&](const std::string& path, int flags) {
        const int file = open(path.c_str(), flags | O_CREAT, 0600);
        dup2(file, 0);
        close(file);
        return table->AppendedInputOf(*self);
    };
    EXPECT_EQ(input_with(log, O_WRONLY | O_APPEND), log);
    EXPECT_EQ(input_with(log, O_RDWR | O_APPEND), log);
    EXPECT_EQ(input_with(log, O_WRONLY), "");
    EXPECT_EQ(input_with(log, O_RDONLY), "");
    const std::string odd = directory / "log (deleted)";
    EXPECT_EQ(input_with(odd, O_WRONLY | O_APPEND), odd);
#ifdef __linux__
    EXPECT_EQ(input_with(log, O_WRONLY | O_APPEND), log);
    unlink(log.c_str());
    EXPECT_EQ(table->AppendedInputOf(*self), log);
#endif
    if (saved >= 0) {
        dup2(saved, 0);
        close(saved);
    } else {
        close(0);
    }
}
