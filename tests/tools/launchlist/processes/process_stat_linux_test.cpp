#include "tools/launchlist/processes/process_stat_linux.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

using namespace launchlist;

namespace {

// The fields after the name, from the state to the number of resident pages.
constexpr char kFields[] =
    " S 41 42 43 0 -1 4194368 1 2 3 4 50 60 7 8 20 0 1 0 987654 1000 321 99 1 2";

}  // namespace

TEST(ParseProcessStat, ReadsTheFields)
{
    const auto stat = ParseProcessStat("40 (stay)" + std::string(kFields));
    ASSERT_TRUE(stat);
    EXPECT_EQ(stat->state, 'S');
    EXPECT_EQ(stat->parent, 41);
    EXPECT_EQ(stat->flags, 4194368U);
    EXPECT_EQ(stat->cpu, 110U);
    EXPECT_EQ(stat->start, 987654U);
    EXPECT_EQ(stat->resident, 321U);
}

TEST(ParseProcessStat, IsNotMisledByTheName)
{
    for (const char* name :
         {"", ")", "a) R 1 2 3", "(", "a\nb", ") S 9 9 9 0 -1 0", "\xff\x1b[2J"}) {
        const auto stat = ParseProcessStat("40 (" + std::string(name) + ")" + kFields);
        ASSERT_TRUE(stat) << name;
        EXPECT_EQ(stat->parent, 41) << name;
        EXPECT_EQ(stat->start, 987654U) << name;
    }
}

TEST(ParseProcessStat, RejectsATextThatIsCutOff)
{
    const std::string whole = "40 (stay)" + std::string(kFields);
    const std::size_t needed = whole.find(" 321") + 4;
    EXPECT_TRUE(ParseProcessStat(whole.substr(0, needed)));
    for (std::size_t size = 0; size < needed - 3; ++size) {
        EXPECT_FALSE(ParseProcessStat(whole.substr(0, size))) << size;
    }
    EXPECT_FALSE(ParseProcessStat("40 (stay) S x 42"));
}

TEST(ParseProcessStat, KnowsAnotherProgramByItsNameAndAddresses)
{
    // The fields after the resident pages.
    const auto image = [](const std::string& name, const std::string& rest) {
        const std::string fields = std::string(kFields).substr(0, std::string(kFields).find(" 99"));
        const auto stat = ParseProcessStat("40 (" + name + ")" + fields + " 99 " + rest);
        return stat ? stat->image : 1;
    };
    const std::string rest =
        "4096 8192 7000 0 0 0 0 0 0 0 0 0 17 1 0 0 0 0 0 500 501 502 9000 "
        "9001 9002 9003 0";
    const std::uint64_t first = image("a", rest);
    EXPECT_NE(first, 0U);
    EXPECT_EQ(image("a", rest), first);
    EXPECT_NE(image("b", rest), first);
    for (const char* address : {"4096", "8192", "7000", "9000", "9001", "9002", "9003"}) {
        std::string changed = rest;
        changed[changed.find(address)] = '6';
        EXPECT_NE(image("a", changed), first) << address;
    }
    // What changes while the program runs: signals, the processor, the waiting place.
    std::string changed = rest;
    changed[changed.find("17")] = '2';
    EXPECT_EQ(image("a", changed), first);
    // The addresses are hidden, or the kernel does not know them.
    EXPECT_EQ(image("a", "1 1 0 0 0 0 0 0 0 0 0 0 17 1 0 0 0 0 0 0 0 0 0 0 0 0 0"), 0U);
    EXPECT_EQ(image("a", "4096 8192 7000 0 0"), 0U);
}

TEST(ParseUser, ReturnsTheRealUser)
{
    EXPECT_EQ(ParseUser("Name:\tUid: 7\nState:\tS\nUid:\t1000\t0\t0\t0\nGid:\t5\t5\t5\t5\n"),
              1000U);
    EXPECT_FALSE(ParseUser("Name:\tstay\nGid:\t1\t1\t1\t1\n"));
    EXPECT_FALSE(ParseUser("Uid:\t\n"));
}

TEST(ParseOpenFlags, ReadsAnOctalNumber)
{
    EXPECT_EQ(ParseOpenFlags("pos:\t0\nflags:\t0102001\nmnt_id:\t3\n"), 0102001);
    EXPECT_FALSE(ParseOpenFlags("pos:\t0\n"));
    EXPECT_FALSE(ParseOpenFlags("flags:\t9\n"));
}
