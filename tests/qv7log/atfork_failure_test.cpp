// A log whose forked children could not be told apart is none.
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <filesystem>

#include "tests/qv7log/read_log.h"

// In place of the system's, which runs out of memory here.
extern "C" int pthread_atfork(void (*)(), void (*)(), void (*)())
{
    return ENOMEM;
}

TEST(InitLogger, FailsWithoutANoticeOfForks)
{
    TempFolder folder;
    EXPECT_EQ(InitLogger((folder / "log").c_str()), ENOMEM);
    ILog* log = nullptr;
    EXPECT_EQ(GetLogger(LOGKIND_FILE, "test", LOGLEVEL_ERROR, &log), EINVAL);
    EXPECT_EQ(log, nullptr);
    EXPECT_FALSE(std::filesystem::exists(folder / "log"));
}
