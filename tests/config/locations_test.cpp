#include "config/locations.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/fake_machine.h"
#include "tests/support/temp_directory.h"

namespace {

namespace fs = std::filesystem;

class Locations : public testing::Test
{
protected:
    void SetUp() override
    {
        g_fake_machine.executable = "/Apps/X.app/Contents/MacOS/launcher";
        g_fake_machine.user = FakeMachine::User{"u", "/Users/u"};
    }

    // An absolute path of `length` bytes below `start`, with a last component of "x"s.
    static std::string LongPath(std::string start, std::size_t length)
    {
        while (length - start.size() > 201) {
            start += "/" + std::string(199, 'd');
        }
        return start + "/" + std::string(length - start.size() - 1, 'x');
    }

    TempDirectory m_directory;
};

using AppPath = Locations;
using FinderSync = Locations;
using HomePath = Locations;
using AppDataPath = Locations;
using SdkName = Locations;
using MountPath = Locations;
using CurrentPath = Locations;
using UserName = Locations;

const std::string kExtensionMacOs = "/Contents/PlugIns/Y.appex/Contents/MacOS";

}  // namespace

TEST_F(AppPath, IsTheResolvedFrameworksFolderOfTheBundle)
{
    const std::string bundle = m_directory.path() + "/X.app";
    fs::create_directories(bundle + "/Contents/MacOS");
    fs::create_directories(bundle + "/Contents/Frameworks");
    g_fake_machine.executable = bundle + "/Contents/MacOS/launcher";
    EXPECT_EQ(GetAppPath(), bundle + "/Contents/Frameworks");
}

TEST_F(AppPath, OfTheExtensionIsTheMainBundlesFrameworksFolder)
{
    const std::string bundle = m_directory.path() + "/X.app";
    fs::create_directories(bundle + kExtensionMacOs);
    fs::create_directories(bundle + "/Contents/Frameworks");
    g_fake_machine.executable = bundle + kExtensionMacOs + "/KestraneFinderSync";
    EXPECT_EQ(GetAppPath(), bundle + "/Contents/Frameworks");
}

TEST_F(AppPath, StaysUnresolvedIfTheFrameworksFolderDoesNotExist)
{
    EXPECT_EQ(GetAppPath(), "/Apps/X.app/Contents/MacOS/../Frameworks");
    g_fake_machine.executable = "/Apps/X.app" + kExtensionMacOs + "/KestraneFinderSync";
    EXPECT_EQ(GetAppPath(), "/Apps/X.app" + kExtensionMacOs + "/../../../../Frameworks");
}

TEST_F(AppPath, FollowsSymbolicLinksOfTheFrameworksFolder)
{
    fs::create_directories(m_directory.path() + "/bin");
    fs::create_directories(m_directory.path() + "/real");
    fs::create_directory_symlink("real", m_directory.path() + "/Frameworks");
    g_fake_machine.executable = m_directory.path() + "/bin/launcher";
    EXPECT_EQ(GetAppPath(), m_directory.path() + "/real");
}

TEST_F(AppPath, IsResolvedUpTo1023Bytes)
{
    fs::create_directories(m_directory.path() + "/bin");
    g_fake_machine.executable = m_directory.path() + "/bin/launcher";
    const std::string target = LongPath(m_directory.path(), 1023);
    fs::create_directories(target);
    fs::create_directory_symlink(target, m_directory.path() + "/Frameworks");
    EXPECT_EQ(GetAppPath(), target);
}

#ifndef __APPLE__
// macOS cannot create a path of this length.
TEST_F(AppPath, StaysUnresolvedIfTheResolvedPathHas1024Bytes)
{
    fs::create_directories(m_directory.path() + "/bin");
    g_fake_machine.executable = m_directory.path() + "/bin/launcher";
    const std::string target = LongPath(m_directory.path(), 1024);
    ASSERT_EQ(target.size(), 1024U);
    fs::create_directories(target);
    fs::create_directory_symlink(target, m_directory.path() + "/Frameworks");
    EXPECT_EQ(GetAppPath(), m_directory.path() + "/bin/../Frameworks");
}
#endif

TEST_F(AppPath, StaysUnresolvedIfThePathHasMoreThan1024Bytes)
{
    const std::string suffix = "/../Frameworks";
    for (const std::size_t length : {1024U, 1025U}) {
        const std::string directory = LongPath(m_directory.path(), length - suffix.size());
        fs::create_directories(directory);
        const std::string frameworks = directory.substr(0, directory.rfind('/')) + "/Frameworks";
        fs::create_directories(frameworks);
        g_fake_machine.executable = directory + "/l";
        ASSERT_EQ((directory + suffix).size(), length);
        EXPECT_EQ(GetAppPath(), length == 1024 ? frameworks : directory + suffix) << length;
    }
}

TEST_F(AppPath, KeepsAnExecutablePathWithoutASlashWhole)
{
    g_fake_machine.executable = "launcher";
    EXPECT_EQ(GetAppPath(), "launcher/../Frameworks");
}

TEST_F(AppPath, IsEmptyWithoutAnExecutablePath)
{
    g_fake_machine.executable = "";
    EXPECT_EQ(GetAppPath(), "");
}

TEST_F(AppPath, AcceptsAnExecutablePathOfUpTo1023Bytes)
{
    g_fake_machine.executable = LongPath("/a", 1023);
    const std::string folder =
        g_fake_machine.executable.substr(0, g_fake_machine.executable.rfind('/'));
    EXPECT_EQ(GetAppPath(), folder + "/../Frameworks");
    g_fake_machine.executable = LongPath("/a", 1024);
    EXPECT_EQ(GetAppPath(), "");
}

TEST_F(FinderSync, IsRecognisedByTheEndOfTheExecutablePathCaseSensitively)
{
    const struct
    {
        const char* executable;
        bool is_extension;
    } cases[] = {
        {"/X.app/Contents/PlugIns/Y.appex/Contents/MacOS/KestraneFinderSync", true},
        {"KestraneFinderSync", true},
        {"/bin/MyKestraneFinderSync", true},
        {"/bin/kestranefindersync", false},
        {"/bin/KestraneFinderSync2", false},
        {"/KestraneFinderSync/launcher", false},
        {"FinderSync", false},
        {"", false},
    };
    for (const auto& c : cases) {
        g_fake_machine.executable = c.executable;
        EXPECT_EQ(IsFinderSync(), c.is_extension) << c.executable;
    }
}

TEST_F(FinderSync, IsFalseForAnExecutablePathOf1024Bytes)
{
    const std::string name = "KestraneFinderSync";
    g_fake_machine.executable = LongPath("/a", 1023 - name.size()) + name;
    EXPECT_TRUE(IsFinderSync());
    g_fake_machine.executable = LongPath("/a", 1024 - name.size()) + name;
    EXPECT_FALSE(IsFinderSync());
}

TEST_F(HomePath, ComesFromThePasswordDatabaseBeforeTheEnvironment)
{
    setenv("HOME", "/elsewhere", 1);
    EXPECT_EQ(GetHomePath(), "/Users/u");
}

TEST_F(HomePath, FallsBackToTheEnvironmentAndThenToNothing)
{
    g_fake_machine.user.reset();
    setenv("HOME", "/elsewhere", 1);
    EXPECT_EQ(GetHomePath(), "/elsewhere");
    unsetenv("HOME");
    EXPECT_EQ(GetHomePath(), "");
}

TEST_F(AppDataPath, IsInTheHomeDirectory)
{
    EXPECT_EQ(GetAppDataPath(), "/Users/u/Library/Application Support");
    g_fake_machine.user->home = "";
    EXPECT_EQ(GetAppDataPath(), "/Library/Application Support");
}

TEST_F(AppDataPath, LeadsOutOfTheContainerOnlyForTheExtensionInItsContainer)
{
    const std::string container =
        std::string("/Users/u/Library/Containers/") + FINDER_SYNC_BUNDLE_ID + "/Data";
    const std::string extension = "/X.app" + kExtensionMacOs + "/KestraneFinderSync";

    g_fake_machine.user->home = container;
    EXPECT_EQ(GetAppDataPath(), container + "/Library/Application Support");

    g_fake_machine.executable = extension;
    EXPECT_EQ(GetAppDataPath(), container + "/../../../../Library/Application Support");

    g_fake_machine.user->home = "/Users/u";
    EXPECT_EQ(GetAppDataPath(), "/Users/u/Library/Application Support");
}

TEST_F(AppDataPath, FindsTheIdentifierAnywhereInTheHomePath)
{
    g_fake_machine.executable = "/KestraneFinderSync";
    g_fake_machine.user->home = std::string("/a") + FINDER_SYNC_BUNDLE_ID + "b/c";
    EXPECT_EQ(GetAppDataPath(),
              g_fake_machine.user->home + "/../../../../Library/Application Support");
}

TEST(FinderSyncBundleId, EndsWithTheExtensionsName)
{
    const std::string id = FINDER_SYNC_BUNDLE_ID;
    EXPECT_EQ(id.substr(id.rfind('.') + 1), "KestraneFinderSync");
}

TEST_F(SdkName, IsReadFromTheFrameworksFolder)
{
    const struct
    {
        std::string ini;
        std::string name;
    } cases[] = {
        {"[SDK]\nNAME=abc\n", "abc"},
        {"[SDK]\nNAME = abc\n", ""},
        {"[SDK]\nNAME=\n", ""},
        {"[SDK]\nNAME==abc\n", ""},
        {"[OTHER]\nNAME=abc\n", ""},
        {"[SDK]\nNAME=" + std::string(1023, 'n') + "\n", std::string(1023, 'n')},
        {"[SDK]\nNAME=" + std::string(1024, 'n') + "\n", ""},
    };
    fs::create_directories(m_directory.path() + "/Contents/MacOS");
    g_fake_machine.executable = m_directory.path() + "/Contents/MacOS/launcher";
    EXPECT_EQ(GetSDKName(), "") << "without the file";
    for (const auto& c : cases) {
        m_directory.Write("Contents/Frameworks/qv7api.ini", c.ini);
        EXPECT_EQ(GetSDKName(), c.name) << c.ini;
    }
}

TEST_F(MountPath, JoinsTheNameAndTheLoginName)
{
    EXPECT_EQ(GetOSXMountPath("Share"), "/Volumes/Share_u");
    EXPECT_EQ(GetOSXMountPath(""), "/Volumes/_u");
    g_fake_machine.user.reset();
    EXPECT_EQ(GetOSXMountPath("Share"), "/Volumes/Share_");
}

TEST_F(CurrentPath, IsTheUnresolvedDirectoryOfTheExecutable)
{
    g_fake_machine.executable = "/X.app/Contents/../Contents/MacOS/launcher";
    EXPECT_EQ(GetCurrentPath(), "/X.app/Contents/../Contents/MacOS");
    g_fake_machine.executable = "/launcher";
    EXPECT_EQ(GetCurrentPath(), "");
    g_fake_machine.executable = "launcher";
    EXPECT_EQ(GetCurrentPath(), "");
    g_fake_machine.executable = "";
    EXPECT_EQ(GetCurrentPath(), "");
}

TEST_F(CurrentPath, AcceptsAnExecutablePathOneByteLongerThanTheOthers)
{
    g_fake_machine.executable = LongPath("/a", 1024);
    EXPECT_EQ(GetCurrentPath(),
              g_fake_machine.executable.substr(0, g_fake_machine.executable.rfind('/')));
    g_fake_machine.executable = LongPath("/a", 1025);
    EXPECT_EQ(GetCurrentPath(), "");
}

TEST_F(UserName, ComesFromThePasswordDatabaseOnly)
{
    EXPECT_EQ(GetUserName(), "u");
    g_fake_machine.user.reset();
    setenv("USER", "other", 1);
    setenv("LOGNAME", "other", 1);
    EXPECT_EQ(GetUserName(), "");
}
