#include "config/executable_path.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string OwnPath()
{
    char path[4096];
    EXPECT_TRUE(GetExecutablePath(path, sizeof path));
    return path;
}

}  // namespace

TEST(GetExecutablePath, GivesTheAbsolutePathOfThisProgram)
{
    const std::string path = OwnPath();
    const std::string name = "/config_executable_path_test";
    EXPECT_EQ(path.front(), '/');
    ASSERT_GE(path.size(), name.size());
    EXPECT_EQ(path.substr(path.size() - name.size()), name);
}

TEST(GetExecutablePath, FillsABufferOfExactlyTheNeededSize)
{
    const std::string path = OwnPath();
    std::vector<char> buffer(path.size() + 1, 'x');
    ASSERT_TRUE(GetExecutablePath(buffer.data(), static_cast<std::uint32_t>(buffer.size())));
    EXPECT_EQ(path, buffer.data());
}

TEST(GetExecutablePath, FailsAndLeavesTheBufferUnchangedIfTheNulDoesNotFit)
{
    const std::string path = OwnPath();
    std::vector<char> buffer(path.size(), 'x');
    EXPECT_FALSE(GetExecutablePath(buffer.data(), static_cast<std::uint32_t>(buffer.size())));
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), std::string(path.size(), 'x'));
}
