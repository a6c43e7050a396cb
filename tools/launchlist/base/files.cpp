#include "tools/launchlist/base/files.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace launchlist {

namespace {

constexpr std::size_t kChunk = 1U << 20U;

bool Fail(std::string& error)
{
    error = std::strerror(errno);
    return false;
}

}  // namespace

bool ReadFile(const std::string& path, std::string& bytes, std::string& error)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return Fail(error);
    }
    const bool is_read = ReadDescriptor(descriptor, bytes, error);
    close(descriptor);
    return is_read;
}

bool ReadDescriptor(int descriptor, std::string& bytes, std::string& error)
{
    bytes.clear();
    // The size is only a hint, since a log grows; the end is where read returns 0.
    struct stat status = {};
    if (fstat(descriptor, &status) == 0 && status.st_size > 0) {
        bytes.reserve(static_cast<std::size_t>(status.st_size) + 1);
    }
    for (;;) {
        const std::size_t used = bytes.size();
        bytes.resize(std::max(bytes.capacity(), used + kChunk));
        const ssize_t count = read(descriptor, bytes.data() + used, bytes.size() - used);
        const int failure = errno;
        bytes.resize(used + (count > 0 ? static_cast<std::size_t>(count) : 0));
        if (count == 0) {
            return true;
        }
        if (count < 0 && failure != EINTR) {
            errno = failure;
            return Fail(error);
        }
    }
}

bool WriteFile(const std::string& path, const std::string& bytes, std::string& error)
{
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return Fail(error);
    }
    const bool is_written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (std::fclose(file) != 0 || !is_written) {
        return Fail(error);
    }
    return true;
}

}  // namespace launchlist
