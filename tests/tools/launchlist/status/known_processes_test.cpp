#include "tools/launchlist/status/known_processes.h"

#include <gtest/gtest.h>

#include <vector>

#include <string>

using namespace launchlist;

namespace {

Process ProcessOf(pid_t id)
{
    Process process;
    process.id = id;
    process.birth = 10;
    process.image = 20;
    process.has_executed = true;
    return process;
}

// Remembers everything about the process.
void Set(KnownProcesses& known, const Process& process)
{
    known.SetNoLauncher(process);
    known.SetCommandLine(process, "line");
}

bool Knows(const KnownProcesses& known, const Process& process)
{
    const std::string* const line = known.CommandLineOf(process);
    EXPECT_EQ(known.IsNoLauncher(process), line != nullptr);
    EXPECT_TRUE(line == nullptr || *line == "line");
    return line != nullptr;
}

// Processes that differ from ProcessOf(1) in one of the values by which it is recognized.
std::vector<Process> Others()
{
    std::vector<Process> others(3, ProcessOf(1));
    others[0].birth = 11;
    others[1].image = 21;
    others[2].has_executed = false;
    return others;
}

}  // namespace

TEST(KnownProcesses, RemembersTheSameProcess)
{
    KnownProcesses known;
    EXPECT_FALSE(Knows(known, ProcessOf(1)));
    Set(known, ProcessOf(1));
    Process later = ProcessOf(1);
    later.parent = 1;
    later.cpu = 1000;
    later.memory = 1000;
    EXPECT_TRUE(Knows(known, later));
    EXPECT_FALSE(Knows(known, ProcessOf(2)));
}

TEST(KnownProcesses, RemembersBothFactsSeparately)
{
    KnownProcesses known;
    known.SetNoLauncher(ProcessOf(1));
    EXPECT_TRUE(known.IsNoLauncher(ProcessOf(1)));
    EXPECT_EQ(known.CommandLineOf(ProcessOf(1)), nullptr);
    known.SetCommandLine(ProcessOf(2), "");
    EXPECT_FALSE(known.IsNoLauncher(ProcessOf(2)));
    ASSERT_NE(known.CommandLineOf(ProcessOf(2)), nullptr);
    EXPECT_EQ(*known.CommandLineOf(ProcessOf(2)), "");
}

TEST(KnownProcesses, KnowsNothingAboutAProcessThatHasChanged)
{
    KnownProcesses known;
    Set(known, ProcessOf(1));
    for (const Process& other : Others()) {
        EXPECT_FALSE(Knows(known, other));
    }
    EXPECT_TRUE(Knows(known, ProcessOf(1)));
}

TEST(KnownProcesses, ReplacesWhatItKnewAboutAProcessThatHasChanged)
{
    for (const Process& other : Others()) {
        KnownProcesses known;
        Set(known, ProcessOf(1));
        known.SetCommandLine(other, "line");
        EXPECT_NE(known.CommandLineOf(other), nullptr);
        EXPECT_FALSE(known.IsNoLauncher(other));
        EXPECT_FALSE(Knows(known, ProcessOf(1)));
    }
}

TEST(KnownProcesses, RemembersNothingWithoutAnImage)
{
    KnownProcesses known;
    Process process = ProcessOf(1);
    process.image = 0;
    Set(known, process);
    EXPECT_FALSE(Knows(known, process));
    // Nor does it replace what was known.
    Set(known, ProcessOf(1));
    Set(known, process);
    EXPECT_FALSE(Knows(known, process));
    EXPECT_TRUE(Knows(known, ProcessOf(1)));
}

TEST(KnownProcesses, KeepsOnlyTheListedProcessesThatHaveNotChanged)
{
    for (const Process& other : Others()) {
        KnownProcesses known;
        for (const pid_t id : {1, 2, 3}) {
            Set(known, ProcessOf(id));
        }
        known.KeepOnly({ProcessOf(2), other, ProcessOf(4)});
        EXPECT_FALSE(Knows(known, ProcessOf(1)));
        EXPECT_TRUE(Knows(known, ProcessOf(2)));
        EXPECT_FALSE(Knows(known, ProcessOf(3)));
        EXPECT_FALSE(Knows(known, ProcessOf(4)));
    }
}
