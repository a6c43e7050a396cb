#include "util/string_util.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(Split, KeepsALeadingButNoTrailingEmptyPiece)
{
    EXPECT_EQ(split("/a/", std::regex("/")), (std::vector<std::string>{"", "a"}));
}
