#include "tools/launchlist/base/files.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace launchlist {

namespace {

constexpr std::size_t kChunk = 1U << 20U;
constexpr int kMaxNames = 100;

bool Fail(std::string& error)
{
    error = std::strerror(errno);
    return false;
}

// Creates a file beside `path` and opens it; -1 on failure.
int CreateBeside(const std::string& path, std::string& name)
{
    for (int number = 0; number < kMaxNames; ++number) {
        name = path + ".new-" + std::to_string(getpid()) + "-" + std::to_string(number);
        const int descriptor =
            open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (descriptor >= 0 || errno != EEXIST) {
            return descriptor;
        }
    }
    return -1;
}

bool WriteAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Without this, a power failure after the renaming could leave an empty file.
bool Synchronize(int descriptor)
{
    return fsync(descriptor) == 0 || errno == EINVAL;  // The file system cannot do it.
}

// Only root may give a file to another user, and only a member of a group may give it to that.
void SetOwner(int descriptor, const FileAccess& access)
{
    if (access.owner && fchown(descriptor, access.owner->first, access.owner->second) != 0) {
        static_cast<void>(fchown(descriptor, static_cast<uid_t>(-1), access.owner->second) != 0);
    }
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

bool ReplaceFile(const std::string& path, std::string_view bytes, const FileAccess& access,
                 std::string& error)
{
    std::string name;
    const int descriptor = CreateBeside(path, name);
    if (descriptor < 0) {
        return Fail(error);
    }
    SetOwner(descriptor, access);
    // The umask may have removed bits, and a change of the owner removes others.
    bool is_written = fchmod(descriptor, access.mode) == 0 && WriteAll(descriptor, bytes) &&
                      Synchronize(descriptor);
    is_written = is_written || Fail(error);
    if (close(descriptor) != 0 && is_written) {
        is_written = Fail(error);
    }
    if (is_written && std::rename(name.c_str(), path.c_str()) != 0) {
        is_written = Fail(error);
    }
    if (!is_written) {
        unlink(name.c_str());
    }
    return is_written;
}

bool ReplaceContents(const std::string& path, const std::string& before, std::string_view after,
                     std::string& error)
{
    char* resolved = realpath(path.c_str(), nullptr);
    const std::string target = resolved != nullptr ? resolved : "";
    std::free(resolved);
    struct stat status = {};
    if (target.empty() || stat(target.c_str(), &status) != 0) {
        return Fail(error);
    }
    if (!S_ISREG(status.st_mode)) {
        error = "is not a regular file";
        return false;
    }
    std::string current;
    if (!ReadFile(target, current, error)) {
        return false;
    }
    if (current != before) {
        error = "was changed by another program in the meantime";
        return false;
    }
    FileAccess access;
    access.mode = status.st_mode & 0777U;  // Not set-user-ID: the owner may differ.
    access.owner = {status.st_uid, status.st_gid};
    return ReplaceFile(target, after, access, error);
}

}  // namespace launchlist
