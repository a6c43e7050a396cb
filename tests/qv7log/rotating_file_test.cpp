// When the log checks whether its file is still at its path, and how threads change the file. This
// test replaces the clock, `write` and `lstat`.
#include "qv7log/rotating_file.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/syscall.h>
#endif

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <functional>
#include <string>
#include <thread>

#include "qv7log/limits.h"
#include "tests/qv7log/read_log.h"
#include "tests/support/wait_until.h"

namespace {

constexpr std::int64_t kSecond = 1000000000;
constexpr std::int64_t kMillisecond = 1000000;

// For Append: the path has just been checked.
constexpr std::int64_t kNoStall = INT64_MAX;

// The time of the replaced clock in nanoseconds; 0: the real time.
std::atomic<std::int64_t> g_now = 0;

// The number of checks of the path, and what each check does in addition.
std::atomic<int> g_checks = 0;
std::function<void()> g_on_check;

#ifdef __linux__
// A path that cannot be renamed, and the number of attempts to rename anything.
std::string g_unmovable;
int g_renames = 0;
std::function<void()> g_on_rename;
#endif

// This many of the next writes of this thread fail as if the descriptor were closed.
thread_local int g_closed_writes = 0;

// What each write does first.
std::function<void()> g_on_write;

template <typename Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

timespec TimeOf(std::int64_t nanoseconds)
{
    timespec time = {};
    time.tv_sec = static_cast<time_t>(nanoseconds / kSecond);
    time.tv_nsec = static_cast<long>(nanoseconds % kSecond);
    return time;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time)
{
    static const auto real = Real<int(clockid_t, timespec*)>("clock_gettime");
    const std::int64_t now = g_now;
    if (clock != CLOCK_MONOTONIC || now == 0) {
        return real(clock, time);
    }
    *time = TimeOf(now);
    return 0;
}

extern "C" int lstat(const char* path, struct stat* status)
{
    ++g_checks;
    if (g_on_check) {
        g_on_check();
    }
    return fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

#ifdef __linux__
// Renames files, except that one named g_unmovable stays where it is.
extern "C" long syscall(long number, ...)
{
    if (number != SYS_renameat2) {
        errno = ENOSYS;
        return -1;
    }
    va_list arguments;
    va_start(arguments, number);
    va_arg(arguments, int);
    const char* const from = va_arg(arguments, const char*);
    va_arg(arguments, int);
    const char* const to = va_arg(arguments, const char*);
    va_end(arguments);
    ++g_renames;
    if (g_on_rename) {
        g_on_rename();
    }
    if (g_unmovable == from) {
        errno = EPERM;
        return -1;
    }
    struct stat status;
    if (fstatat(AT_FDCWD, to, &status, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return -1;
    }
    return rename(from, to);
}
#endif

extern "C" ssize_t write(int descriptor, const void* data, size_t size)
{
    static const auto real = Real<ssize_t(int, const void*, size_t)>("write");
    if (g_closed_writes > 0) {
        --g_closed_writes;
        errno = EBADF;
        return -1;
    }
    if (g_on_write) {
        g_on_write();
    }
    return real(descriptor, data, size);
}

namespace {

class RotatingFileTest : public testing::Test
{
protected:
    RotatingFileTest() : m_path(m_directory / "log") {}

    void SetUp() override { ASSERT_EQ(m_log.Open(m_path.c_str()), 0); }

    void TearDown() override { g_now = 0; }

    bool Append(const std::string& text) { return Append(m_log, text); }

    static bool Append(qv7log::RotatingFile& log, const std::string& text)
    {
        return log.Append((text + "\n").data(), text.size() + 1, getpid(), kNoStall);
    }

    // Whether the log checks its path before a record at the time `now`.
    bool ChecksPathAt(std::int64_t now)
    {
        const int before = g_checks;
        g_now = now;
        m_log.ReopenIfMoved(getpid());
        return g_checks != before;
    }

    TempDirectory m_directory;
    const std::string m_path;
    qv7log::RotatingFile m_log;
};

using ReopenIfMoved = RotatingFileTest;
using WriteTest = RotatingFileTest;

// These tests never call ReopenIfMoved: the log knows only the size of what it has written.
using Rotation = RotatingFileTest;

const std::string kAllButFull(qv7log::kRotateSize - 10, '.');

// Limits the size of files of this process.
class SizeLimit : public RotatingFileTest
{
protected:
    void SetUp() override
    {
        RotatingFileTest::SetUp();
        ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &m_before), 0);
    }

    void TearDown() override
    {
        g_on_write = nullptr;
        setrlimit(RLIMIT_FSIZE, &m_before);
        RotatingFileTest::TearDown();
    }

    void Set(rlim_t size) const
    {
        const rlimit limit = {size, m_before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }

    // Lets the log read the limit, as it does before a record that does not belong to a burst.
    void ReadLimit()
    {
        g_now = g_now + 1000 * kSecond;
        m_log.ReopenIfMoved(getpid());
    }

    static bool IsSignalPending()
    {
        sigset_t pending;
        return sigpending(&pending) == 0 && sigismember(&pending, SIGXFSZ) == 1;
    }

private:
    rlimit m_before = {};
};

// Another thread, which writes "the other's", is reopening the log until Finish is called.
class Reopening : public RotatingFileTest
{
protected:
    void SetUp() override
    {
        RotatingFileTest::SetUp();
        g_on_check = [this] {
            m_begun = true;
            EXPECT_TRUE(WaitUntil([this] { return m_may_end.load(); }));
        };
        m_other = std::thread([this] {
            g_closed_writes = 1;
            EXPECT_TRUE(Append("the other's"));
        });
        EXPECT_TRUE(WaitUntil([this] { return m_begun.load(); }));
    }

    void TearDown() override
    {
        Finish();
        g_on_check = nullptr;
        RotatingFileTest::TearDown();
    }

    void Finish()
    {
        m_may_end = true;
        if (m_other.joinable()) {
            m_other.join();
        }
    }

private:
    std::atomic<bool> m_begun = false;
    std::atomic<bool> m_may_end = false;
    std::thread m_other;
};

}  // namespace

TEST_F(ReopenIfMoved, ChecksOncePerMillisecondInABurstAndOtherwiseBeforeEveryRecord)
{
    constexpr std::int64_t kTime = 1000 * kSecond;
    // Times relative to the previous check.
    const struct
    {
        const char* what;
        std::int64_t last_record;
        std::int64_t now;
        bool checks;
    } kTable[] = {
        {"at the same moment", 0, 0, false},
        {"shortly after the last record", 100, 1099, false},
        {"a microsecond after the last record", 100, 1100, true},
        {"another thread has written meanwhile", kMillisecond - 1, 0, false},
        {"almost a millisecond after the check", kMillisecond - 2, kMillisecond - 1, false},
        {"a millisecond after the check", kMillisecond - 1, kMillisecond, true},
        {"the next second", 1, kSecond, true},
        {"the next second, in a burst", kSecond, kSecond, true},
    };
    for (const auto& row : kTable) {
        g_now = kTime - kSecond;
        ASSERT_TRUE(Append("x"));
        ASSERT_TRUE(ChecksPathAt(kTime)) << row.what;
        g_now = kTime + row.last_record;
        ASSERT_TRUE(Append("x"));
        EXPECT_EQ(ChecksPathAt(kTime + row.now), row.checks) << row.what;
    }
}

TEST_F(ReopenIfMoved, TellsFilesApartWhicheverInodeNumberIsGreater)
{
    // An older file and a newer one: one of them has a smaller inode number than the log.
    const std::string older = m_directory / "older";
    WriteFile(older, "");
    const std::string path = m_directory / "other log";
    qv7log::RotatingFile log;
    ASSERT_EQ(log.Open(path.c_str()), 0);
    const std::string newer = m_directory / "newer";
    WriteFile(newer, "");
    std::int64_t now = 1000 * kSecond;
    for (const std::string& file : {older, newer, older}) {
        ASSERT_EQ(rename(path.c_str(), (m_directory / "away").c_str()), 0);
        ASSERT_EQ(link(file.c_str(), path.c_str()), 0);
        g_now = now += kSecond;
        log.ReopenIfMoved(getpid());
        ASSERT_TRUE(Append(log, "x"));
    }
    EXPECT_EQ(ReadFile(older), "x\nx\n");
    EXPECT_EQ(ReadFile(newer), "x\n");
}

TEST_F(Reopening, MakesOtherThreadsWait)
{
    std::thread finishing([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        Finish();
    });
    g_closed_writes = 1;
    EXPECT_TRUE(Append("this one's"));
    finishing.join();
    EXPECT_EQ(ReadFile(m_path).size(), std::string("this one's\nthe other's\n").size());
}

TEST_F(Reopening, ThatTakesTooLongLosesTheRecordsOfOtherThreads)
{
    g_closed_writes = 1;
    EXPECT_FALSE(Append("this one's"));
}

TEST_F(WriteTest, FailsIfTheDescriptorStaysClosed)
{
    g_closed_writes = INT_MAX;
    EXPECT_FALSE(Append("lost"));
    g_closed_writes = 0;
}

TEST_F(Rotation, DoesNotRotateTheNewLogOfAnotherProcess)
{
    qv7log::RotatingFile other;
    ASSERT_EQ(other.Open(m_path.c_str()), 0);
    ASSERT_TRUE(Append(kAllButFull));
    other.ReopenIfMoved(getpid());
    ASSERT_TRUE(Append(other, "fills it, and begins a new log"));
    ASSERT_EQ(ReadFile(m_path), "");
    EXPECT_TRUE(Append("is still in the old file"));
    EXPECT_TRUE(Append("is in the new log"));
    EXPECT_EQ(ReadFile(m_path + ".1"),
              kAllButFull + "\nfills it, and begins a new log\nis still in the old file\n");
    EXPECT_EQ(ReadFile(m_path), "is in the new log\n");
    EXPECT_FALSE(Exists(m_path + ".2"));
}

TEST_F(Rotation, DoesNotRotateATruncatedLog)
{
    ASSERT_TRUE(Append(kAllButFull));
    ASSERT_EQ(truncate(m_path.c_str(), 0), 0);
    EXPECT_TRUE(Append("is full by its own count"));
    EXPECT_FALSE(Exists(m_path + ".1"));
    EXPECT_EQ(ReadFile(m_path), "is full by its own count\n");
}

TEST_F(WriteTest, IsRepeatedIfTheFileWasUnlinkedDuringAStall)
{
    g_now = 1000 * kSecond;
    const std::int64_t checked = m_log.ReopenIfMoved(getpid());
    const int removed = open(m_path.c_str(), O_RDONLY);
    ASSERT_EQ(unlink(m_path.c_str()), 0);
    g_now = g_now + 2 * kMillisecond + 1;
    EXPECT_TRUE(m_log.Append("x\n", 2, getpid(), checked));
    EXPECT_EQ(ReadFile(m_path), "x\n");
    close(removed);
}

TEST_F(WriteTest, IsNotRepeatedIfTheFileStillHasAName)
{
    g_now = 1000 * kSecond;
    const std::int64_t checked = m_log.ReopenIfMoved(getpid());
    ASSERT_EQ(rename(m_path.c_str(), (m_path + ".1").c_str()), 0);
    g_now = g_now + kSecond;
    EXPECT_TRUE(m_log.Append("x\n", 2, getpid(), checked));
    EXPECT_EQ(ReadFile(m_path + ".1"), "x\n");
    EXPECT_FALSE(Exists(m_path));
}

#ifdef __linux__
// Fills the log, so that it is rotated if possible.
class FailedRotation : public RotatingFileTest
{
protected:
    void TearDown() override
    {
        g_unmovable.clear();
        RotatingFileTest::TearDown();
    }

    std::string OldFile(int number) const { return m_path + "." + std::to_string(number); }
};

TEST_F(FailedRotation, ChangesNothing)
{
    for (int unmovable = 0; unmovable <= qv7log::kOldFiles; ++unmovable) {
        for (int gap = std::max(unmovable + 1, 1); gap <= qv7log::kOldFiles + 1; ++gap) {
            TempDirectory directory;
            const std::string path = directory / "log";
            qv7log::RotatingFile log;
            ASSERT_EQ(log.Open(path.c_str()), 0);
            const auto old_file = [&](int number) { return path + "." + std::to_string(number); };
            for (int number = 1; number <= qv7log::kOldFiles; ++number) {
                if (number != gap) {
                    WriteFile(old_file(number), std::to_string(number));
                }
            }
            g_unmovable = unmovable == 0 ? path : old_file(unmovable);
            ASSERT_TRUE(Append(log, std::string(qv7log::kRotateSize, 'x')));
            for (int number = 1; number <= qv7log::kOldFiles; ++number) {
                EXPECT_EQ(ReadFile(old_file(number)), number == gap ? "" : std::to_string(number))
                    << "unmovable " << unmovable << ", gap " << gap;
            }
            EXPECT_FALSE(Exists(old_file(qv7log::kOldFiles + 1)));
            EXPECT_EQ(ReadFile(path).size(), static_cast<std::size_t>(qv7log::kRotateSize) + 1);
            g_unmovable.clear();
            log.Close();
        }
    }
}

TEST_F(FailedRotation, IsRepeatedAfterASecond)
{
    g_now = 1000 * kSecond;
    g_unmovable = m_path;
    ASSERT_TRUE(Append(std::string(qv7log::kRotateSize, 'x')));
    const int renames = g_renames;
    ASSERT_TRUE(Append("x"));
    g_unmovable.clear();
    g_now = g_now + kSecond - 1;
    ASSERT_TRUE(Append("x"));
    EXPECT_EQ(g_renames, renames);
    g_now = g_now + 1;
    ASSERT_TRUE(Append("x"));
    EXPECT_TRUE(Exists(OldFile(1)));
}

TEST_F(Rotation, ReplacesNoFileThatSomeoneCreatesMeanwhile)
{
    g_on_rename = [this] { WriteFile(m_path + ".1", "someone else's"); };
    ASSERT_TRUE(Append(std::string(qv7log::kRotateSize, 'x')));
    g_on_rename = nullptr;
    EXPECT_EQ(ReadFile(m_path + ".1"), "someone else's");
    EXPECT_EQ(ReadFile(m_path).size(), static_cast<std::size_t>(qv7log::kRotateSize) + 1);
}

ILog* g_log = nullptr;

// Nothing here has a destructor: glibc runs destructors for a cancelled thread, but cannot run
// those of libc++.
void* LogAndBeCancelled(void* text)
{
    Log(g_log, LOGLEVEL_ERROR, "%s", static_cast<const char*>(text));
    pthread_testcancel();
    return text;
}

// Through the whole library, which disables cancellation.
TEST(LogV, IsNotInterruptedByACancellationDuringARotation)
{
    TempDirectory directory;
    const std::string path = directory / "log";
    g_log = StartLog(path);
    std::string text(qv7log::kRotateSize, '.');
    g_on_rename = [] { pthread_cancel(pthread_self()); };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, LogAndBeCancelled, text.data()), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    g_on_rename = nullptr;
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(Exists(path));
    Log(g_log, LOGLEVEL_ERROR, "%s", text.c_str());
    EXPECT_TRUE(Exists(path + ".2"));
}

TEST_F(Rotation, RemovesASurplusFileOfAKilledProcess)
{
    for (int number = 1; number <= qv7log::kOldFiles + 1; ++number) {
        WriteFile(m_path + "." + std::to_string(number), std::to_string(number));
    }
    ASSERT_TRUE(Append(std::string(qv7log::kRotateSize, 'x')));
    EXPECT_EQ(ReadFile(m_path + ".2"), "1");
    EXPECT_EQ(ReadFile(m_path + ".5"), "4");
    EXPECT_FALSE(Exists(m_path + ".6"));
}
#endif

TEST_F(Rotation, IsPostponedIfSomeoneKeepsRemovingTheLockFile)
{
    g_now = 1000 * kSecond;
    g_on_check = [this] { unlink((m_path + ".lock").c_str()); };
    EXPECT_TRUE(Append(std::string(qv7log::kRotateSize, 'x')));
    g_on_check = nullptr;
    EXPECT_FALSE(Exists(m_path + ".1"));
    EXPECT_TRUE(Append("within a second"));
    EXPECT_FALSE(Exists(m_path + ".1"));
    g_now = 1002 * kSecond;
    EXPECT_TRUE(Append("later"));
    EXPECT_TRUE(Exists(m_path + ".1"));
}

TEST_F(Rotation, IsRepeatedASecondAfterTheLockFileCouldNotBeOpened)
{
    g_now = 1000 * kSecond;
    const std::string lock = m_path + ".lock";
    unlink(lock.c_str());
    ASSERT_EQ(mkdir(lock.c_str(), 0700), 0);
    EXPECT_TRUE(Append(std::string(qv7log::kRotateSize, 'x')));
    EXPECT_FALSE(Exists(m_path + ".1"));
    ASSERT_EQ(rmdir(lock.c_str()), 0);
    g_now = g_now + kSecond - 1;
    EXPECT_TRUE(Append("x"));
    EXPECT_FALSE(Exists(m_path + ".1"));
    g_now = g_now + 1;
    EXPECT_TRUE(Append("x"));
    EXPECT_EQ(ReadFile(m_path + ".1"), std::string(qv7log::kRotateSize, 'x') + "\nx\nx\n");
}

TEST_F(SizeLimit, LosesRecordsThatDoNotFit)
{
    Set(5);
    ReadLimit();
    EXPECT_TRUE(Append("four"));
    EXPECT_FALSE(Append(""));
    EXPECT_FALSE(IsSignalPending());
    Set(6);
    EXPECT_FALSE(Append("")) << "the limit is read between bursts only";
    ReadLimit();
    EXPECT_TRUE(Append(""));
    EXPECT_EQ(ReadFile(m_path), "four\n\n");
}

// Its default action would end this test.
TEST_F(SizeLimit, DiscardsTheSignalOfAWriteThatFailsNonetheless)
{
    Set(100);
    ReadLimit();
    g_on_write = [this] { Set(0); };
    EXPECT_FALSE(Append("lost"));
    EXPECT_FALSE(IsSignalPending());
    EXPECT_EQ(ReadFile(m_path), "");
}

TEST_F(SizeLimit, KeepsASignalThatWasPendingBefore)
{
    sigset_t signal;
    sigset_t before;
    sigemptyset(&signal);
    sigaddset(&signal, SIGXFSZ);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &signal, &before), 0);
    raise(SIGXFSZ);
    Set(100);
    ReadLimit();
    EXPECT_TRUE(Append("written"));
    const bool is_pending = IsSignalPending();
    EXPECT_TRUE(is_pending);
    if (is_pending) {  // otherwise this would never return
        int received = 0;
        sigwait(&signal, &received);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
