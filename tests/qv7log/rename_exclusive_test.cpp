// Renaming where the system or the file system does not offer a rename that replaces nothing. This
// test replaces `syscall`, `link` and `unlink`.
#include "qv7log/rename_exclusive.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "tests/support/temp_directory.h"

namespace {

// The errno with which the system's own exclusive rename fails; 0: it succeeds.
int g_system_error = 0;

// What happens directly after a link has been made.
std::function<void()> g_on_link;

// A path that cannot be removed.
std::string g_unremovable;

}  // namespace

extern "C" long syscall(long, ...)
{
    errno = g_system_error;
    return g_system_error == 0 ? 0 : -1;
}

extern "C" int link(const char* from, const char* to)
{
    const int result = linkat(AT_FDCWD, from, AT_FDCWD, to, 0);
    if (result == 0 && g_on_link) {
        g_on_link();
    }
    return result;
}

extern "C" int unlink(const char* path)
{
    if (g_unremovable == path) {
        errno = EPERM;
        return -1;
    }
    return unlinkat(AT_FDCWD, path, 0);
}

namespace {

class RenameExclusive : public testing::Test
{
protected:
    RenameExclusive() : m_from(m_directory.Write("from", "old")), m_to(m_directory / "to")
    {
        g_system_error = ENOSYS;
    }

    ~RenameExclusive() override
    {
        g_on_link = nullptr;
        g_unremovable.clear();
    }

    bool Rename() const { return qv7log::RenameExclusive(m_from.c_str(), m_to.c_str()); }

    // What the file at `path` contains; "none" if there is none.
    static std::string At(const std::string& path)
    {
        std::ifstream file(path);
        return file ? std::string(std::istreambuf_iterator<char>(file), {}) : "none";
    }

    const TempDirectory m_directory;
    const std::string m_from;
    const std::string m_to;
};

}  // namespace

TEST_F(RenameExclusive, ReportsTheErrorOfTheSystem)
{
    for (const int error : {EPERM, EEXIST}) {
        g_system_error = error;
        errno = 0;
        EXPECT_FALSE(Rename());
        EXPECT_EQ(errno, error);
    }
    EXPECT_EQ(At(m_from), "old");
    EXPECT_EQ(At(m_to), "none");
}

TEST_F(RenameExclusive, LeavesTheRenamingToTheSystemIfItCan)
{
    g_system_error = 0;
    EXPECT_TRUE(Rename());
    EXPECT_EQ(At(m_from), "old") << "renamed a second time";
}

TEST_F(RenameExclusive, LinksWhereTheSystemOffersNoExclusiveRename)
{
    for (const int error : {ENOSYS, EINVAL}) {
        g_system_error = error;
        EXPECT_TRUE(Rename());
        EXPECT_EQ(At(m_from), "none");
        EXPECT_EQ(At(m_to), "old");
        std::filesystem::rename(m_to, m_from);
    }
}

TEST_F(RenameExclusive, ReplacesNoFileByLinking)
{
    m_directory.Write("to", "precious");
    EXPECT_FALSE(Rename());
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(At(m_from), "old");
    EXPECT_EQ(At(m_to), "precious");
}

TEST_F(RenameExclusive, KeepsAFileThatSomeoneElsePutsAtTheOldPath)
{
    g_on_link = [&] {
        std::filesystem::remove(m_from);
        m_directory.Write("from", "new");
    };
    EXPECT_TRUE(Rename());
    EXPECT_EQ(At(m_from), "new");
    EXPECT_EQ(At(m_to), "old");
}

TEST_F(RenameExclusive, SucceedsIfSomeoneElseRemovesTheOldName)
{
    g_on_link = [&] { std::filesystem::remove(m_from); };
    EXPECT_TRUE(Rename());
    EXPECT_EQ(At(m_from), "none");
    EXPECT_EQ(At(m_to), "old");
}

TEST_F(RenameExclusive, KeepsTheOldNameIfSomeoneElseRemovesTheNewOne)
{
    g_on_link = [&] { std::filesystem::remove(m_to); };
    Rename();
    EXPECT_EQ(At(m_from), "old");
}

TEST_F(RenameExclusive, RemovesTheNewNameIfTheOldOneCannotBeRemoved)
{
    g_unremovable = m_from;
    EXPECT_FALSE(Rename());
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(At(m_from), "old");
    EXPECT_EQ(At(m_to), "none");
}
