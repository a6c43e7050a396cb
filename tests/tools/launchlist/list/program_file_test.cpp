#include "tools/launchlist/list/program_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "json/json_object.h"
#include "tests/support/temp_directory.h"
#include "tools/launchlist/list/effects.h"
#include "tools/launchlist/list/explain.h"

using namespace launchlist;

namespace {

const std::string kShell = "enabled\ninterpreter /bin/sh\nflags: \n";

// What explain says about an item that runs `program`, with these registrations.
ExplainedItem Explain(const std::string& program, const std::string& registrations)
{
    JsonObject item((R"({"name": "a", "program": ")" + program + "\"}").c_str());
    ProgramFiles files(registrations);
    return ExplainProgram(item, files);
}

// A directory of programs, which is the current directory of this test.
class Programs
{
public:
    Programs()
    {
        Add("script", "#!/bin/sh\n");
        Add("text", "echo started\n");
        EXPECT_EQ(symlink("/bin/sh", path("shell").c_str()), 0);
        EXPECT_EQ(chdir(m_directory.path().c_str()), 0);
    }

    std::string Add(const std::string& name, const std::string& contents) const
    {
        std::string path = m_directory.Write(name, contents);
        EXPECT_EQ(chmod(path.c_str(), 0755), 0);
        return path;
    }

    // `registrations`: see RegisteredFormats.
    ProgramFile Examine(const std::string& name, const std::string& registrations) const
    {
        return ProgramFiles(registrations).Examine(m_directory / name);
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
    programs.Add("relative", "#!shell -e\n");
    const ProgramFile good = programs.Examine("relative");
    EXPECT_EQ(good.problem, Kind::kProgramRelative);
    EXPECT_FALSE(good.CannotRun());
    EXPECT_EQ(good.message, "the interpreter of \"" + programs.path("relative") +
                                "\" is given by a relative path, \"shell\"");

#ifdef __linux__  // On macOS, the interpreter of a script must not be a script.
    programs.Add("nested", "#!" + programs.path("relative") + "\n");
    EXPECT_EQ(programs.Examine("nested").problem, Kind::kProgramRelative);
    EXPECT_EQ(programs.Examine("nested").message, good.message);
#endif
}

TEST(ProgramFile, IsUnusableFromThisDirectoryIfARelativeInterpreterIsMissing)
{
    const Programs programs;
    programs.Add("relative", "#!python3\n");
    std::vector<const char*> names = {"relative"};
#ifdef __linux__
    programs.Add("nested", "#!" + programs.path("relative") + "\n");
    names.push_back("nested");
#endif
    for (const char* name : names) {
        const ProgramFile file = programs.Examine(name);
        EXPECT_EQ(file.problem, Kind::kProgramRelativeUnusable) << name;
        EXPECT_TRUE(file.CannotRun()) << name;
        EXPECT_NE(file.message.find("from this directory"), std::string::npos) << file.message;
        EXPECT_EQ(file.fix, "write its absolute path") << name;
    }
}

TEST(ProgramFile, CanBeExecutedByARegisteredInterpreter)
{
    const Programs programs;
    programs.Add("program.txt", std::string("ab\0cd", 5));
    const TempDirectory formats;
    formats.Write("status", "enabled\n");
    const struct
    {
        const char* matching;
        bool is_match;
    } kTable[] = {
        {"extension .txt\n", true},
        {"extension .text\n", false},
        {"offset 0\nmagic 6162\n", true},
        {"offset 0\nmagic 6163\n", false},
        {"offset 3\nmagic 6364\n", true},
        {"offset 3\nmagic 636400\n", true},  // The rest counts as zeros.
        {"offset 255\nmagic 0000\n", false},
        {"offset 0\nmagic 7162\nmask efff\n", true},
        {"offset 0\nmagic 7162\nmask ffff\n", false},
    };
    for (const auto& row : kTable) {
        formats.Write("format", kShell + row.matching);
        const ProgramFile file = programs.Examine("program.txt", formats.path());
        EXPECT_EQ(file.CannotRun(), !row.is_match) << row.matching;
        EXPECT_FALSE(file.may_be_registered) << row.matching;
    }

    formats.Write("format", "disabled\ninterpreter /bin/sh\nflags: \nextension .txt\n");
    EXPECT_EQ(programs.Examine("program.txt", formats.path()).problem, Kind::kProgramFormat);
    formats.Write("format", kShell + "extension .txt\n");
    formats.Write("status", "disabled\n");
    EXPECT_EQ(programs.Examine("program.txt", formats.path()).problem, Kind::kProgramFormat);
}

TEST(ProgramFile, NeedsItsRegisteredInterpreter)
{
    const Programs programs;
    const TempDirectory formats;
    formats.Write("status", "enabled\n");
    formats.Write("format", "enabled\ninterpreter /nowhere/sh\nextension .txt\n");
    programs.Add("program.txt", "text");
    const ProgramFile file = programs.Examine("program.txt", formats.path());
    EXPECT_EQ(file.problem, Kind::kProgramInterpreter);
    EXPECT_EQ(file.message, "the registered interpreter of \"" + programs.path("program.txt") +
                                "\" cannot be executed: \"/nowhere/sh\" does not exist");

    // Its interpreter is the program itself.
    formats.Write("format",
                  "enabled\ninterpreter " + programs.path("program.txt") + "\nextension .txt\n");
    EXPECT_TRUE(programs.Examine("program.txt", formats.path()).CannotRun());
}

TEST(ProgramFile, MayHaveARegisteredInterpreterIfTheRegistrationsAreUnknown)
{
    const Programs programs;
    programs.Add("script_of_text", "#!" + programs.path("text") + "\n");
    const TempDirectory not_mounted;
    const TempDirectory known;
    known.Write("status", "enabled\n");
    for (const char* name : {"text", "script_of_text"}) {
        const std::string path = programs.path(name);
        EXPECT_TRUE(programs.Examine(name, not_mounted.path()).may_be_registered) << name;
        EXPECT_EQ(Explain(path, not_mounted.path()).effect,
                  std::string(effects::kUnlessRegistered) + effects::kCannotExecute);
        for (const std::string& registrations : {known.path(), std::string()}) {
            EXPECT_FALSE(programs.Examine(name, registrations).may_be_registered) << name;
            EXPECT_EQ(Explain(path, registrations).effect, effects::kCannotExecute);
        }
    }
    EXPECT_FALSE(programs.Examine("script", not_mounted.path()).problem);
}

TEST(ProgramFile, OfAnUnknownFormatPossiblyRuns)
{
    const Programs programs;
    const std::string text = R"({"0": {"name": "a", "program": ")" + programs.path("text") + "\"}}";
    const ExplainedItem item = ExplainList(text).items.front();
    const bool may_be_registered = ProgramFiles().Examine(programs.path("text")).may_be_registered;
    EXPECT_EQ(item.runs, may_be_registered ? Likelihood::kPossibly : Likelihood::kNever);
    EXPECT_EQ(item.arguments.has_value(), may_be_registered);
}
