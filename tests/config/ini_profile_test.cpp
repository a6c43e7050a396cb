#include "config/ini_profile.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <cstring>
#include <vector>

#include "tests/support/never_returns.h"
#include "tests/support/next_descriptor.h"
#include "tests/support/temp_directory.h"

namespace {

int g_opened = 0;

}  // namespace

// Counts the files that the code under test opens.
extern "C" FILE* fopen(const char* path, const char* mode)
{
    static const auto real =
        reinterpret_cast<FILE* (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "fopen"));
    ++g_opened;
    return real(path, mode);
}

namespace {

class IniProfile : public testing::Test
{
protected:
    // The value of LOG/LEVEL in a file with the content `ini`; "-" if there is none.
    std::string Value(const std::string& ini, const std::string& section = "LOG",
                      const std::string& key = "LEVEL")
    {
        char buffer[4096] = {};
        const std::string file = m_directory.Write("test.ini", ini);
        const std::uint64_t length =
            GetPrivateProfileString(section, key, "-", buffer, sizeof buffer, file);
        EXPECT_EQ(length, std::strlen(buffer));
        return buffer;
    }

    std::uint32_t Number(const std::string& ini)
    {
        return GetPrivateProfileInt("S", "N", 77, m_directory.Write("test.ini", ini));
    }

    TempDirectory m_directory;
};

using ProfileString = IniProfile;
using ProfileInt = IniProfile;

struct Case
{
    std::string ini;
    std::string value;
};

}  // namespace

TEST_F(ProfileString, FindsTheValueOfAKeyInItsSection)
{
    const std::vector<Case> cases = {
        {"[LOG]\nLEVEL=DEBUG\n", "DEBUG"},
        {"[LOG]\nLEVEL=DEBUG", "DEBUG"},
        {"[A]\nLEVEL=x\n[LOG]\nLEVEL=y\n", "y"},
        {"LEVEL=x\n[LOG]\nOTHER=y\n", "-"},
        {"", "-"},
        {"[LOG]\n", "-"},
        {"[LOG]\nOTHER=1\n", "-"},
        {"[OTHER]\nLEVEL=1\n", "-"},
        {"[LOG]\r\nLEVEL=DEBUG\r\n", "DEBUG"},
        {"[LOG]\n\n   \nLEVEL=DEBUG\n", "DEBUG"},
        {"  [LOG]  \n\t LEVEL=DEBUG \t\n", "DEBUG"},
        {"[LOG]\nLEVEL=\"a\\b\"\n", "\"a\\b\""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Value(c.ini), c.value) << c.ini;
    }
}

TEST_F(ProfileString, IgnoresCaseInSectionsAndKeysAndTrimsSections)
{
    for (const char* section : {"LOG", "log", " Log ", "\tlOg\n"}) {
        EXPECT_EQ(Value("[ log ]\nLevel=x\n", section), "x") << section;
        EXPECT_EQ(Value("[LOG]\nlevel=x\n", section), "x") << section;
    }
    EXPECT_EQ(Value("[L\xC3\x89]\nK=x\n", "L\xC3\xA9", "K"), "-") << "only A to Z are folded";
    EXPECT_EQ(Value("[LOG]\nLEVEL=MiXed\n"), "MiXed") << "values stay as they are written";
}

TEST_F(ProfileString, DoesNotTrimKeysAndValues)
{
    EXPECT_EQ(Value("[LOG]\nLEVEL = DEBUG\n"), "-");
    EXPECT_EQ(Value("[LOG]\nLEVEL = DEBUG\n", "LOG", "LEVEL "), " DEBUG");
    EXPECT_EQ(Value("[LOG]\nLEVEL= DEBUG\n"), " DEBUG");
    EXPECT_EQ(Value("[LOG]\nLEVEL=DEBUG\n", "LOG", " LEVEL"), "-");
}

TEST_F(ProfileString, EndsAValueAtTheNextEqualsSign)
{
    EXPECT_EQ(Value("[LOG]\nLEVEL=a=b\n"), "a");
}

TEST_F(ProfileString, SkipsAKeyWithoutValue)
{
    EXPECT_EQ(Value("[LOG]\nLEVEL=\nLEVEL=b\n"), "b");
    EXPECT_EQ(Value("[LOG]\nLEVEL\nLEVEL=b\n"), "b");
    EXPECT_EQ(Value("[LOG]\nLEVEL=   \nLEVEL=b\n"), "b") << "blanks at a line's end are trimmed";
}

TEST_F(ProfileString, ReturnsTheFirstOfTwoKeys)
{
    EXPECT_EQ(Value("[LOG]\nLEVEL=a\nLEVEL=b\n"), "a");
}

TEST_F(ProfileString, SearchesOnlyTheFirstOfTwoSections)
{
    EXPECT_EQ(Value("[LOG]\nA=1\n[LOG]\nLEVEL=b\n"), "-");
}

TEST_F(ProfileString, EndsTheSectionAtAnyLineThatBeginsWithABracket)
{
    EXPECT_EQ(Value("[LOG]\n[abc\nLEVEL=b\n"), "-");
    EXPECT_EQ(Value("[LOG]\n  [LEVEL=c\nLEVEL=b\n"), "-");
}

TEST_F(ProfileString, TreatsOnlyLinesOfThreeCharactersAndBothBracketsAsHeaders)
{
    EXPECT_EQ(Value("[]\nLEVEL=a\n", ""), "-");
    EXPECT_EQ(Value("[ ]\nLEVEL=a\n", ""), "a") << "a name of blanks is the empty name";
    EXPECT_EQ(Value("[LOG\nLEVEL=a\n"), "-");
    EXPECT_EQ(Value("LOG]\nLEVEL=a\n"), "-");
    EXPECT_EQ(Value("[LOG] x\nLEVEL=a\n"), "-");
    EXPECT_EQ(Value("[L]\nLEVEL=a\n", "L"), "a");
}

TEST_F(ProfileString, HasNoComments)
{
    EXPECT_EQ(Value("[LOG]\n;LEVEL=a\n#LEVEL=b\n"), "-");
    EXPECT_EQ(Value("[LOG]\n;LEVEL=a\n", "LOG", ";level"), "a");
    EXPECT_EQ(Value("[LOG]\nLEVEL=a ; b\n"), "a ; b");
}

TEST_F(ProfileString, KeepsBytesFrom0x80UpAtTheEndsOfALine)
{
    EXPECT_EQ(Value("[LOG]\nLEVEL=a\xA0\n"), "a\xA0");
    EXPECT_EQ(Value("[LOG]\n\xA0LEVEL=a\n"), "-");
}

TEST_F(ProfileString, EndsALineAtItsFirstNul)
{
    const std::string nul(1, '\0');
    EXPECT_EQ(Value("[LOG]\nLEVEL=a" + nul + "b\nLEVEL=c\n"), "a");
    EXPECT_EQ(Value("[LOG]" + nul + "x\nLEVEL=c\n"), "c");
}

TEST_F(ProfileString, ReadsALineOf3000BytesAsTwo)
{
    // 2,047 and 953 bytes, each treated as a line.
    EXPECT_EQ(Value("[LOG]\n" + std::string(2047, 'x') + "LEVEL=" + std::string(947, 'v') + "\n"),
              std::string(947, 'v'));
    EXPECT_EQ(Value("[LOG]\n" + std::string(2046, 'x') + "LEVEL=v\n"), "-");
    EXPECT_EQ(Value("[LOG]\nLEVEL=" + std::string(3000, 'v') + "\n"), std::string(2041, 'v'));
}

TEST_F(ProfileString, ReturnsTheDefaultWithoutAFile)
{
    char buffer[16] = "unchanged";
    EXPECT_EQ(GetPrivateProfileString("LOG", "LEVEL", "ERROR", buffer, sizeof buffer,
                                      m_directory.path() + "/none"),
              5U);
    EXPECT_STREQ(buffer, "ERROR");
}

TEST_F(ProfileString, OpensNothingWithoutABuffer)
{
    const std::string file = m_directory.Write("test.ini", "[LOG]\nLEVEL=x\n");
    char buffer[8] = "same";
    g_opened = 0;
    EXPECT_EQ(GetPrivateProfileString("LOG", "LEVEL", "d", nullptr, 8, file), 0U);
    EXPECT_EQ(GetPrivateProfileString("LOG", "LEVEL", "d", buffer, 0, file), 0U);
    EXPECT_EQ(g_opened, 0);
    EXPECT_STREQ(buffer, "same");
    EXPECT_EQ(GetPrivateProfileString("LOG", "LEVEL", "d", buffer, 8, file), 1U);
    EXPECT_EQ(g_opened, 1);
}

TEST_F(ProfileString, TreatsAValueThatDoesNotFitAsMissing)
{
    const std::string file = m_directory.Write("test.ini", "[LOG]\nLEVEL=1234567\n");
    char buffer[8] = {};
    EXPECT_EQ(GetPrivateProfileString("LOG", "LEVEL", "d", buffer, 8, file), 7U);
    EXPECT_STREQ(buffer, "1234567");
    EXPECT_EQ(GetPrivateProfileString("LOG", "LEVEL", "d", buffer, 7, file), 1U);
    EXPECT_STREQ(buffer, "d");
}

TEST_F(ProfileString, LeavesTheBufferUnchangedIfTheDefaultDoesNotFit)
{
    char buffer[9] = "same";
    const std::string file = m_directory.Write("test.ini", "[LOG]\n");
    EXPECT_EQ(GetPrivateProfileString("LOG", "LEVEL", "DEFAULT12", buffer, 8, file), 0U);
    EXPECT_STREQ(buffer, "same");
    EXPECT_EQ(GetPrivateProfileString("LOG", "LEVEL", "DEFAULT1", buffer, 9, file), 8U);
    EXPECT_STREQ(buffer, "DEFAULT1");
}

TEST_F(ProfileString, ReplacesAnEmptyValueByTheDefault)
{
    const std::string file = m_directory.Write("test.ini", "[LOG]\nLEVEL==x\nLEVEL=y\n");
    char buffer[8] = "same";
    EXPECT_EQ(GetPrivateProfileString("LOG", "LEVEL", "def", buffer, 8, file), 3U);
    EXPECT_STREQ(buffer, "def");
    EXPECT_EQ(GetPrivateProfileString("LOG", "LEVEL", "toolong", buffer, 4, file), 0U);
    EXPECT_STREQ(buffer, "");
}

TEST_F(ProfileString, DoesNotLimitTheCopyForANegativeSize)
{
    const std::string file = m_directory.Write("test.ini", "[LOG]\nLEVEL=value\n");
    char buffer[8] = {};
    EXPECT_EQ(GetPrivateProfileString("LOG", "LEVEL", "d", buffer, -1, file), 5U);
    EXPECT_STREQ(buffer, "value");
}

TEST_F(ProfileString, ClosesTheFileOnEveryPath)
{
    const int before = NextDescriptor();
    Value("[LOG]\nLEVEL=x\n");
    Value("[LOG]\n[B]\n");
    Value("[B]\n");
    Number("[S]\nN=1\n");
    Number("[S]\n");
    EXPECT_EQ(NextDescriptor(), before);
}

TEST_F(ProfileString, NeverReturnsForADirectory)
{
    // A directory can be opened but not read.
    EXPECT_TRUE(NeverReturns([this] {
        char buffer[8] = {};
        GetPrivateProfileString("LOG", "LEVEL", "d", buffer, 8, m_directory.path());
    }));
}

TEST_F(ProfileInt, ConvertsTheValueAsAtoiDoes)
{
    const struct
    {
        const char* line;
        std::uint32_t number;
    } cases[] = {
        {"N=12", 12},    {"N= 12", 12}, {"N=-1", 4294967295U},         {"N=+3", 3},
        {"N=12abc", 12}, {"N=abc", 0},  {"N=2147483647", 2147483647U}, {"n=0x10", 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Number(std::string("[S]\n") + c.line + "\n"), c.number) << c.line;
    }
}

TEST_F(ProfileInt, ReturnsTheDefaultOnlyWithoutAFile)
{
    EXPECT_EQ(GetPrivateProfileInt("S", "N", 77, m_directory.path() + "/none"), 77U);
    EXPECT_EQ(Number(""), 0U);
    EXPECT_EQ(Number("[S]\nM=1\n"), 0U);
    EXPECT_EQ(Number("[T]\nN=1\n"), 0U);
    EXPECT_EQ(Number("[S]\n[T]\nN=1\n"), 0U);
    EXPECT_EQ(Number("[S]\nN==5\n"), 0U);
}

TEST_F(ProfileInt, StopsAtTheFirstKey)
{
    EXPECT_EQ(Number("[S]\nN=1\nN=2\n"), 1U);
}
