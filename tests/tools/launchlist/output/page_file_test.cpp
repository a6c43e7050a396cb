#include "tools/launchlist/output/page_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/support/temp_folder.h"
#include "tools/launchlist/output/report_output.h"

using namespace launchlist;

namespace {

class WritePageTest : public testing::Test
{
protected:
    // Writes "new" to `name`; the error, or "".
    std::string Write(const std::string& name, bool is_forced = false)
    {
        std::string error;
        const bool is_written = WritePage(m_folder / name, Page("new"), m_inputs, is_forced, error);
        EXPECT_EQ(is_written, error.empty()) << error;
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_folder.path()),
                                std::filesystem::directory_iterator()),
                  is_written || Exists(name) ? 1 : 0)
            << "a file is left over";
        return error;
    }

    bool Exists(const std::string& name)
    {
        struct stat status = {};
        return lstat((m_folder / name).c_str(), &status) == 0;
    }

    std::string Read(const std::string& name)
    {
        std::ifstream file(m_folder / name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    static std::string Page(const std::string& text) { return std::string(kPageMark) + text; }

    const TempFolder m_folder;
    std::vector<LogFile> m_inputs;
};

}  // namespace

TEST_F(WritePageTest, CreatesAPrivateFile)
{
    const mode_t mask = umask(0777);
    EXPECT_EQ(Write("page"), "");
    umask(mask);
    struct stat status = {};
    ASSERT_EQ(stat((m_folder / "page").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(Read("page"), Page("new"));
}

TEST_F(WritePageTest, ReplacesAPage)
{
    m_folder.Write("page", Page("a longer old page"));
    EXPECT_EQ(Write("page"), "");
    EXPECT_EQ(Read("page"), Page("new"));
}

TEST_F(WritePageTest, KeepsAnyOtherFileUnlessForced)
{
    m_folder.Write("page", "precious");
    EXPECT_NE(Write("page").find("--force"), std::string::npos);
    EXPECT_EQ(Read("page"), "precious");
    EXPECT_EQ(Write("page", true), "");
    EXPECT_EQ(Read("page"), Page("new"));
}

TEST_F(WritePageTest, NeverReplacesAnInput)
{
    struct stat status = {};
    ASSERT_EQ(stat(m_folder.Write("log", Page("old")).c_str(), &status), 0);
    LogFile input;
    input.has_id = true;
    input.id = FileId(status.st_dev, status.st_ino);
    m_inputs.push_back(input);
    for (const bool is_forced : {false, true}) {
        EXPECT_NE(Write("log", is_forced), "");
        EXPECT_EQ(Read("log"), Page("old"));
    }
}

TEST_F(WritePageTest, FollowsNoSymbolicLink)
{
    const TempFolder other;
    other.Write("page", Page("old"));
    ASSERT_EQ(symlink((other / "page").c_str(), (m_folder / "link").c_str()), 0);
    for (const bool is_forced : {false, true}) {
        EXPECT_NE(Write("link", is_forced), "");
    }
    std::ifstream file(other / "page");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), Page("old"));
}

TEST_F(WritePageTest, ReplacesNoDirectory)
{
    ASSERT_EQ(mkdir((m_folder / "page").c_str(), 0700), 0);
    EXPECT_NE(Write("page", true), "");
}
