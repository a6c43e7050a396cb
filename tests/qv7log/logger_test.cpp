// Tests the library through its public interface. A log is rotated at 4 KiB here.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "qv7log/limits.h"
#include "tests/qv7log/read_log.h"
#include "tests/support/wait_until.h"

using Strings = std::vector<std::string>;

namespace {

constexpr LOGLEVEL kLevels[] = {LOGLEVEL{-1},      LOGLEVEL{0},      LOGLEVEL_DEBUG,
                                LOGLEVEL_MESSAGE,  LOGLEVEL_WARNING, LOGLEVEL_ERROR,
                                LOGLEVEL_CRITICAL, LOGLEVEL_VERBOSE};

mode_t Mode(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

// A text long enough that five of them fill the log.
std::string FifthOfALog(int number)
{
    return std::to_string(number) + std::string(qv7log::kRotateSize / 5, '.');
}

void LogText(ILog* log, const std::string& text)
{
    Log(log, LOGLEVEL_ERROR, "%s", text.c_str());
}

// A process that holds the rotation lock of the log at `path` until Release.
class LockHolder
{
public:
    explicit LockHolder(const std::string& path)
    {
        int locked[2];
        if (pipe(locked) != 0 || pipe(m_release) != 0) {
            return;
        }
        m_process = fork();
        if (m_process == 0) {
            close(m_release[1]);
            struct flock lock = {};
            lock.l_type = F_WRLCK;
            lock.l_whence = SEEK_SET;
            char byte = '1';
            if (fcntl(open((path + ".lock").c_str(), O_RDWR | O_CREAT, 0600), F_SETLK, &lock) ==
                0) {
                (void)!write(locked[1], &byte, 1);
                (void)!read(m_release[0], &byte, 1);
            }
            _exit(0);
        }
        close(locked[1]);
        close(m_release[0]);
        char byte = 0;
        m_holds = read(locked[0], &byte, 1) == 1;
        close(locked[0]);
    }

    bool Holds() const { return m_holds; }

    // Ends the process and waits until it has exited.
    void Release()
    {
        close(m_release[1]);
        EXPECT_EQ(waitpid(m_process, nullptr, 0), m_process);
    }

private:
    int m_release[2] = {-1, -1};
    pid_t m_process = -1;
    bool m_holds = false;
};

TEST(LogV, WritesLevelsFromTheThresholdOnAndAllWithVerbose)
{
    struct Row
    {
        LOGLEVEL threshold;
        Strings passed;
    };
    const Row rows[] = {
        {LOGLEVEL_DEBUG, {"1", "2", "4", "8", "16"}},
        {LOGLEVEL_MESSAGE, {"2", "4", "8", "16"}},
        {LOGLEVEL_WARNING, {"4", "8", "16"}},
        {LOGLEVEL_ERROR, {"8", "16"}},
        {LOGLEVEL_CRITICAL, {"16"}},
        {LOGLEVEL_VERBOSE, {"-1", "0", "1", "2", "4", "8", "16", "17"}},
    };
    for (const Row& row : rows) {
        TempDirectory directory;
        ILog* const log = StartLog(directory / "log", row.threshold);
        ASSERT_NE(log, nullptr);
        for (const LOGLEVEL level : kLevels) {
            Log(log, level, "%d", level);
        }
        EXPECT_EQ(Texts(directory / "log"), row.passed) << row.threshold;
    }
}

TEST(LogV, WritesTimeLevelNameProcessAndText)
{
    TempDirectory directory;
    ILog* const log = StartLog(directory / "log");
    timespec before;
    clock_gettime(CLOCK_REALTIME, &before);
    Log(log, LOGLEVEL_ERROR, "[LAUNCHER  ] %s %d is killed. ret = %d, status = %d", "a", 5, 5, 9);
    const std::string line = ReadFile(directory / "log");
    const std::string rest = " ERROR    test[" + std::to_string(getpid()) +
                             "] [LAUNCHER  ] a 5 is killed. ret = 5, status = 9\n";
    ASSERT_EQ(line.size(), 24 + rest.size());
    EXPECT_EQ(line.substr(24), rest);
    struct tm parts = {};
    strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    EXPECT_LE(timegm(&parts) - before.tv_sec, 5);
    EXPECT_GE(timegm(&parts) - before.tv_sec, 0);
}

TEST(LogV, PreservesErrno)
{
    TempDirectory directory;
    ILog* const log = StartLog(directory / "log");
    for (int i = 0; i < 30; ++i) {  // includes a rotation
        errno = ENOENT;
        Log(log, LOGLEVEL_ERROR, "%s%300s", strerror(errno), "");
        ASSERT_EQ(errno, ENOENT);
    }
}

TEST(LogV, KeepsTextsUpTo64KiBAndMarksLongerOnes)
{
    struct Row
    {
        std::size_t size;
        std::size_t cut;
    };
    const Row rows[] = {{0, 0},    {2046, 0},  {2047, 0},  {2048, 0},  {2049, 0},
                        {5000, 0}, {65535, 0}, {65536, 0}, {65537, 1}, {200000, 200000 - 65536}};
    for (const Row& row : rows) {
        for (const char filler : {'a', '\x1b', '\xff'}) {
            TempDirectory directory;
            ILog* const log = StartLog(directory / "log");
            const std::string text(row.size, filler);
            LogText(log, text);
            const Content content = ReadLog(directory / "log");
            ASSERT_EQ(content.records.size(), 1U) << row.size;
            EXPECT_EQ(content.records[0].text, text.substr(0, row.size - row.cut)) << row.size;
            EXPECT_EQ(content.records[0].cut, row.cut);
        }
    }
}

TEST(LogV, CutsBetweenCharacters)
{
    TempDirectory directory;
    ILog* const log = StartLog(directory / "log");
    std::string text(65535, 'a');
    text += "\xc3\xa9";
    LogText(log, text);
    const Content content = ReadLog(directory / "log");
    ASSERT_EQ(content.records.size(), 1U);
    EXPECT_EQ(content.records[0].text, std::string(65535, 'a'));
    EXPECT_EQ(content.records[0].cut, 2U);
}

TEST(LogV, KeepsANulInTheText)
{
    TempDirectory directory;
    ILog* const log = StartLog(directory / "log");
    Log(log, LOGLEVEL_ERROR, "a%cb", 0);
    EXPECT_EQ(Texts(directory / "log"), Strings{std::string("a\0b", 3)});
}

TEST(LogV, WritesTheFormatIfItCannotBeFormatted)
{
    TempDirectory directory;
    ILog* const log = StartLog(directory / "log");
    const std::string tail(5000, '.');
    Log(log, LOGLEVEL_ERROR, "[LAUNCHER  ] %ls!", L"x");
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    Log(log, LOGLEVEL_ERROR, ("%ls" + tail).c_str(), L"x");
#pragma GCC diagnostic pop
    EXPECT_EQ(Texts(directory / "log"), (Strings{"[LAUNCHER  ] %ls!", "%ls" + tail}));
}

TEST(GetLogger, RefusesOtherKinds)
{
    TempDirectory directory;
    ASSERT_EQ(InitLogger((directory / "log").c_str()), 0);
    for (const int kind : {-1, 0, 1, 3, 2 << 16}) {
        ILog* log = nullptr;
        EXPECT_NE(GetLogger(kind, "launcher", LOGLEVEL_ERROR, &log), 0);
        EXPECT_EQ(log, nullptr) << kind;
    }
    ILog* log = nullptr;
    EXPECT_EQ(GetLogger(LOGKIND_FILE, "launcher", LOGLEVEL_ERROR, &log), 0);
    EXPECT_NE(KeepReachable(log), nullptr);
}

TEST(GetLogger, EscapesAndCutsTheName)
{
    TempDirectory directory;
    ASSERT_EQ(InitLogger((directory / "log").c_str()), 0);
    ILog* log = nullptr;
    GetLogger(LOGKIND_FILE, "a b[1]\n", LOGLEVEL_ERROR, &log);
    Log(KeepReachable(log), LOGLEVEL_ERROR, "x");
    GetLogger(LOGKIND_FILE, std::string(100, '\x1b').c_str(), LOGLEVEL_ERROR, &log);
    Log(KeepReachable(log), LOGLEVEL_ERROR, "y");
    const Content content = ReadLog(directory / "log");
    ASSERT_EQ(content.records.size(), 2U);
    EXPECT_EQ(content.records[0].name, "a b[1]\n");
    EXPECT_EQ(content.records[1].name, std::string(64, '\x1b'));
}

TEST(InitLogger, CreatesDirectoriesAndFilesForTheUserOnly)
{
    for (const mode_t mask : std::initializer_list<mode_t>{0, 022, 077, 0177, 0200, 0400, 0777}) {
        TempDirectory directory;
        const mode_t before = umask(static_cast<mode_t>(mask));
        ILog* const log = StartLog(directory / "a//b/log");
        ASSERT_NE(log, nullptr) << mask;
        for (int i = 0; i < 11; ++i) {
            LogText(log, FifthOfALog(i));
        }
        umask(before);
        EXPECT_EQ(Mode(directory / "a"), 0700U);
        EXPECT_EQ(Mode(directory / "a/b"), 0700U);
        for (const char* name : {"a/b/log", "a/b/log.1", "a/b/log.2", "a/b/log.lock"}) {
            EXPECT_EQ(Mode(directory / name), 0600U) << name;
        }
    }
}

TEST(InitLogger, KeepsTheModeOfAnExistingLog)
{
    TempDirectory directory;
    WriteFile(directory / "log", "");
    chmod((directory / "log").c_str(), 0640);
    ASSERT_NE(StartLog(directory / "log"), nullptr);
    EXPECT_EQ(Mode(directory / "log"), 0640U);
}

TEST(InitLogger, AppendsToAnExistingLog)
{
    TempDirectory directory;
    LogText(StartLog(directory / "log"), "one");
    LogText(StartLog(directory / "log"), "two");
    EXPECT_EQ(Texts(directory / "log"), (Strings{"one", "two"}));
}

TEST(InitLogger, ResolvesARelativePathOnce)
{
    TempDirectory directory;
    char before[PATH_MAX];
    ASSERT_NE(getcwd(before, sizeof before), nullptr);
    ASSERT_EQ(chdir(directory.path().c_str()), 0);
    ILog* const log = StartLog("a/log");
    ASSERT_EQ(chdir(before), 0);
    ASSERT_NE(log, nullptr);
    for (int i = 0; i < 6; ++i) {
        LogText(log, FifthOfALog(i));
    }
    EXPECT_EQ(Texts(directory / "a/log").size(), 6U);
    EXPECT_TRUE(Exists(directory / "a/log.1"));
}

#ifdef __linux__
// Changes to a new directory below `start` whose path has `length` bytes.
void EnterDirectoryOfLength(const std::string& start, std::size_t length)
{
    ASSERT_EQ(chdir(start.c_str()), 0);
    for (std::size_t used = start.size(); used < length;) {
        // Leaves at least a slash and one character for a further component.
        const std::size_t left = length - used - 1;
        const std::string name(left > 250 ? std::min<std::size_t>(200, left - 2) : left, 'd');
        ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
        ASSERT_EQ(chdir(name.c_str()), 0);
        used += 1 + name.size();
    }
}

TEST(InitLogger, RejectsARelativePathThatIsTooLongWithTheWorkingDirectory)
{
    char before[PATH_MAX];
    ASSERT_NE(getcwd(before, sizeof before), nullptr);
    const struct
    {
        std::size_t length;  // Of the working directory.
        std::int32_t result;
    } cases[] = {{PATH_MAX - 20, 0}, {PATH_MAX - 2, ENAMETOOLONG}, {PATH_MAX - 1, ERANGE}};
    for (const auto& c : cases) {
        TempDirectory directory;
        EnterDirectoryOfLength(directory.path(), c.length);
        EXPECT_EQ(InitLogger("l"), c.result) << c.length;
        ASSERT_EQ(chdir(before), 0);
    }
}
#endif

TEST(InitLogger, OpensAnotherLogWhenCalledAgain)
{
    TempDirectory directory;
    ILog* const first = StartLog(directory / "first");
    ILog* const second = StartLog(directory / "second");
    LogText(first, "1");
    LogText(second, "2");
    EXPECT_EQ(Texts(directory / "first"), Strings{"1"});
    EXPECT_EQ(Texts(directory / "second"), Strings{"2"});
}

TEST(Rotation, KeepsFiveOldFilesWithTheNewestAsNumberOne)
{
    TempDirectory directory;
    ILog* const log = StartLog(directory / "log");
    Strings all;
    for (int i = 0; i < 50; ++i) {
        all.push_back(FifthOfALog(i));
        LogText(log, all.back());
    }
    // Five texts fill a log. What remains is five old files and an empty log.
    const Strings kept = Texts(directory / "log");
    EXPECT_EQ(kept, Strings(all.end() - static_cast<std::ptrdiff_t>(kept.size()), all.end()));
    EXPECT_EQ(kept.size(), 25U);
    for (int number = 1; number <= 5; ++number) {
        const std::string old = ReadFile(directory / ("log." + std::to_string(number)));
        EXPECT_GE(old.size(), static_cast<std::size_t>(qv7log::kRotateSize));
        EXPECT_LT(old.size(), static_cast<std::size_t>(qv7log::kRotateSize) * 6 / 5 + 100);
    }
    EXPECT_FALSE(Exists(directory / "log.6"));
    EXPECT_FALSE(Exists(directory / "log.0"));
}

TEST(Rotation, HappensAtTheFirstRecordOfAFullLog)
{
    TempDirectory directory;
    WriteFile(directory / "log", std::string(qv7log::kRotateSize, '\n'));
    ILog* const log = StartLog(directory / "log");
    LogText(log, "one");
    LogText(log, "two");
    EXPECT_GT(ReadFile(directory / "log.1").size(), static_cast<std::size_t>(qv7log::kRotateSize));
    EXPECT_EQ(ReadFile(directory / "log").find("one"), std::string::npos);
    EXPECT_NE(ReadFile(directory / "log").find("two"), std::string::npos);
}

TEST(Rotation, FillsAGapInsteadOfRemovingTheOldest)
{
    TempDirectory directory;
    for (const int number : {1, 2, 4, 5}) {
        WriteFile(directory / ("log." + std::to_string(number)), std::to_string(number));
    }
    ILog* const log = StartLog(directory / "log");
    LogText(log, std::string(qv7log::kRotateSize, 'x'));
    EXPECT_EQ(ReadFile(directory / "log.2"), "1");
    EXPECT_EQ(ReadFile(directory / "log.3"), "2");
    EXPECT_EQ(ReadFile(directory / "log.4"), "4");
    EXPECT_EQ(ReadFile(directory / "log.5"), "5");
}

TEST(Rotation, MayBeDoneByAForkedChild)
{
    TempDirectory directory;
    ILog* const log = StartLog(directory / "log");
    const pid_t child = fork();
    if (child == 0) {
        for (int i = 0; i < 20; ++i) {
            LogText(log, FifthOfALog(i));
        }
        _exit(0);
    }
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_TRUE(Exists(directory / "log.4"));
    LogText(log, "the parent's");
    EXPECT_EQ(Texts(directory / "log").size(), 21U);
    EXPECT_FALSE(Exists(directory / "log.5"));
}

TEST(Rotation, IsNoticedByAForkedChild)
{
    TempDirectory directory;
    ILog* const log = StartLog(directory / "log");
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    const pid_t child = fork();
    if (child == 0) {
        close(go[1]);
        char byte;
        (void)!read(go[0], &byte, 1);
        LogText(log, "the child's");
        _exit(0);
    }
    for (int i = 0; i < 5; ++i) {
        LogText(log, FifthOfALog(i));
    }
    EXPECT_TRUE(Exists(directory / "log.1"));
    close(go[0]);
    close(go[1]);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_NE(ReadFile(directory / "log").find("the child's"), std::string::npos);
}

TEST(Rotation, IsPostponedWhileAnotherProcessHoldsTheLock)
{
    TempDirectory directory;
    ILog* const log = StartLog(directory / "log");
    LockHolder holder(directory / "log");
    ASSERT_TRUE(holder.Holds());
    std::atomic<bool> logged = false;
    std::thread logging([&] {
        for (int i = 0; i < 6; ++i) {
            LogText(log, FifthOfALog(i));
        }
        logged = true;
    });
    EXPECT_TRUE(WaitUntil([&] { return logged.load(); }));
    EXPECT_FALSE(Exists(directory / "log.1"));
    holder.Release();
    logging.join();
    LogText(log, FifthOfALog(6));
    EXPECT_TRUE(Exists(directory / "log.1"));
    EXPECT_EQ(Texts(directory / "log").size(), 7U);
}

TEST(Rotation, CreatesTheLockFileAgainAfterItsRemoval)
{
    TempDirectory directory;
    ILog* const log = StartLog(directory / "log");
    unlink((directory / "log.lock").c_str());
    for (int i = 0; i < 5; ++i) {
        LogText(log, FifthOfALog(i));
    }
    EXPECT_TRUE(Exists(directory / "log.1"));
    EXPECT_TRUE(Exists(directory / "log.lock"));
}

#ifdef __linux__
// A file that cannot be renamed or removed, not even by root, until this object is destroyed.
class ImmutableFile
{
public:
    explicit ImmutableFile(const std::string& path) : m_file(open(path.c_str(), O_RDONLY))
    {
        m_error = SetFlag(true) ? 0 : errno;
    }
    ~ImmutableFile()
    {
        SetFlag(false);
        close(m_file);
    }
    ImmutableFile(const ImmutableFile&) = delete;
    ImmutableFile& operator=(const ImmutableFile&) = delete;

    // Why the file is not immutable; 0 if it is.
    int Error() const { return m_error; }

private:
    bool SetFlag(bool is_set) const
    {
        int flags = 0;
        if (ioctl(m_file, FS_IOC_GETFLAGS, &flags) != 0) {
            return false;
        }
        flags = is_set ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
        return ioctl(m_file, FS_IOC_SETFLAGS, &flags) == 0;
    }

    const int m_file;
    int m_error = 0;
};

TEST(Rotation, ChangesNothingIfAnOldFileIsImmutable)
{
    for (const int number : {1, qv7log::kOldFiles}) {
        TempDirectory directory;
        const std::string path = directory / "log";
        const auto old_file = [&](int old) { return path + "." + std::to_string(old); };
        for (int old = 1; old <= qv7log::kOldFiles; ++old) {
            WriteFile(old_file(old), std::to_string(old));
        }
        const ImmutableFile file(old_file(number));
        if (file.Error() != 0) {
            GTEST_SKIP() << "cannot make a file immutable: " << std::strerror(file.Error());
        }
        ILog* const log = StartLog(path);
        for (int i = 0; i < 6; ++i) {
            LogText(log, FifthOfALog(i));
        }
        for (int i = 0; i < 6; ++i) {
            EXPECT_NE(ReadFile(path).find(FifthOfALog(i)), std::string::npos) << i;
        }
        for (int old = 1; old <= qv7log::kOldFiles; ++old) {
            EXPECT_EQ(ReadFile(old_file(old)), std::to_string(old)) << "immutable: " << number;
        }
        EXPECT_FALSE(Exists(old_file(qv7log::kOldFiles + 1)));
    }
}
#endif

}  // namespace
