// This test replaces `read`.
#include "tools/launchlist/base/files.h"

#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>

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

// Writes `bytes` to `path`; the error, or "".
std::string Write(const std::string& path, const std::string& bytes)
{
    std::string error;
    const bool is_written = WriteFile(path, bytes, error);
    EXPECT_EQ(is_written, error.empty()) << path;
    return error;
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

TEST(WriteFile, ReplacesWhatTheFileContained)
{
    const TempDirectory directory;
    const std::string path = directory.Write("file", "a longer old text");
    std::string bytes;
    EXPECT_EQ(Write(path, "new"), "");
    EXPECT_EQ(Read(path, bytes), "");
    EXPECT_EQ(bytes, "new");
}

TEST(WriteFile, ReportsWhyAFileCannotBeWritten)
{
    const TempDirectory directory;
    EXPECT_EQ(Write(directory / "missing/file", "text"), std::strerror(ENOENT));
    EXPECT_EQ(Write(directory.path(), "text"), std::strerror(EISDIR));
    if (access("/dev/full", W_OK) != 0) {
        return;
    }
    // The disk is found to be full during the writing, or not before the file is closed.
    EXPECT_EQ(Write("/dev/full", std::string(1'000'000, 'x')), std::strerror(ENOSPC));
    EXPECT_EQ(Write("/dev/full", "text"), std::strerror(ENOSPC));
}
