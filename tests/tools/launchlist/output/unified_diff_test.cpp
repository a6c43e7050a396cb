// fix_test.py applies the differences of generated lists with patch.
#include "tools/launchlist/output/unified_diff.h"

#include <gtest/gtest.h>

using namespace launchlist;

namespace {

std::string Lines(int first, int last, const std::string& mark = "")
{
    std::string lines;
    for (int i = first; i <= last; ++i) {
        lines += mark + std::to_string(i) + "\n";
    }
    return lines;
}

// The difference without the names of the files.
std::string Diff(const std::string& text, const TextEdits& edits)
{
    const std::string diff = UnifiedDiff("f", text, edits);
    const std::string names = "--- f\n+++ f\n";
    EXPECT_EQ(diff.compare(0, names.size(), names), 0) << diff;
    return diff.substr(std::min(names.size(), diff.size()));
}

}  // namespace

TEST(UnifiedDiff, IsEmptyWithoutEdits)
{
    EXPECT_EQ(UnifiedDiff("f", "text", {}), "");
}

TEST(UnifiedDiff, ShowsThreeLinesAroundAChange)
{
    EXPECT_EQ(Diff(Lines(1, 9), {{8, 1, "five"}}),
              "@@ -2,7 +2,7 @@\n 2\n 3\n 4\n-5\n+five\n 6\n 7\n 8\n");
}

TEST(UnifiedDiff, JoinsChangesThatShareContext)
{
    EXPECT_EQ(Diff(Lines(1, 9), {{0, 1, "one"}, {14, 1, "eight"}}),
              "@@ -1,9 +1,9 @@\n-1\n+one\n 2\n 3\n 4\n 5\n 6\n 7\n-8\n+eight\n 9\n");
    EXPECT_EQ(Diff(Lines(1, 9), {{0, 1, "one"}, {16, 1, "nine"}}),
              "@@ -1,4 +1,4 @@\n-1\n+one\n 2\n 3\n 4\n@@ -6,4 +6,4 @@\n 6\n 7\n 8\n-9\n+nine\n");
}

TEST(UnifiedDiff, CountsAddedAndRemovedLines)
{
    const std::string text = Lines(1, 9) + Lines(1, 9);
    EXPECT_EQ(
        Diff(text, {{0, 4, ""}, {34, 0, "x\ny\n"}}),
        "@@ -1,5 +1,3 @@\n-1\n-2\n 3\n 4\n 5\n@@ -15,4 +13,6 @@\n 6\n 7\n 8\n-9\n+x\n+y\n+9\n");
}

TEST(UnifiedDiff, ShowsAMissingLineEnd)
{
    EXPECT_EQ(Diff("a\nb", {{0, 1, "A"}}),
              "@@ -1,2 +1,2 @@\n-a\n+A\n b\n\\ No newline at end of file\n");
    EXPECT_EQ(Diff("a\nb", {{3, 0, "\n"}}),
              "@@ -1,2 +1,2 @@\n a\n-b\n\\ No newline at end of file\n+b\n");
    EXPECT_EQ(Diff("a\n", {{1, 1, ""}}), "@@ -1,1 +1,1 @@\n-a\n+a\n\\ No newline at end of file\n");
}

TEST(UnifiedDiff, ShowsAFileThatWasOrBecomesEmpty)
{
    EXPECT_EQ(Diff("", {{0, 0, "a\n"}}), "@@ -0,0 +1,1 @@\n+a\n");
    EXPECT_EQ(Diff("a\n", {{0, 2, ""}}), "@@ -1,1 +0,0 @@\n-a\n");
    EXPECT_EQ(Diff("a\n", {{2, 0, "b\n"}}), "@@ -1,1 +1,2 @@\n a\n+b\n");
}

TEST(UnifiedDiff, IncludesTheLineThatIsJoined)
{
    EXPECT_EQ(Diff("a\nb\nc\n", {{1, 1, ""}, {3, 1, "-"}}), "@@ -1,3 +1,1 @@\n-a\n-b\n-c\n+ab-c\n");
    EXPECT_EQ(Diff("a\nb\nc\nd\n", {{1, 1, ""}, {4, 1, "C"}}),
              "@@ -1,4 +1,3 @@\n-a\n-b\n+ab\n-c\n+C\n d\n");
}

TEST(UnifiedDiff, EndsANameWithBlanksByATab)
{
    EXPECT_EQ(UnifiedDiff("a b", "x\n", {{0, 1, "y"}}),
              "--- a b\t\n+++ a b\t\n@@ -1,1 +1,1 @@\n-x\n+y\n");
}

TEST(DiffForTerminal, HasNoControlCharacters)
{
    const std::string diff = UnifiedDiff("f\x1b", "\tx\x1b[31m\r\n", {{1, 1, "\xff"}});
    EXPECT_EQ(DiffForTerminal(diff, false),
              "--- f\\x1b\n+++ f\\x1b\n@@ -1,1 +1,1 @@\n-\tx\\x1b[31m\\r\n+\t\\xff\\x1b[31m\\r\n");
    EXPECT_EQ(DiffForTerminal("@@ -1,1 +1,1 @@\n-x\n+y\n z\n", true),
              "\x1b[36m@@ -1,1 +1,1 @@\x1b[0m\n\x1b[1;31m-x\x1b[0m\n\x1b[32m+y\x1b[0m\n z\n");
}
