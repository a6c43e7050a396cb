#include "tools/launchlist/list/program_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/temp_directory.h"

using namespace launchlist;

namespace {

// A directory of programs, which is the current directory of this test.
class Programs
{
public:
    Programs()
    {
        Add("script", "#!/bin/sh\n");
        Add("text", "echo started\n");
        EXPECT_EQ(chdir(m_directory.path().c_str()), 0);
    }

    std::string Add(const std::string& name, const std::string& contents) const
    {
        const std::string path = m_directory.Write(name, contents);
        EXPECT_EQ(chmod(path.c_str(), 0755), 0);
        return path;
    }

    ProgramFile Examine(const std::string& name) const
    {
        return ProgramFiles().Examine(m_directory / name);
    }

    std::string path(const std::string& name) const { return m_directory / name; }

private:
    TempDirectory m_directory;
};

}  // namespace

TEST(ProgramFile, DependsOnTheDirectoryIfAnInterpreterIsRelative)
{
    const Programs programs;
    programs.Add("relative", "#!script -e\n");
    const ProgramFile good = programs.Examine("relative");
    EXPECT_EQ(good.problem, Kind::kProgramRelative);
    EXPECT_FALSE(good.CannotRun());
    EXPECT_EQ(good.message, "the interpreter of \"" + programs.path("relative") +
                                "\" is given by a relative path, \"script\"");

    programs.Add("nested", "#!" + programs.path("relative") + "\n");
    EXPECT_EQ(programs.Examine("nested").problem, Kind::kProgramRelative);
    EXPECT_EQ(programs.Examine("nested").message, good.message);
}

TEST(ProgramFile, IsUnusableFromThisDirectoryIfARelativeInterpreterIsMissing)
{
    const Programs programs;
    programs.Add("relative", "#!python3\n");
    programs.Add("nested", "#!" + programs.path("relative") + "\n");
    for (const char* name : {"relative", "nested"}) {
        const ProgramFile file = programs.Examine(name);
        EXPECT_EQ(file.problem, Kind::kProgramRelativeUnusable) << name;
        EXPECT_TRUE(file.CannotRun()) << name;
        EXPECT_NE(file.message.find("seen from this directory"), std::string::npos) << file.message;
        EXPECT_EQ(file.fix, "write its absolute path") << name;
    }
}
