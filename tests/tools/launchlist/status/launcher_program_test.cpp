#include "tools/launchlist/status/launcher_program.h"

#include <gtest/gtest.h>

#include "logging/log_path.h"
#include "tests/support/temp_directory.h"

using namespace launchlist;

TEST(IsLauncher, NeedsTheBundleOrItsName)
{
    const TempDirectory directory;
    directory.Write("A.app/Contents/Frameworks/qv7api.ini", "");
    const std::string program = directory / "A.app/Contents/MacOS/launcher";
    EXPECT_TRUE(IsLauncher({program, false, false}));
    EXPECT_TRUE(IsLauncher({program, true, false}));
    EXPECT_FALSE(IsLauncher({directory / "B.app/Contents/MacOS/launcher", true, false}));
    EXPECT_TRUE(IsLauncher({directory / "Kestrane.app/Contents/MacOS/launcher", true, false}));
    EXPECT_FALSE(IsLauncher({directory / "Kestrane.app/Contents/MacOS/launcher", false, false}));
    EXPECT_FALSE(IsLauncher({directory / "A.app/Contents/MacOS/launchlist", false, false}));
    EXPECT_FALSE(IsLauncher({"", false, false}));
    EXPECT_FALSE(IsLauncher({"launcher", true, false}));
}

TEST(FilesOf, TakesTheNameFromTheLaunchersOwnBundle)
{
    const TempDirectory directory;
    directory.Write("A.app/Contents/Frameworks/qv7api.ini", "[SDK]\nNAME=Other\n");
    const LauncherFiles files = FilesOf(directory / "A.app/Contents/MacOS/launcher");
    const std::string log = "/Library/Logs/Other/qv7log";
    EXPECT_EQ(files.log.substr(files.log.size() - log.size()), log);
    EXPECT_NE(files.level.find("/Other/log.ini"), std::string::npos);
    EXPECT_EQ(FilesOf(directory / "B.app/Contents/MacOS/launcher").log, GetLogPath());
}

TEST(AbsolutePath, RemovesWhatSaysNothing)
{
    EXPECT_EQ(AbsolutePath("/d", "a"), "/d/a");
    EXPECT_EQ(AbsolutePath("/d/", "./a//b/."), "/d/a/b");
    EXPECT_EQ(AbsolutePath("/d", "/a/../b"), "/a/../b");
    EXPECT_EQ(AbsolutePath("", "a/./b"), "a/./b");
    EXPECT_EQ(AbsolutePath("/d", ""), "/d");
    EXPECT_EQ(AbsolutePath("", "/"), "/");
}
