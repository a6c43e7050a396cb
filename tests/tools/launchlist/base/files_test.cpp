// This test replaces `read`.
#include "tools/launchlist/base/files.h"

#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <iterator>
#include <string>
#include <utility>

#include "tests/support/next_descriptor.h"
#include "tests/support/temp_directory.h"

using namespace launchlist;

namespace {

// The errno with which the next read fails; 0: it succeeds.
int g_read_error = 0;

}  // namespace

extern "C" ssize_t read(int descriptor, void* data, size_t size)
{
    using Read = ssize_t(int, void*, size_t);
    if (g_read_error != 0) {
        errno = g_read_error;
        g_read_error = 0;
        return -1;
    }
    return reinterpret_cast<Read*>(dlsym(RTLD_NEXT, "read"))(descriptor, data, size);
}

namespace {

// Reads `path`; the error, or "".
std::string Read(const std::string& path, std::string& bytes)
{
    std::string error;
    const bool is_read = ReadFile(path, bytes, error);
    EXPECT_EQ(is_read, error.empty()) << path;
    return error;
}

// Replaces the file at `path`; the error, or "".
std::string Replace(const std::string& path, const std::string& bytes,
                    const FileAccess& access = {})
{
    std::string error;
    const bool is_written = ReplaceFile(path, bytes, access, error);
    EXPECT_EQ(is_written, error.empty()) << path;
    return error;
}

// Replaces the contents of the file at `path`; the error, or "".
std::string ReplaceIn(const std::string& path, const std::string& before, const std::string& after)
{
    std::string error;
    const bool is_written = ReplaceContents(path, before, after, error);
    EXPECT_EQ(is_written, error.empty()) << path;
    return error;
}

std::string Contents(const std::string& path)
{
    std::string bytes;
    EXPECT_EQ(Read(path, bytes), "") << path;
    return bytes;
}

struct stat StatusOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

std::size_t CountFiles(const TempDirectory& directory)
{
    const std::filesystem::directory_iterator files(directory.path());
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

}  // namespace

TEST(ReadFile, ReturnsWhatTheFileContains)
{
    const TempDirectory directory;
    std::string bytes = "of an earlier file";
    EXPECT_EQ(Read(directory.Write("empty", ""), bytes), "");
    EXPECT_EQ(bytes, "");
    const std::string content = std::string(3'000'000, 'x') + '\0' + "end";
    EXPECT_EQ(Read(directory.Write("large", content), bytes), "");
    EXPECT_EQ(bytes, content);
}

TEST(ReadFile, ReportsWhyAFileCannotBeRead)
{
    const TempDirectory directory;
    const int next = NextDescriptor();
    std::string bytes;
    EXPECT_EQ(Read(directory / "missing", bytes), std::strerror(ENOENT));
    EXPECT_EQ(Read(directory.path(), bytes), std::strerror(EISDIR));
    EXPECT_EQ(bytes, "");
    EXPECT_EQ(NextDescriptor(), next);
}

TEST(ReadFile, RepeatsAnInterruptedRead)
{
    const TempDirectory directory;
    std::string bytes;
    g_read_error = EINTR;
    EXPECT_EQ(Read(directory.Write("file", "text"), bytes), "");
    EXPECT_EQ(bytes, "text");
}

TEST(ReadDescriptor, ReadsWhateverHasNoSize)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "text", 4), 4);
    close(ends[1]);
    std::string bytes;
    std::string error;
    EXPECT_TRUE(ReadDescriptor(ends[0], bytes, error)) << error;
    EXPECT_EQ(bytes, "text");
    close(ends[0]);
    EXPECT_FALSE(ReadDescriptor(ends[0], bytes, error));
    EXPECT_EQ(error, std::strerror(EBADF));
}

// tests/tools/launchlist/output/page_file_test.cpp tests its failures.
TEST(ReplaceFile, GivesTheFileTheAccessThatIsAskedFor)
{
    const TempDirectory directory;
    const std::string path = directory.Write("file", "a longer old text");
    const mode_t mask = umask(0777);
    EXPECT_EQ(Replace(path, "new", {0640, {}}), "");
    umask(mask);
    EXPECT_EQ(Contents(path), "new");
    EXPECT_EQ(StatusOf(path).st_mode & 07777, 0640U);
    EXPECT_EQ(CountFiles(directory), 1U);
}

TEST(ReplaceFile, ChangesTheOwnerIfItMay)
{
    const TempDirectory directory;
    const std::string path = directory.Write("file", "");
    EXPECT_EQ(Replace(path, "new", {0600, std::make_pair(uid_t{65533}, gid_t{65532})}), "");
    const struct stat status = StatusOf(path);
    if (geteuid() == 0) {
        EXPECT_EQ(status.st_uid, 65533U);
        EXPECT_EQ(status.st_gid, 65532U);
    } else {
        EXPECT_EQ(status.st_uid, geteuid());
    }
}

TEST(ReplaceContents, KeepsTheModeAndReplacesTheFile)
{
    const TempDirectory directory;
    const std::string path = directory.Write("file", "old");
    for (const mode_t mode : std::initializer_list<mode_t>{0600, 0444, 0755}) {
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        const struct stat before = StatusOf(path);
        EXPECT_EQ(ReplaceIn(path, Contents(path), "new"), "");
        EXPECT_EQ(Contents(path), "new");
        EXPECT_EQ(StatusOf(path).st_mode & 07777, mode);
        EXPECT_EQ(StatusOf(path).st_uid, before.st_uid);
        EXPECT_EQ(CountFiles(directory), 1U);
    }
}

TEST(ReplaceContents, ReplacesTheFileThatASymbolicLinkPointsTo)
{
    const TempDirectory directory;
    const TempDirectory other;
    const std::string path = other.Write("file", "old");
    const std::string link = directory / "link";
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    EXPECT_EQ(ReplaceIn(link, "old", "new"), "");
    EXPECT_TRUE(S_ISLNK(StatusOf(link).st_mode));
    EXPECT_EQ(Contents(path), "new");
    EXPECT_EQ(CountFiles(directory), 1U);
    EXPECT_EQ(CountFiles(other), 1U);
}

TEST(ReplaceContents, ChangesNothingIfTheFileIsNotAsExpected)
{
    const TempDirectory directory;
    const std::string path = directory.Write("file", "changed");
    EXPECT_EQ(ReplaceIn(path, "old", "new"), "was changed by another program in the meantime");
    EXPECT_EQ(Contents(path), "changed");
    EXPECT_EQ(ReplaceIn(directory.path(), "old", "new"), "is not a regular file");
    EXPECT_EQ(ReplaceIn(directory / "missing", "old", "new"), std::strerror(ENOENT));
    g_read_error = EIO;
    EXPECT_EQ(ReplaceIn(path, "changed", "new"), std::strerror(EIO));
    EXPECT_EQ(Contents(path), "changed");
    EXPECT_EQ(CountFiles(directory), 1U);
}
