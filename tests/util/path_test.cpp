#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "util/util.h"

namespace {

struct Case
{
    std::string path, result;
};

void ExpectResults(std::string (*function)(std::string), const std::vector<Case>& cases)
{
    for (const Case& c : cases) {
        EXPECT_EQ(function(c.path), c.result) << '"' << c.path << '"';
    }
}

}  // namespace

TEST(EnsureEndsWithDivider, AddsASlashIfThereIsNone)
{
    const std::vector<Case> cases = {
        {"", "/"}, {"/", "/"}, {"a/b", "a/b/"}, {"a/b/", "a/b/"}, {"a//", "a//"},
    };
    ExpectResults(ensure_ends_with_divider, cases);
}

TEST(EnsureEndsWithDivider, DoesNotTreatABackslashAsADivider)
{
    ExpectResults(ensure_ends_with_divider, {{"a\\", "a\\/"}, {"\\", "\\/"}});
}

TEST(RemoveHeadSlashes, RemovesSlashesAndBackslashes)
{
    const std::vector<Case> cases = {
        {"", ""}, {"a/b", "a/b"}, {"/a", "a"}, {"//\\a/b", "a/b"}, {"\\/a\\", "a\\"},
    };
    ExpectResults(remove_head_slashes, cases);
}

TEST(RemoveHeadSlashes, KeepsAPathOfSlashesOnly)
{
    ExpectResults(remove_head_slashes, {{"///", "///"}, {"/", "/"}, {"\\", "\\"}, {"/\\", "/\\"}});
}

TEST(RemoveTailSlashes, RemovesSlashesAndBackslashes)
{
    const std::vector<Case> cases = {
        {"", ""}, {"a/b", "a/b"}, {"a/", "a"}, {"a/b\\//", "a/b"}, {"\\a/\\", "\\a"},
    };
    ExpectResults(remove_tail_slashes, cases);
}

TEST(RemoveTailSlashes, KeepsAPathOfSlashesOnly)
{
    ExpectResults(remove_tail_slashes, {{"///", "///"}, {"/", "/"}, {"\\", "\\"}, {"/\\", "/\\"}});
}

TEST(RemoveDuplicatedSlashes, ReplacesEveryRunByASingleSlash)
{
    const std::vector<Case> cases = {
        {"", ""},           {"/", "/"},          {"//", "/"}, {"a/b", "a/b"}, {"a//b///c", "a/b/c"},
        {"//a////", "/a/"}, {"aa//bb", "aa/bb"},
    };
    ExpectResults(remove_duplicated_slashes, cases);
}

TEST(RemoveDuplicatedSlashes, KeepsBackslashes)
{
    ExpectResults(remove_duplicated_slashes,
                  {{"a\\\\b", "a\\\\b"}, {"/\\/", "/\\/"}, {"//\\//", "/\\/"}});
}

TEST(SplitContainerName, SplitsAtTheFirstSlashAfterTheLeadingOnes)
{
    const struct
    {
        std::string path, container, rest;
    } cases[] = {
        {"a", "a", ""},      {"a/", "a", ""},      {"/a/b/c", "a", "b/c"},  {"\\/a/b", "a", "b"},
        {"a/b/", "a", "b/"}, {"a\\b", "a\\b", ""}, {"a\\b/c", "a\\b", "c"}, {"\\", "\\", ""},
    };
    for (const auto& c : cases) {
        std::string container = "before";
        std::string rest = "before";
        split_container_name(c.path, container, rest);
        EXPECT_EQ(container, c.container) << c.path;
        EXPECT_EQ(rest, c.rest) << c.path;
    }
}

TEST(SplitContainerName, KeepsASecondLeadingSlashOfTheRest)
{
    std::string container;
    std::string rest;
    split_container_name("//a//b", container, rest);
    EXPECT_EQ(container, "a");
    EXPECT_EQ(rest, "/b");
}

TEST(SplitContainerName, GivesAnEmptyContainerForSlashesOnly)
{
    std::string container = "before";
    std::string rest;
    split_container_name("///", container, rest);
    EXPECT_EQ(container, "");
    EXPECT_EQ(rest, "//");
}

TEST(SplitContainerName, ChangesNeitherForTheEmptyPath)
{
    std::string container = "before";
    std::string rest = "unchanged";
    split_container_name("", container, rest);
    EXPECT_EQ(container, "before");
    EXPECT_EQ(rest, "unchanged");
}

TEST(GetFileName, ReturnsTheTextAfterTheLastSlash)
{
    const std::vector<Case> cases = {
        {"", ""}, {"a/b/c.txt", "c.txt"}, {"c.txt", "c.txt"}, {"/c", "c"}, {"a/b/", ""}, {"/", ""},
    };
    ExpectResults(get_file_name, cases);
}

TEST(GetFileName, TreatsABackslashAsAnOrdinaryCharacter)
{
    ExpectResults(get_file_name, {{"a\\b", "a\\b"}, {"a/b\\c", "b\\c"}, {"a\\", "a\\"}});
}
