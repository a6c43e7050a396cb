// A build without zlib, whether or not this one has it.
#include <gtest/gtest.h>

#include <string>

#include "tools/launchlist/log/log_bytes.h"

using namespace launchlist;

TEST(PrepareLogWithoutZlib, RejectsCompressedLogs)
{
    std::string bytes = "\x1f\x8b";
    std::string error;
    EXPECT_FALSE(PrepareLog(bytes, error));
    EXPECT_EQ(error, "is compressed by gzip, which this build cannot read; decompress it first");
}

TEST(PrepareLogWithoutZlib, AcceptsOtherLogs)
{
    std::string bytes = "a line\r\n";
    std::string error;
    EXPECT_TRUE(PrepareLog(bytes, error)) << error;
    EXPECT_EQ(bytes, "a line\n");
}
