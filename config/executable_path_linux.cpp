#include <limits.h>
#include <unistd.h>

#include <cstring>

#include "config/executable_path.h"

bool GetExecutablePath(char* buffer, std::uint32_t size)
{
    // readlink silently truncates a path that does not fit, so it gets a buffer for the longest
    // path.
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length < 0 || static_cast<std::size_t>(length) >= size) {
        return false;
    }
    std::memcpy(buffer, path, static_cast<std::size_t>(length));
    buffer[length] = '\0';
    return true;
}
