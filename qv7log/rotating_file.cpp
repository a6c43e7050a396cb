#include "qv7log/rotating_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "qv7log/limits.h"

namespace qv7log {
namespace {

// The process whose thread is changing the file under the descriptor, or 0: see TryBeginChange. One
// for all logs, since the rotation lock does not part two logs of one process at the same path.
std::atomic<pid_t> g_changing_process{0};

constexpr int kFirstOwnDescriptor = 3;
constexpr mode_t kFileMode = 0600;
constexpr mode_t kDirectoryMode = 0700;

// The log's path and up to this many characters: ".lock", or "." and the number of an old file.
constexpr std::size_t kMaxSuffix = 16;

// A record that begins sooner after the end of the last one belongs to a burst. Shorter than it
// takes to remove a file.
constexpr std::int64_t kBurstGap = 1000;  // nanoseconds
constexpr std::int64_t kMillisecond = 1000000;

// How often a record is tried again while another thread of this process changes the file.
constexpr int kAttempts = 1000;

template <typename Call>
auto RetryInterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

std::int64_t Nanoseconds(const timespec& time)
{
    return static_cast<std::int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

struct SuffixedPath
{
    SuffixedPath(const char* path, int number)
    {
        snprintf(text, sizeof text, "%s.%d", path, number);
    }
    SuffixedPath(const char* path, const char* suffix)
    {
        snprintf(text, sizeof text, "%s%s", path, suffix);
    }
    char text[PATH_MAX + kMaxSuffix];
};

// Never through a symbolic link, and never waiting, as the opening of a pipe would.
int OpenFile(const char* path, int flags)
{
    flags |= O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    return RetryInterrupted([&] { return open(path, flags, kFileMode); });
}

// Opens the log; -1 with an errno.
int OpenLogFile(const char* path, int flags)
{
    const int file = OpenFile(path, O_WRONLY | O_APPEND | flags);
    if (file < 0) {
        return -1;
    }
    struct stat status;
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(file);
        errno = EINVAL;
        return -1;
    }
    fchmod(file, kFileMode);  // whatever the file mask left, or an older log has
    fcntl(file, F_SETFL, O_APPEND);
    return file;
}

// Moves `file`, which is close-on-exec, to `least` or above, away from the descriptors that other
// programs get. Closes it where that fails; -1 with an errno.
//
// No call opens a file up there directly. It may come up at 1 or 2 first, but is close-on-exec from
// the start, so that no program ever sees it, whenever a fork happens.
int MoveUp(int file, int least)
{
    if (file < 0 || file >= least) {
        return file;
    }
    const int moved = fcntl(file, F_DUPFD_CLOEXEC, least);
    const int error = errno;
    close(file);
    errno = error;
    return moved;
}

bool IsSameFile(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool SetLock(int file, short type)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return fcntl(file, F_SETLK, &lock) == 0;
}

// One thread of a process has a turn at a time; false when it is another one's. What counts is a
// thread of this process: a child may have been forked in the middle of another thread's turn,
// which then never ends in the child.
bool TryBeginChange(pid_t process)
{
    pid_t holder = g_changing_process.load();
    return holder != process && g_changing_process.compare_exchange_strong(holder, process);
}

}  // namespace

int RotatingFile::Open(const char* path)
{
    if (const int error = StorePath(path)) {
        return error;
    }
    // First the log: the lowest descriptor is for it, and it is the one that programs inherit.
    m_log = OpenOrCreate(0);
    if (m_log < 0) {
        return errno;
    }
    if (!OpenLock()) {
        const int error = errno;
        close(m_log);
        return error;
    }
    m_owner = getpid();
    return 0;
}

// Stores `path` as an absolute one: the program may change its folder.
int RotatingFile::StorePath(const char* path)
{
    std::size_t used = 0;
    if (path[0] != '/') {
        if (getcwd(m_path, sizeof m_path - 1) == nullptr) {
            return errno;
        }
        used = strlen(m_path);
        m_path[used++] = '/';
    }
    const std::size_t size = strlen(path);
    if (size >= sizeof m_path - used) {
        return ENAMETOOLONG;
    }
    memcpy(m_path + used, path, size + 1);
    return 0;
}

// Opens the log, with `flags` besides its own; -1 with an errno.
int RotatingFile::OpenOrCreate(int flags)
{
    const int file = OpenLogFile(m_path, flags);
    return file < 0 && errno == ENOENT && CreateDirectories() ? OpenLogFile(m_path, flags) : file;
}

// Creates the folders of the path that do not exist; false with an errno.
bool RotatingFile::CreateDirectories()
{
    char folder[sizeof m_path];
    memcpy(folder, m_path, sizeof folder);
    for (char* slash = strchr(folder + 1, '/'); slash != nullptr; slash = strchr(slash + 1, '/')) {
        *slash = '\0';
        if (mkdir(folder, kDirectoryMode) != 0 && errno != EEXIST) {
            const int error = errno;
            struct stat status;  // some systems have other errors for what exists and is read-only
            if (stat(folder, &status) != 0) {
                errno = error;
                return false;
            }
        }
        *slash = '/';
    }
    return true;
}

// Opens the file that is locked during a rotation; false with an errno.
bool RotatingFile::OpenLock()
{
    const int file = OpenFile(SuffixedPath(m_path, ".lock").text, O_RDWR | O_CLOEXEC);
    m_lock = MoveUp(file, kFirstOwnDescriptor);
    return m_lock >= 0;
}

// Takes the rotation lock if it is free; only in one's turn.
//
// A record lock, not flock: it belongs to this process alone. A forked child that outlives a killed
// launcher would go on holding an inherited flock, and nobody could rotate any more.
bool RotatingFile::Lock()
{
    const SuffixedPath path(m_path, ".lock");
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (m_lock < 0 && !OpenLock()) {
            return false;
        }
        if (!SetLock(m_lock, F_WRLCK)) {
            return false;
        }
        struct stat locked;
        struct stat at_path;
        if (fstat(m_lock, &locked) == 0 && lstat(path.text, &at_path) == 0 &&
            IsSameFile(locked, at_path)) {
            return true;
        }
        close(m_lock);  // taken away: others lock a new one
        m_lock = -1;
    }
    return false;
}

void RotatingFile::Unlock()
{
    SetLock(m_lock, F_UNLCK);
}

bool RotatingFile::Append(const char* line, std::size_t size, pid_t process)
{
    if (m_unlinked.load(std::memory_order_relaxed)) {
        return false;
    }
    bool torn_before = false;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const ssize_t written = RetryInterrupted([&] { return write(m_log, line, size); });
        if (written == static_cast<ssize_t>(size)) {
            timespec now;
            clock_gettime(CLOCK_REALTIME, &now);
            m_last_record.store(Nanoseconds(now), std::memory_order_relaxed);
            const auto added = static_cast<std::int64_t>(size);
            if (m_size.fetch_add(added) + added >= kRotateSize && process == m_owner) {
                Rotate(process);
            }
            return true;
        }
        if (written >= 0) {
            // Once more, and whole: the rest alone could come after someone else's record. What is
            // there already has no line end; a reader knows the next record by its timestamp.
            if (torn_before) {
                return false;
            }
            torn_before = true;
            continue;
        }
        // Closed; macOS does so for a moment while dup2 gives a descriptor another file.
        const Change change = errno == EBADF ? Reopen(process) : Change::kFailed;
        if (change == Change::kFailed) {
            return false;
        }
        if (change == Change::kBusy) {
            sched_yield();
        }
    }
    return false;
}

// A look costs as much as two records. In a burst there is one in each millisecond, before any
// other record there is one.
void RotatingFile::ReopenIfMoved(const timespec& time, pid_t process)
{
    const std::int64_t now = Nanoseconds(time);
    // Below 0 when another thread has written meanwhile.
    const std::int64_t gap = now - m_last_record.load(std::memory_order_relaxed);
    const bool in_burst = gap < kBurstGap && gap > -kMillisecond;
    if (in_burst && now / kMillisecond == m_last_check.load(std::memory_order_relaxed)) {
        return;
    }
    m_last_check.store(now / kMillisecond, std::memory_order_relaxed);
    struct stat status = {};
    if (IsAtPath(status)) {
        m_size.store(status.st_size);
        m_unlinked.store(false);
    } else {
        // Where this fails, the open file serves on, unless it is in no folder any more.
        const bool removed = status.st_nlink == 0;
        Change change = Reopen(process);
        for (int i = 0; removed && change == Change::kBusy && i < kAttempts; ++i) {
            sched_yield();
            change = Reopen(process);
        }
        m_unlinked.store(removed && change != Change::kDone);
    }
}

// Whether the open file is the one at the log's path. Fills in its `status` in any case.
bool RotatingFile::IsAtPath(struct stat& status) const
{
    struct stat at_path;
    return fstat(m_log, &status) == 0 && lstat(m_path, &at_path) == 0 &&
           IsSameFile(status, at_path);
}

RotatingFile::Change RotatingFile::Reopen(pid_t process)
{
    if (!TryBeginChange(process)) {
        return Change::kBusy;
    }
    struct stat status;
    const bool current = IsAtPath(status);  // by another thread since
    const Change change = current ? Change::kDone : SwitchToCurrentFile();
    g_changing_process.store(0);
    return change;
}

// Puts the file at the log's path, a new one if there is none, under the log's descriptor. Only in
// one's turn: two threads at once could bring an older file back, and with it an older order.
//
// The descriptor is never closed for this and never close-on-exec: a child forked at any moment
// inherits a log at its number. It is also the only one to write through: a child gets its
// descriptors and its memory at different moments, so that a number that changes could name another
// file there.
RotatingFile::Change RotatingFile::SwitchToCurrentFile()
{
    const int least =
        std::max(kFirstOwnDescriptor, m_log + 1);  // m_log is free if someone closed it
    const int file = MoveUp(OpenOrCreate(O_CLOEXEC), least);
    if (file < 0) {
        return Change::kFailed;
    }
    struct stat status = {};
    fstat(file, &status);  // if that fails, the next look tells the size
    const bool done = RetryInterrupted([&] { return dup2(file, m_log); }) == m_log;
    close(file);
    m_size.store(status.st_size);
    return done ? Change::kDone : Change::kFailed;
}

// Makes the log an old file and begins a new one, unless another thread or process does so already.
// Writers are not held up: what they write meanwhile goes to the old file.
void RotatingFile::Rotate(pid_t process)
{
    if (!TryBeginChange(process)) {
        return;
    }
    if (Lock()) {
        // Now that nobody else rotates: is the log, and not what someone has made of it, full?
        struct stat status;
        if (IsAtPath(status) && status.st_size >= kRotateSize) {
            ShiftOldFiles();
            rename(m_path, SuffixedPath(m_path, 1).text);
        }
        SwitchToCurrentFile();
        Unlock();
    }
    g_changing_process.store(0);
}

// Frees the number 1 by renaming each old file to the next number. A gap, which a rotation that was
// killed leaves behind, takes up what comes before it; without one the oldest file goes. It is
// removed and not replaced: some file systems (ext4) first send to the disk what replaces a file.
void RotatingFile::ShiftOldFiles()
{
    int last = 1;
    struct stat status;
    while (last < kOldFiles && lstat(SuffixedPath(m_path, last).text, &status) == 0) {
        ++last;
    }
    unlink(SuffixedPath(m_path, last).text);
    for (int number = last; number > 1; --number) {
        rename(SuffixedPath(m_path, number - 1).text, SuffixedPath(m_path, number).text);
    }
}

}  // namespace qv7log
