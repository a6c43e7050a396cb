#include "launcher/log_messages.h"

#include <gtest/gtest.h>

TEST(LogMessages, AllBeginWithTheTag)
{
    for (const std::string_view format :
         {kReadingList, kListNotOpened, kListEmpty, kListNotRead, kItemHasNoName, kListRejected,
          kItemStarts, kForkFailed, kItemHasNoProgram, kItemEnded}) {
        EXPECT_EQ(format.substr(0, kLauncherTag.size()), kLauncherTag) << format;
    }
}

TEST(WithoutTag, LeavesTheTextAfterTheTag)
{
    EXPECT_EQ(WithoutTag(kItemHasNoName), "There is an item has no name.");
}

TEST(LiteralPart, GivesTheTextBetweenConversions)
{
    EXPECT_EQ(LiteralPart(kItemHasNoProgram, 0), "program path of ");
    EXPECT_EQ(LiteralPart(kItemHasNoProgram, 1), " is empty");
    EXPECT_EQ(LiteralPart(kItemEnded, 0), "");
    EXPECT_EQ(LiteralPart(kItemEnded, 1), " ");
    EXPECT_EQ(LiteralPart(kItemEnded, 2), " is killed. ret = ");
    EXPECT_EQ(LiteralPart(kItemEnded, 3), ", status = ");
    EXPECT_EQ(LiteralPart(kItemEnded, 4), "");
}
