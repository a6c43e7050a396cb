// Without a fork handler, the records of a forked child would carry its parent's process id.
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <filesystem>

#include "tests/qv7log/read_log.h"

// Replaces the system's function.
extern "C" int pthread_atfork(void (*)(), void (*)(), void (*)())
{
    return ENOMEM;
}

TEST(InitLogger, FailsIfTheForkHandlerCannotBeRegistered)
{
    TempDirectory directory;
    EXPECT_EQ(InitLogger((directory / "log").c_str()), ENOMEM);
    ILog* log = nullptr;
    EXPECT_EQ(GetLogger(LOGKIND_FILE, "test", LOGLEVEL_ERROR, &log), EINVAL);
    EXPECT_EQ(log, nullptr);
    EXPECT_FALSE(std::filesystem::exists(directory / "log"));
}
