// This test replaces the calls of the system that can fail while a page is replaced.
#include "tools/launchlist/output/page_file.h"

#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "tests/support/temp_directory.h"
#include "tools/launchlist/output/report_formats.h"

using namespace launchlist;

namespace {

// The errno with which the next call of a function fails.
std::map<std::string, int> g_failures;

// Whether the next call of `function` fails; sets errno.
bool FailsNow(const std::string& function)
{
    const auto failure = g_failures.find(function);
    if (failure == g_failures.end()) {
        return false;
    }
    errno = failure->second;
    g_failures.erase(failure);
    return true;
}

template <typename Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int fchmod(int descriptor, mode_t mode)
{
    return FailsNow("fchmod") ? -1 : Real<int(int, mode_t)>("fchmod")(descriptor, mode);
}

extern "C" ssize_t write(int descriptor, const void* data, size_t size)
{
    if (FailsNow("write")) {
        return -1;
    }
    return Real<ssize_t(int, const void*, size_t)>("write")(descriptor, data, size);
}

extern "C" int fsync(int descriptor)
{
    return FailsNow("fsync") ? -1 : Real<int(int)>("fsync")(descriptor);
}

extern "C" int close(int descriptor)
{
    const int result = Real<int(int)>("close")(descriptor);
    return FailsNow("close") ? -1 : result;
}

extern "C" int rename(const char* from, const char* to)
{
    return FailsNow("rename") ? -1 : Real<int(const char*, const char*)>("rename")(from, to);
}

namespace {

class WritePageTest : public testing::Test
{
protected:
    // Writes "new" to `name`; the error, or "".
    std::string Write(const std::string& name, bool is_forced = false)
    {
        std::string error;
        const bool is_written =
            WritePage(m_directory / name, Page("new"), m_inputs, is_forced, error);
        EXPECT_EQ(is_written, error.empty()) << error;
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_directory.path()),
                                std::filesystem::directory_iterator()),
                  is_written || Exists(name) ? 1 : 0)
            << "a file is left over";
        return error;
    }

    bool Exists(const std::string& name)
    {
        struct stat status = {};
        return lstat((m_directory / name).c_str(), &status) == 0;
    }

    std::string Read(const std::string& name)
    {
        std::ifstream file(m_directory / name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    static std::string Page(const std::string& text) { return std::string(kPageMark) + text; }

    const TempDirectory m_directory;
    std::vector<LogFile> m_inputs;
};

}  // namespace

TEST_F(WritePageTest, CreatesAPrivateFile)
{
    const mode_t mask = umask(0777);
    EXPECT_EQ(Write("page"), "");
    umask(mask);
    struct stat status = {};
    ASSERT_EQ(stat((m_directory / "page").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(Read("page"), Page("new"));
}

TEST_F(WritePageTest, ReplacesAPage)
{
    m_directory.Write("page", Page("a longer old page"));
    EXPECT_EQ(Write("page"), "");
    EXPECT_EQ(Read("page"), Page("new"));
}

TEST_F(WritePageTest, KeepsAnyOtherFileUnlessForced)
{
    m_directory.Write("page", "precious");
    EXPECT_NE(Write("page").find("--force"), std::string::npos);
    EXPECT_EQ(Read("page"), "precious");
    EXPECT_EQ(Write("page", true), "");
    EXPECT_EQ(Read("page"), Page("new"));
}

TEST_F(WritePageTest, NeverReplacesAnInput)
{
    struct stat status = {};
    ASSERT_EQ(stat(m_directory.Write("log", Page("old")).c_str(), &status), 0);
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
    const TempDirectory other;
    other.Write("page", Page("old"));
    ASSERT_EQ(symlink((other / "page").c_str(), (m_directory / "link").c_str()), 0);
    for (const bool is_forced : {false, true}) {
        EXPECT_NE(Write("link", is_forced), "");
    }
    std::ifstream file(other / "page");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), Page("old"));
}

TEST_F(WritePageTest, ReplacesNoDirectory)
{
    ASSERT_EQ(mkdir((m_directory / "page").c_str(), 0700), 0);
    EXPECT_NE(Write("page", true), "");
}

TEST_F(WritePageTest, ReplacesAnEmptyFile)
{
    m_directory.Write("page", "");
    EXPECT_EQ(Write("page"), "");
    EXPECT_EQ(Read("page"), Page("new"));
}

TEST_F(WritePageTest, RecognisesAPageByItsWholeBeginning)
{
    std::string other(2 * kPageMark.size(), 'x');
    other[0] = kPageMark[0];
    for (const std::string& text : {std::string(kPageMark.substr(1)), other}) {
        m_directory.Write("page", text);
        EXPECT_NE(Write("page"), "");
        EXPECT_EQ(Read("page"), text);
    }
}

TEST_F(WritePageTest, ReportsAPathThatCannotBeExamined)
{
    EXPECT_EQ(Write(std::string(300, 'x')), std::strerror(ENAMETOOLONG));
}

TEST_F(WritePageTest, ReportsThatNoFileCanBeCreatedInTheDirectory)
{
    EXPECT_EQ(Write("missing/page"), std::strerror(ENOENT));
    // Room for the name of the page, but not for that of the file that replaces it.
    EXPECT_EQ(Write(std::string(255, 'x')), std::strerror(ENAMETOOLONG));
}

TEST_F(WritePageTest, KeepsThePageAndLeavesNoFileIfAStepFails)
{
    m_directory.Write("page", Page("old"));
    const struct
    {
        const char* function;
        int error;
    } kTable[] = {
        {"fchmod", EPERM}, {"write", ENOSPC}, {"fsync", EIO}, {"close", EIO}, {"rename", EISDIR}};
    for (const auto& row : kTable) {
        g_failures[row.function] = row.error;
        EXPECT_EQ(Write("page", true), std::strerror(row.error)) << row.function;
        EXPECT_EQ(Read("page"), Page("old")) << row.function;
        g_failures.clear();
    }
}

TEST_F(WritePageTest, ReportsTheFirstOfTwoFailures)
{
    g_failures = {{"write", ENOSPC}, {"close", EIO}};
    EXPECT_EQ(Write("page", true), std::strerror(ENOSPC));
    EXPECT_TRUE(g_failures.empty());
}

TEST_F(WritePageTest, RepeatsAnInterruptedWrite)
{
    g_failures = {{"write", EINTR}};
    EXPECT_EQ(Write("page"), "");
    EXPECT_EQ(Read("page"), Page("new"));
}

TEST_F(WritePageTest, WorksWhereAFileCannotBeSynchronized)
{
    g_failures = {{"fsync", EINVAL}};
    EXPECT_EQ(Write("page"), "");
    EXPECT_TRUE(g_failures.empty());
}

TEST_F(WritePageTest, TriesAHundredNames)
{
    const std::string begin = "page.new-" + std::to_string(getpid()) + "-";
    for (int number = 0; number < 99; ++number) {
        m_directory.Write(begin + std::to_string(number), "precious");
    }
    std::string error;
    EXPECT_TRUE(WritePage(m_directory / "page", Page("new"), m_inputs, false, error)) << error;
    m_directory.Write(begin + "99", "precious");
    EXPECT_FALSE(WritePage(m_directory / "page", Page("newer"), m_inputs, false, error));
    EXPECT_EQ(error, std::strerror(EEXIST));
    EXPECT_EQ(Read("page"), Page("new"));
    EXPECT_EQ(Read(begin + "0"), "precious");
    EXPECT_EQ(Read(begin + "99"), "precious");
}

TEST_F(WritePageTest, ReplacesAPageThatIsNotAmongTheInputs)
{
    m_directory.Write("page", Page("old"));
    LogFile without_id;
    LogFile other;
    other.has_id = true;
    m_inputs = {without_id, other};
    EXPECT_EQ(Write("page"), "");
    EXPECT_EQ(Read("page"), Page("new"));
}
