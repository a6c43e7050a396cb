#include "launcher/log_messages.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <string>

namespace {

// `text` without blanks.
std::string Joined(const std::string& text)
{
    return std::regex_replace(text, std::regex(" "), "");
}

// The messages that launcher(8) describes, without their conversions and blanks.
std::set<std::string> MessagesOfTheManual()
{
    std::set<std::string> messages;
    std::ifstream page(KESTRANE_DOCS "/man/launcher.8");
    for (std::string line; std::getline(page, line);) {
        std::smatch match;
        if (std::regex_match(line, match, std::regex(R"(\.It (\[LAUNCHER.*))"))) {
            // "Ar" precedes the names of values, and "No" the text that follows them.
            const std::string text =
                std::regex_replace(match[1].str(), std::regex(R"(Ar (name pid|\S+)|No |\\)"), "");
            messages.insert(Joined(text));
        }
    }
    return messages;
}

}  // namespace

TEST(LogMessages, AreThoseOfTheManual)
{
    std::set<std::string> messages;
    for (const char* format :
         {kItemStarts, kItemEnded, kForkFailed, kItemHasNoProgram, kItemHasNoName, kListRejected}) {
        messages.insert(Joined(std::regex_replace(format, std::regex("%[sd]"), "")));
    }
    EXPECT_EQ(MessagesOfTheManual(), messages);
}

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
