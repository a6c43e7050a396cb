#include "qv7log/rotating_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <string_view>

#include "qv7log/limits.h"
#include "qv7log/rename_exclusive.h"

namespace qv7log {
namespace {

// The process with a thread that is rotating or reopening a log, or 0. One flag serves all logs,
// because two logs of one process would share the rotation lock if they had the same path.
std::atomic<pid_t> g_changing_process{0};

constexpr int kFirstOwnDescriptor = 3;
constexpr mode_t kFileMode = 0600;
constexpr mode_t kDirectoryMode = 0700;

constexpr std::int64_t kMicrosecond = 1000;  // in nanoseconds
constexpr std::int64_t kMillisecond = 1000 * kMicrosecond;
constexpr std::int64_t kSecond = 1000 * kMillisecond;

// A record belongs to a burst if it begins this soon after the previous one. Removing a file takes
// longer.
constexpr std::int64_t kBurstGap = kMicrosecond;

// How long a record waits for another thread of this process that is reopening the log.
constexpr std::int64_t kMaxWait = kSecond;

// How often the write of one record is tried. Others may close the descriptor again and again.
constexpr int kMaxAttempts = 100;

// After a rotation has failed, the next one is tried no sooner.
constexpr std::int64_t kRotationRetry = kSecond;

// A process that took longer than this from the check of the path to the end of its write may have
// been stopped in between, while others filled all files of the log.
constexpr std::int64_t kStall = 2 * kMillisecond;

std::int64_t MonotonicNow()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::int64_t>(time.tv_sec) * kSecond + time.tv_nsec;
}

template <typename Call>
auto RetryInterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

bool IsRegularFile(int file)
{
    struct stat status;
    return fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

// Opens the regular file at `path` and creates it if there is none; -1 with an errno, which is
// EINVAL for a file of another type. Never follows a symbolic link and never blocks, as opening a
// pipe would.
//
// The umask does not apply to a file that is created here: with some masks nobody could open it
// again. An existing file keeps its mode, which may be an administrator's choice.
int OpenOrCreate(const char* path, int flags)
{
    flags |= O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    constexpr int kAttempts = 3;  // others may create or remove the file in between
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        int file = RetryInterrupted([&] { return open(path, flags); });
        if (file >= 0 && !IsRegularFile(file)) {
            close(file);
            errno = EINVAL;
            return -1;
        }
        if (file >= 0 || errno != ENOENT) {
            return file;
        }
        file = RetryInterrupted([&] { return open(path, flags | O_CREAT | O_EXCL, kFileMode); });
        if (file >= 0) {
            fchmod(file, kFileMode);
            return file;
        }
        if (errno != EEXIST) {
            return -1;
        }
    }
    return -1;
}

void CloseAndKeepErrno(int file)
{
    const int error = errno;
    close(file);
    errno = error;
}

// Moves the close-on-exec descriptor `file` to `min` or above, away from those that programs
// inherit. Returns the new descriptor, or closes `file` and returns -1 with an errno.
//
// No system call opens a file at such a number directly. The file may be at 1 or 2 for a moment,
// but is close-on-exec from the beginning, so that no program ever inherits it.
int MoveUp(int file, int min)
{
    if (file < 0 || file >= min) {
        return file;
    }
    const int moved = fcntl(file, F_DUPFD_CLOEXEC, min);
    CloseAndKeepErrno(file);
    return moved;
}

// Makes the descriptor `number` refer to `file`, and close-on-exec.
bool ReplaceOwnDescriptor(int file, int number)
{
#ifdef __linux__
    return RetryInterrupted([&] { return dup3(file, number, O_CLOEXEC); }) == number;
#else
    // A program that another thread starts between these two calls inherits our descriptor.
    return RetryInterrupted([&] { return dup2(file, number); }) == number &&
           fcntl(number, F_SETFD, FD_CLOEXEC) == 0;
#endif
}

bool IsSameFile(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The part of an absolute path after its last slash.
const char* NameIn(const char* path)
{
    return path + std::string_view(path).rfind('/') + 1;
}

// stat() of the directory of the absolute path `path`.
bool StatDirectory(const char* path, struct stat& status)
{
    char directory[PATH_MAX];
    const auto size = static_cast<std::size_t>(NameIn(path) - path);
    memcpy(directory, path, size);
    directory[size] = '\0';
    return stat(directory, &status) == 0;
}

// Only one thread of a process may change a file at a time. Returns false if another one does. The
// flag holds a process id, because a child may have been forked while a thread of its parent was
// changing a file; that thread does not exist in the child.
bool TryBeginChange(pid_t process)
{
    pid_t holder = g_changing_process.load();
    return holder != process && g_changing_process.compare_exchange_strong(holder, process);
}

void EndChange()
{
    g_changing_process.store(0);
}

// Blocks SIGXFSZ in this thread; at the end, discards the one that a write has caused in the
// meantime. Its default action ends the process.
//
// FitsSizeLimit makes the signal improbable, but another process may append to the file between
// that check and the write. Only Linux sends the signal to the thread that writes. macOS sends it
// to the process, where any thread that does not block it may receive it.
class SizeSignalBlocker
{
public:
    SizeSignalBlocker()
    {
        sigemptyset(&m_signal);
        sigaddset(&m_signal, SIGXFSZ);
        m_was_pending = IsPending();
        m_blocked = pthread_sigmask(SIG_BLOCK, &m_signal, &m_previous) == 0;
    }

    ~SizeSignalBlocker()
    {
        if (!m_blocked) {
            return;
        }
        const int error = errno;
        if (!m_was_pending && IsPending()) {
            int received = 0;
            sigwait(&m_signal, &received);
        }
        pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
        errno = error;
    }

    SizeSignalBlocker(const SizeSignalBlocker&) = delete;
    SizeSignalBlocker& operator=(const SizeSignalBlocker&) = delete;

private:
    static bool IsPending()
    {
        sigset_t pending;
        return sigpending(&pending) == 0 && sigismember(&pending, SIGXFSZ) == 1;
    }

    sigset_t m_signal;
    sigset_t m_previous;
    bool m_was_pending = false;
    bool m_blocked = false;
};

// Waits a little, longer after the first attempts.
void Pause(int attempt)
{
    constexpr int kYields = 100;
    if (attempt < kYields) {
        sched_yield();
    } else {
        const timespec time = {0, static_cast<long>(100 * kMicrosecond)};
        nanosleep(&time, nullptr);
    }
}

// Writes "`path`.`number`" at `out`. snprintf would need more stack.
void PutOldFilePath(char* out, const char* path, int number)
{
    std::size_t size = strlen(path);
    memcpy(out, path, size);
    out[size++] = '.';
    char digits[12];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    while (count != 0) {
        out[size++] = digits[--count];
    }
    out[size] = '\0';
}

}  // namespace

void RotatingFile::ForgetParentsChange()
{
    g_changing_process.store(0);
}

int RotatingFile::Open(const char* path)
{
    if (const int error = StorePath(path)) {
        return error;
    }
    m_inherited = OpenLog();
    if (m_inherited < 0) {
        return errno;
    }
    m_file = MoveUp(OpenOrCreate(m_path, O_WRONLY | O_APPEND | O_CLOEXEC), kFirstOwnDescriptor);
    struct stat status;
    if (m_file < 0 || fcntl(m_inherited, F_SETFD, 0) != 0 || fstat(m_inherited, &status) != 0) {
        const int error = errno;
        Close();
        return error;
    }
    m_inherited_device = status.st_dev;
    m_inherited_inode = status.st_ino;
    ReadSizeLimit();
    return 0;
}

void RotatingFile::Close()
{
    close(m_inherited);
    if (m_file >= 0) {
        close(m_file);
    }
}

bool RotatingFile::IsSameLog(const RotatingFile& other) const
{
    struct stat mine;
    struct stat others;
    if (fstat(m_file, &mine) == 0 && fstat(other.m_file, &others) == 0 &&
        IsSameFile(mine, others)) {
        return true;
    }
    return strcmp(NameIn(m_path), NameIn(other.m_path)) == 0 && StatDirectory(m_path, mine) &&
           StatDirectory(other.m_path, others) && IsSameFile(mine, others);
}

// Stores `path` as an absolute path, because the program may chdir().
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

// Opens the log for appending, close-on-exec; -1 with an errno. Creates it and its directories if
// necessary.
int RotatingFile::OpenLog()
{
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CLOEXEC;
    int file = OpenOrCreate(m_path, kFlags);
    if (file < 0 && errno == ENOENT && CreateDirectories()) {
        file = OpenOrCreate(m_path, kFlags);
    }
    if (file >= 0) {
        fcntl(file, F_SETFL, O_APPEND);  // without O_NONBLOCK, which programs would inherit
    }
    return file;
}

// Creates the missing directories of the path; false with an errno.
bool RotatingFile::CreateDirectories()
{
    char* const directory = m_from;
    memcpy(directory, m_path, sizeof m_path);
    for (char* slash = strchr(directory + 1, '/'); slash != nullptr;
         slash = strchr(slash + 1, '/')) {
        *slash = '\0';
        if (mkdir(directory, kDirectoryMode) == 0) {
            chmod(directory, kDirectoryMode);  // the umask does not apply, as in OpenOrCreate
        } else if (errno != EEXIST) {
            // For an existing directory on a read-only file system, some systems report EROFS.
            const int error = errno;
            struct stat status;
            if (stat(directory, &status) != 0) {
                errno = error;
                return false;
            }
        }
        *slash = '/';
    }
    return true;
}

// Opens the file that is locked during a rotation; -1 with an errno. Leaves its path in m_to.
int RotatingFile::OpenLockFile()
{
    constexpr char kSuffix[] = ".lock";
    static_assert(sizeof kSuffix <= kMaxSuffix);
    const std::size_t size = strlen(m_path);
    memcpy(m_to, m_path, size);
    memcpy(m_to + size, kSuffix, sizeof kSuffix);
    return MoveUp(OpenOrCreate(m_to, O_RDWR | O_CLOEXEC), kFirstOwnDescriptor);
}

// Locks the lock file. Returns its descriptor, or -1 with an errno: EAGAIN if another process holds
// the lock. Closing the descriptor releases the lock.
//
// A record lock, not flock(): a record lock belongs to this process alone. A forked child that
// outlives a killed launcher would keep an inherited flock() forever, and nobody could rotate any
// more.
//
// The lock file is open only during a rotation. A program that closes unknown descriptors could
// otherwise close it and reuse its number, and a later close() of ours would hit the program's
// file.
int RotatingFile::Lock()
{
    constexpr int kAttempts = 2;  // the lock file may be removed in between
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const int file = OpenLockFile();
        if (file < 0) {
            return -1;
        }
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        if (fcntl(file, F_SETLK, &lock) != 0) {
            const bool is_held = errno == EAGAIN || errno == EACCES;
            close(file);
            errno = is_held ? EAGAIN : EIO;
            return -1;
        }
        struct stat locked;
        struct stat at_path;
        if (fstat(file, &locked) == 0 && lstat(m_to, &at_path) == 0 &&
            IsSameFile(locked, at_path)) {
            return file;
        }
        close(file);
    }
    errno = EIO;
    return -1;
}

bool RotatingFile::Append(const char* line, std::size_t size, pid_t process, std::int64_t checked)
{
    if (m_unlinked.load(std::memory_order_relaxed)) {
        return false;
    }
    bool torn_before = false;
    bool rewritten = false;
    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
        const ssize_t written = Write(line, size);
        if (written == static_cast<ssize_t>(size)) {
            const std::int64_t now = MonotonicNow();
            m_last_record.store(now, std::memory_order_relaxed);
            if (now - checked > kStall && !rewritten && IsUnlinked()) {
                // The record is in a file that has been removed in the meantime: nobody can read
                // it.
                if (ReopenWaiting(process) != Change::kDone) {
                    return false;
                }
                rewritten = true;
                continue;
            }
            const auto added = static_cast<std::int64_t>(size);
            if (m_size.fetch_add(added) + added >= kRotateSize) {
                Rotate(process, now);
            }
            return true;
        }
        if (written >= 0) {
            // The disk is full. Write the whole record once more: its rest alone could come after
            // someone else's record. The part that was written has no line end, and the reader
            // recognises the next record by its timestamp.
            if (torn_before) {
                return false;
            }
            torn_before = true;
        } else if (errno != EBADF || ReopenWaiting(process) != Change::kDone) {
            // EBADF: the program has closed the descriptor. On macOS it is also closed for a moment
            // while dup2() replaces its file.
            return false;
        }
    }
    return false;
}

// Writes the record; -1 with an errno. If the size of files is limited, the write does not cause
// SIGXFSZ, except as described at SizeSignalBlocker. Without a limit, the signal is not blocked,
// because that would cost four system calls per record.
ssize_t RotatingFile::Write(const char* line, std::size_t size) const
{
    const auto write_once = [&] {
        return RetryInterrupted([&] { return write(m_file, line, size); });
    };
    if (m_size_limit.load(std::memory_order_relaxed) == INT64_MAX) {
        return write_once();
    }
    if (!FitsSizeLimit(size)) {
        errno = EFBIG;
        return -1;
    }
    const SizeSignalBlocker blocker;
    return write_once();
}

// Whether the log with another `size` bytes is within the process's limit for the size of a file.
bool RotatingFile::FitsSizeLimit(std::size_t size) const
{
    struct stat status;
    return fstat(m_file, &status) != 0 ||
           static_cast<std::int64_t>(status.st_size) + static_cast<std::int64_t>(size) <=
               m_size_limit.load(std::memory_order_relaxed);
}

// Reads the process's limit for the size of a file. A write beyond it causes SIGXFSZ, whose default
// action ends the process. Changing the action would affect the program and its children.
void RotatingFile::ReadSizeLimit()
{
    struct rlimit limit;
    const bool is_limited = getrlimit(RLIMIT_FSIZE, &limit) == 0 &&
                            limit.rlim_cur != RLIM_INFINITY &&
                            limit.rlim_cur < static_cast<rlim_t>(INT64_MAX);
    m_size_limit.store(is_limited ? static_cast<std::int64_t>(limit.rlim_cur) : INT64_MAX,
                       std::memory_order_relaxed);
}

// The check costs additional system calls, so in a burst there is only one per millisecond;
// otherwise there is one before each record.
std::int64_t RotatingFile::ReopenIfMoved(pid_t process)
{
    const std::int64_t now = MonotonicNow();
    // Negative if another thread has written after this one has read the clock.
    const std::int64_t gap = now - m_last_record.load(std::memory_order_relaxed);
    if (gap < kBurstGap && now - m_last_check.load(std::memory_order_relaxed) < kMillisecond) {
        return now;
    }
    m_last_check.store(now, std::memory_order_relaxed);
    ReadSizeLimit();
    struct stat status = {};
    if (IsAtPath(status)) {
        m_size.store(status.st_size);
        m_unlinked.store(false);
    } else if (status.st_nlink == 0) {
        m_unlinked.store(ReopenWaiting(process) != Change::kDone);
    } else {
        Reopen(process);  // if this fails, records go to the open file, which has another name
    }
    if (m_inherited_is_old.load(std::memory_order_relaxed) && TryBeginChange(process)) {
        SwitchInherited();
        EndChange();
    }
    return now;
}

// Whether the open file is the one at the log's path. Fills in `status` of the open file in any
// case.
bool RotatingFile::IsAtPath(struct stat& status) const
{
    struct stat at_path;
    return fstat(m_file, &status) == 0 && lstat(m_path, &at_path) == 0 &&
           IsSameFile(status, at_path);
}

bool RotatingFile::IsUnlinked() const
{
    struct stat status;
    return fstat(m_file, &status) == 0 && status.st_nlink == 0;
}

RotatingFile::Change RotatingFile::Reopen(pid_t process)
{
    if (!TryBeginChange(process)) {
        return Change::kBusy;
    }
    struct stat status;
    // Another thread may have reopened the file since the caller's check.
    const bool done = IsAtPath(status) || SwitchToFileAtPath();
    EndChange();
    return done ? Change::kDone : Change::kFailed;
}

RotatingFile::Change RotatingFile::ReopenWaiting(pid_t process)
{
    Change change = Reopen(process);
    if (change == Change::kBusy) {
        const std::int64_t deadline = MonotonicNow() + kMaxWait;
        for (int attempt = 0; change == Change::kBusy && MonotonicNow() < deadline; ++attempt) {
            Pause(attempt);
            change = Reopen(process);
        }
    }
    return change;
}

// Makes both descriptors refer to the file at the log's path, which is created if there is none.
//
// The caller must hold the flag of TryBeginChange: two threads at the same time could switch back
// to an older file, and records would be out of order.
//
// Descriptors are replaced and never closed, so that a child forked at any time inherits a log at
// the usual number. They keep their numbers: a child gets its descriptors and its memory at
// different moments of the fork, so that a new number could refer to another file there.
bool RotatingFile::SwitchToFileAtPath()
{
    // If the program has closed m_file, its number is free, and must not be used for the new file.
    const int min = std::max(kFirstOwnDescriptor, m_file + 1);
    const int file = MoveUp(OpenLog(), min);
    if (file < 0) {
        return false;
    }
    struct stat status = {};
    fstat(file, &status);
    const bool done = ReplaceOwnDescriptor(file, m_file);
    close(file);
    m_size.store(status.st_size);
    SwitchInherited();
    return done;
}

// Makes the descriptor that programs inherit refer to the file at the log's path. The caller must
// hold the flag of TryBeginChange. A descriptor that the program has closed, or has used for
// another file, is not ours any more and stays as it is.
void RotatingFile::SwitchInherited()
{
    if (m_inherited < 0) {
        return;
    }
    struct stat status;
    if (fstat(m_inherited, &status) != 0 || status.st_dev != m_inherited_device ||
        status.st_ino != m_inherited_inode) {
        m_inherited = -1;
        return;
    }
    const int file = MoveUp(OpenLog(), kFirstOwnDescriptor);
    const bool done = file >= 0 && fstat(file, &status) == 0 &&
                      RetryInterrupted([&] { return dup2(file, m_inherited); }) == m_inherited;
    if (file >= 0) {
        close(file);
    }
    if (done) {
        m_inherited_device = status.st_dev;
        m_inherited_inode = status.st_ino;
    }
    m_inherited_is_old.store(!done, std::memory_order_relaxed);
}

// Renames the full log and opens a new one, unless another thread or process is doing so. Writers
// do not wait: what they write in the meantime goes to the renamed file.
void RotatingFile::Rotate(pid_t process, std::int64_t now)
{
    if (now < m_next_rotation.load(std::memory_order_relaxed) || !TryBeginChange(process)) {
        return;
    }
    const int lock = Lock();
    bool failed = lock < 0 && errno != EAGAIN;
    if (lock >= 0) {
        // No other process can rotate now. Is the file at the path still ours, and is it full?
        struct stat status;
        const bool is_ours = IsAtPath(status);
        if (is_ours && status.st_size < kRotateSize) {
            m_size.store(status.st_size);
        } else if (!is_ours || ShiftFiles()) {
            SwitchToFileAtPath();
        } else {
            failed = true;
        }
        close(lock);
    }
    if (failed) {
        m_next_rotation.store(now + kRotationRetry, std::memory_order_relaxed);
    }
    EndChange();
}

// Renames each old file to the next number and the log to number 1. A gap, which a killed process
// has left, ends the renaming; without a gap the oldest file is removed. Returns false, with all
// files where they were, if a file could not be renamed. Apart from a surplus file that a killed
// process has left, nothing is removed before the log itself has been renamed. No file is ever
// replaced: it may be someone else's.
//
// Removing the oldest file instead of replacing it is also faster: when a file replaces another
// one, some file systems (ext4) first write its data to the disk.
bool RotatingFile::ShiftFiles()
{
    const int surplus = kOldFiles + 1;
    int free = 1;
    struct stat status;
    const auto exists = [&](int number) {
        PutOldFilePath(m_to, m_path, number);
        return lstat(m_to, &status) == 0;
    };
    while (free < surplus && exists(free)) {
        ++free;
    }
    // This file was left by a process that was killed before it could remove it.
    if (free == surplus && exists(surplus) && !RemoveOldFile(surplus)) {
        return false;
    }
    int number = free;
    while (number > 0 && RenameOldFile(number - 1, number)) {
        --number;
    }
    if (number == 0) {
        if (free == surplus) {
            RemoveOldFile(surplus);
        }
        return true;
    }
    for (; number < free; ++number) {
        RenameOldFile(number + 1, number);
    }
    return false;
}

// Renames an old file; the log itself has the number 0. Fails if `to` exists.
bool RotatingFile::RenameOldFile(int from, int to)
{
    PutOldFilePath(m_to, m_path, to);
    if (from == 0) {
        return RenameExclusive(m_path, m_to);
    }
    PutOldFilePath(m_from, m_path, from);
    return RenameExclusive(m_from, m_to);
}

bool RotatingFile::RemoveOldFile(int number)
{
    PutOldFilePath(m_to, m_path, number);
    return unlink(m_to) == 0;
}

}  // namespace qv7log
