#include "qv7log/rename_exclusive.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/syscall.h>
#endif

namespace qv7log {
namespace {

// Returns 0 or an errno. ENOTSUP: the system or the file system does not offer this operation.
int RenameBySystem(const char* from, const char* to)
{
#if defined(__APPLE__)
    return renamex_np(from, to, RENAME_EXCL) == 0 ? 0 : errno;
#elif defined(SYS_renameat2)
    constexpr unsigned kNoReplace = 1;  // RENAME_NOREPLACE, which old headers lack
    if (syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, kNoReplace) == 0) {
        return 0;
    }
    return errno == EINVAL || errno == ENOSYS ? ENOTSUP : errno;
#else
    static_cast<void>(from);
    static_cast<void>(to);
    return ENOTSUP;
#endif
}

// For a moment, the file has both names.
bool RenameByLink(const char* from, const char* to)
{
    if (link(from, to) != 0) {
        return false;
    }
    struct stat linked;
    struct stat at_from;
    // Someone may have put another file at `from` since.
    const bool is_same = lstat(from, &at_from) == 0 && lstat(to, &linked) == 0 &&
                         at_from.st_dev == linked.st_dev && at_from.st_ino == linked.st_ino;
    if (is_same && unlink(from) != 0) {
        const int error = errno;
        unlink(to);
        errno = error;
        return false;
    }
    return true;
}

}  // namespace

bool RenameExclusive(const char* from, const char* to)
{
    const int error = RenameBySystem(from, to);
    if (error == ENOTSUP) {
        return RenameByLink(from, to);
    }
    errno = error;
    return error == 0;
}

}  // namespace qv7log
