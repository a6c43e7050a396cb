// The message of GetLogLevel for a profile reader that returns nothing. With a default our reader
// always returns something, so this test replaces it.
#include <gtest/gtest.h>

#include "config/ini_profile.h"
#include "logging/log_setup.h"
#include "tests/support/fake_log_library.h"
#include "tests/support/log_recorder.h"

ILog* logger = nullptr;

std::uint64_t GetPrivateProfileString(std::string, std::string, std::string, char*, std::int32_t,
                                      std::string)
{
    return 0;
}

std::uint32_t GetPrivateProfileInt(std::string, std::string, std::uint32_t, std::string)
{
    return 0;
}

TEST(LevelMessage, IsLoggedIfTheReaderReturnsNothing)
{
    LogRecorder recorder;
    logger = &recorder;
    EXPECT_EQ(GetLogLevel(), LOGLEVEL_ERROR);
    EXPECT_EQ(recorder.records(),
              (std::vector<Record>{{LOGLEVEL_ERROR, "[SERVICE   ] Failed to get log level"}}));
}

TEST(LevelMessage, IsDroppedAtStartUpBecauseTheLevelIsReadBeforeTheLogIsSetUp)
{
    LogRecorder recorder;
    logger = nullptr;
    g_fake_log_library.log = &recorder;
    InitLog("app");
    EXPECT_EQ(logger, &recorder);
    EXPECT_TRUE(recorder.records().empty());
}
