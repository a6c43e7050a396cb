#include "logging/log_setup.h"

#include <gtest/gtest.h>

#include "tests/support/fake_log_library.h"
#include "tests/support/fake_machine.h"
#include "tests/support/fake_syslog.h"
#include "tests/support/log_recorder.h"
#include "tests/support/temp_directory.h"

ILog* logger = nullptr;

namespace {

class LogSetup : public testing::Test
{
protected:
    void SetUp() override
    {
        logger = nullptr;
        g_fake_log_library = {};
        g_system_events.clear();
        m_directory.Write("Contents/Frameworks/qv7api.ini", "[SDK]\nNAME=abc\n");
        m_directory.Write("Contents/MacOS/launcher", "");
        g_fake_machine.executable = m_directory.path() + "/Contents/MacOS/launcher";
        g_fake_machine.user = FakeMachine::User{"u", m_directory.path() + "/home"};
    }

    LOGLEVEL LevelOf(const std::string& ini)
    {
        m_directory.Write("home/Library/Application Support/abc/log.ini", ini);
        return GetLogLevel();
    }

    TempDirectory m_directory;
};

using LogLevel = LogSetup;
using LogPath = LogSetup;
using InitializeLog = LogSetup;

}  // namespace

TEST(StringToLogLevel, ComparesTheWholeTextCaseSensitively)
{
    const struct
    {
        const char* text;
        int level;
    } cases[] = {
        {"DEBUG", 1},     {"MESSAGE", 2}, {"WARNING", 4}, {"ERROR", 8},   {"CRITICAL", 16},
        {"VERBOSE", 17},  {"debug", 8},   {"Debug", 8},   {" DEBUG", 8},  {"DEBUG ", 8},
        {"VERBOSEST", 8}, {"", 8},        {"1", 8},       {"verbose", 8},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(StringToLogLevel(c.text), c.level) << c.text;
    }
}

TEST_F(LogLevel, IsErrorWithoutALevelFile)
{
    EXPECT_EQ(GetLogLevel(), LOGLEVEL_ERROR);
}

TEST_F(LogLevel, ComesFromTheLevelFile)
{
    EXPECT_EQ(LevelOf("[LOG]\nLEVEL=DEBUG\n"), 1);
    EXPECT_EQ(LevelOf("[LOG]\nLEVEL=VERBOSE\n"), 17);
    EXPECT_EQ(LevelOf("[LOG]\nLEVEL=verbose\n"), 8);
    EXPECT_EQ(LevelOf("[LOG]\nLEVEL = DEBUG\n"), 8);
    EXPECT_EQ(LevelOf("[LOG]\nLEVEL= DEBUG\n"), 8);
    EXPECT_EQ(LevelOf("[LOG]\nLEVEL=\n"), 8);
    EXPECT_EQ(LevelOf("[LOG]\n"), 8);
    EXPECT_EQ(LevelOf("[LOG]\nLEVEL=" + std::string(1024, 'D') + "\n"), 8);
}

TEST_F(LogLevel, LogsNothing)
{
    LogRecorder recorder;
    logger = &recorder;
    LevelOf("[LOG]\nLEVEL==\n");
    EXPECT_TRUE(recorder.records().empty());
}

TEST_F(LogPath, IsInTheHomeDirectoryUnderTheSdkName)
{
    g_fake_machine.user->home = "/Users/u";
    EXPECT_EQ(GetLogPath(), "/Users/u/Library/Logs/abc/qv7log");
}

TEST_F(LogPath, LeavesAnUnknownSdkNameOrHomeEmpty)
{
    g_fake_machine.user->home = "";
    EXPECT_EQ(GetLogPath(), "/Library/Logs/abc/qv7log");
    g_fake_machine.executable = "";
    g_fake_machine.user->home = "/Users/u";
    EXPECT_EQ(GetLogPath(), "/Users/u/Library/Logs//qv7log");
}

TEST_F(InitializeLog, StoresTheLibrarysLog)
{
    LogRecorder recorder;
    g_fake_log_library.log = &recorder;
    g_fake_log_library.get_result = 5;  // Ignored.
    m_directory.Write("home/Library/Application Support/abc/log.ini", "[LOG]\nLEVEL=WARNING\n");

    InitLog("app");

    EXPECT_EQ(logger, &recorder);
    EXPECT_EQ(g_fake_log_library.init_paths,
              std::vector<std::string>{m_directory.path() + "/home/Library/Logs/abc/qv7log"});
    ASSERT_EQ(g_fake_log_library.get_calls.size(), 1U);
    const FakeLogLibrary::GetLoggerCall& call = g_fake_log_library.get_calls[0];
    EXPECT_EQ(call.kind, 2);
    EXPECT_EQ(call.name, "launcher");
    EXPECT_EQ(call.level, LOGLEVEL_WARNING);
    EXPECT_TRUE(call.out_was_null);
    EXPECT_TRUE(g_system_events.empty());
}

TEST_F(InitializeLog, ReplacesTheLogWhenCalledAgain)
{
    LogRecorder first;
    LogRecorder second;
    g_fake_log_library.log = &first;
    InitLog("app");
    g_fake_log_library.log = &second;
    InitLog("app");
    EXPECT_EQ(logger, &second);
    EXPECT_EQ(g_fake_log_library.init_paths.size(), 2U);
}

TEST_F(InitializeLog, WritesASystemEventIfTheLibraryFails)
{
    for (const std::int32_t result : {1, -1}) {
        g_system_events.clear();
        g_fake_log_library.init_result = result;

        InitLog("launcher");

        EXPECT_EQ(g_system_events,
                  (std::vector<std::pair<int, std::string>>{
                      {3, "Morvel Launcher for launcher : Failed to initialize logger"}}));
        EXPECT_EQ(logger, nullptr);
        EXPECT_TRUE(g_fake_log_library.get_calls.empty());
        __LOG__A(logger, LOGLEVEL_ERROR, "dropped");
    }
}

TEST_F(InitializeLog, LeavesLoggerNullIfTheLibraryReturnsNoLog)
{
    InitLog("app");
    EXPECT_EQ(g_fake_log_library.get_calls.size(), 1U);
    EXPECT_EQ(logger, nullptr);
    EXPECT_TRUE(g_system_events.empty());
}
