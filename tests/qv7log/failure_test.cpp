// Failures: directories and links that prevent a start, a log that is removed or replaced, and
// errors of `open`, `mkdir` and `write`, which this test replaces.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "qv7log/limits.h"
#include "tests/qv7log/read_log.h"

using Strings = std::vector<std::string>;

namespace {

// What the next calls of write do. 0: write everything. A positive number: fail with this errno.
// A negative number: write only this many bytes. Without a script, every call writes everything.
std::deque<int> g_script;
int g_calls = 0;

// The number of calls to open until one opens a pipe instead of the file; never if negative. Not a
// device such as /dev/null, whose mode the library would change if it believed to have created it.
int g_opens_until_pipe = -1;

// The errno with which each of the next calls of open fails; 0: it opens the file.
std::deque<int> g_open_errors;

// The errno with which every mkdir fails; 0: it creates the directory.
int g_mkdir_error = 0;

}  // namespace

extern "C" int open(const char* path, int flags, ...)
{
    using Open = int (*)(const char*, int, ...);
    static const Open next = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "open"));
    if (g_opens_until_pipe >= 0 && g_opens_until_pipe-- == 0) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        close(ends[0]);
        return ends[1];
    }
    if (!g_open_errors.empty()) {
        const int error = g_open_errors.front();
        g_open_errors.pop_front();
        if (error != 0) {
            errno = error;
            return -1;
        }
    }
    va_list arguments;
    va_start(arguments, flags);
    const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
    va_end(arguments);
    return next(path, flags, mode);
}

#ifdef __GLIBC__
// What a call of open becomes with _FORTIFY_SOURCE. With a mode, the call below stays one of open.
extern "C" int __open_2(const char* path, int flags)  // NOLINT(bugprone-reserved-identifier)
{
    return open(path, flags, 0);
}
#endif

// ThreadSanitizer calls this before it can instrument anything.
extern "C" __attribute__((no_sanitize("thread"))) int mkdir(const char* path, mode_t mode)
{
    if (g_mkdir_error != 0) {
        errno = g_mkdir_error;
        return -1;
    }
    return mkdirat(AT_FDCWD, path, mode);
}

extern "C" ssize_t write(int descriptor, const void* data, size_t size)
{
    using Write = ssize_t (*)(int, const void*, size_t);
    static const Write next = reinterpret_cast<Write>(dlsym(RTLD_NEXT, "write"));
    ++g_calls;
    int step = 0;
    if (!g_script.empty()) {
        step = g_script.front();
        g_script.pop_front();
    }
    if (step > 0) {
        errno = step;
        return -1;
    }
    return next(descriptor, data, step < 0 ? static_cast<size_t>(-step) : size);
}

namespace {

void LogText(ILog* log, const std::string& text)
{
    Log(log, LOGLEVEL_ERROR, "%s", text.c_str());
}

class WriteFailure : public testing::Test
{
protected:
    WriteFailure() : m_path(m_directory / "log"), m_log(StartLog(m_path)) { g_script.clear(); }
    ~WriteFailure() override { g_script.clear(); }

    TempDirectory m_directory;
    const std::string m_path;
    ILog* const m_log;
};

TEST_F(WriteFailure, OneRecordIsOneWrite)
{
    g_calls = 0;
    LogText(m_log, "short");
    LogText(m_log, std::string(60000, '\x1b'));
    EXPECT_EQ(g_calls, 2);
}

TEST_F(WriteFailure, AnInterruptedWriteIsRepeated)
{
    g_script = {EINTR, EINTR, 0};
    LogText(m_log, "one");
    EXPECT_EQ(Texts(m_path), Strings{"one"});
}

TEST_F(WriteFailure, AShortWriteIsRepeatedWhole)
{
    g_script = {-30};
    LogText(m_log, "one");
    LogText(m_log, "two");
    const Content content = ReadLog(m_path);
    ASSERT_EQ(content.records.size(), 2U);
    EXPECT_EQ(content.records[0].text, "one");
    ASSERT_EQ(content.others.size(), 1U);
    EXPECT_EQ(content.others[0].size(), 30U);
}

TEST_F(WriteFailure, LostRecordsAreReportedBeforeTheNextWrittenRecord)
{
    for (const int error : {ENOSPC, EIO, EFBIG}) {
        TempDirectory directory;
        ILog* const log = StartLog(directory / "log");
        LogText(log, "before");
        g_script = {error, error, error};
        LogText(log, "a");
        LogText(log, "b");
        LogText(log, "c");
        ASSERT_TRUE(g_script.empty());
        LogText(log, "after");
        LogText(log, "later");
        EXPECT_EQ(Texts(directory / "log"),
                  (Strings{"before", "[QV7LOG    ] 3 records were lost", "after", "later"}));
    }
}

TEST_F(WriteFailure, AReportThatCannotBeWrittenIsRepeatedLater)
{
    g_script = {ENOSPC, ENOSPC, ENOSPC, 0, ENOSPC};
    LogText(m_log, "a");
    LogText(m_log, "b");  // the report cannot be written either
    LogText(m_log, "c");
    LogText(m_log, "d");  // the report is written, the record is not
    LogText(m_log, "e");
    EXPECT_EQ(Texts(m_path), (Strings{"[QV7LOG    ] 3 records were lost",
                                      "[QV7LOG    ] 1 records were lost", "e"}));
}

TEST_F(WriteFailure, ATornRecordIsLostAndLeavesTheNextOneReadable)
{
    g_script = {-40, ENOSPC};
    LogText(m_log, "a");
    LogText(m_log, "b");
    g_script = {-40, -20};
    LogText(m_log, "c");
    LogText(m_log, "d");
    const Content content = ReadLog(m_path);
    Strings texts;
    for (const qv7log::Record& record : content.records) {
        texts.push_back(record.text);
    }
    EXPECT_EQ(texts, (Strings{"[QV7LOG    ] 1 records were lost", "b",
                              "[QV7LOG    ] 1 records were lost", "d"}));
    EXPECT_EQ(content.others.size(), 2U);
}

TEST_F(WriteFailure, AForkedChildReportsOnlyItsOwnLosses)
{
    g_script = {ENOSPC, ENOSPC};
    LogText(m_log, "a");
    LogText(m_log, "b");
    const pid_t child = fork();
    if (child == 0) {
        LogText(m_log, "child");
        g_script = {EIO};
        LogText(m_log, "c");
        LogText(m_log, "child again");
        _exit(0);
    }
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    LogText(m_log, "parent");
    EXPECT_EQ(Texts(m_path), (Strings{"child", "[QV7LOG    ] 1 records were lost", "child again",
                                      "[QV7LOG    ] 2 records were lost", "parent"}));
}

TEST_F(WriteFailure, AFailingLogNeverBlocksTheCaller)
{
    g_calls = 0;
    for (int i = 0; i < 1000; ++i) {
        g_script = {EIO};
        LogText(m_log, "x");
    }
    EXPECT_EQ(g_calls, 1000);
    g_script.clear();
    LogText(m_log, "y");
    EXPECT_EQ(Texts(m_path), (Strings{"[QV7LOG    ] 1000 records were lost", "y"}));
}

// Waits until the log checks its path again: in a burst, it does so once per millisecond.
void NextMillisecond()
{
    timespec start;
    timespec now;
    clock_gettime(CLOCK_REALTIME, &start);
    do {
        clock_gettime(CLOCK_REALTIME, &now);
    } while (now.tv_nsec / 1000000 == start.tv_nsec / 1000000);
}

TEST_F(WriteFailure, ARemovedLogIsCreatedAgainAtOnce)
{
    LogText(m_log, "one");
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(unlink(m_path.c_str()), 0);
        LogText(m_log, "two");
        ASSERT_EQ(Texts(m_path), Strings{"two"});
    }
}

TEST_F(WriteFailure, AReplacedLogIsFollowed)
{
    LogText(m_log, "one");
    ASSERT_EQ(rename(m_path.c_str(), (m_directory / "away").c_str()), 0);
    WriteFile(m_path, "");
    NextMillisecond();
    LogText(m_log, "two");
    EXPECT_EQ(Texts(m_path), Strings{"two"});
    EXPECT_EQ(Texts(m_directory / "away"), Strings{"one"});
}

TEST_F(WriteFailure, ARemovedDirectoryIsCreatedAgain)
{
    const std::string path = m_directory / "a/b/log";
    ILog* const log = StartLog(path);
    unlink(path.c_str());
    unlink((path + ".lock").c_str());
    ASSERT_EQ(rmdir((m_directory / "a/b").c_str()), 0);
    ASSERT_EQ(rmdir((m_directory / "a").c_str()), 0);
    LogText(log, "two");
    EXPECT_EQ(Texts(path), Strings{"two"});
    for (int i = 0; i < 10; ++i) {
        LogText(log, std::string(1000, 'x'));
    }
    EXPECT_TRUE(Exists(path + ".1"));
}

TEST_F(WriteFailure, ASymbolicLinkInPlaceOfTheLogIsNotFollowed)
{
    WriteFile(m_directory / "target", "");
    LogText(m_log, "one");
    ASSERT_EQ(rename(m_path.c_str(), (m_directory / "away").c_str()), 0);
    ASSERT_EQ(symlink((m_directory / "target").c_str(), m_path.c_str()), 0);
    NextMillisecond();
    LogText(m_log, "two");
    EXPECT_EQ(ReadFile(m_directory / "target"), "");
    EXPECT_EQ(Texts(m_directory / "away"), (Strings{"one", "two"}));
    for (int i = 0; i < 10; ++i) {
        LogText(m_log, std::string(1000, 'x'));
    }
    EXPECT_EQ(ReadFile(m_directory / "target"), "");
    EXPECT_EQ(Texts(m_directory / "away").size(), 12U);
}

TEST_F(WriteFailure, RecordsAreLostAndCountedWhileTheLogCannotBeCreatedAgain)
{
    LogText(m_log, "one");
    unlink(m_path.c_str());
    ASSERT_EQ(mkdir(m_path.c_str(), 0700), 0);
    LogText(m_log, "two");
    LogText(m_log, "three");
    ASSERT_EQ(rmdir(m_path.c_str()), 0);
    LogText(m_log, "four");
    EXPECT_EQ(Texts(m_path), (Strings{"[QV7LOG    ] 2 records were lost", "four"}));
}

TEST_F(WriteFailure, ALogThatCannotBeRotatedGrows)
{
    // Directories in place of the old files cannot be removed.
    mkdir((m_path + ".1").c_str(), 0700);
    for (int number = 2; number <= 6; ++number) {
        mkdir((m_path + "." + std::to_string(number)).c_str(), 0700);
        mkdir((m_path + "." + std::to_string(number) + "/x").c_str(), 0700);
    }
    for (int i = 0; i < 20; ++i) {
        LogText(m_log, std::string(1000, 'x'));
    }
    Content content;
    ReadInto(content, m_path);
    EXPECT_EQ(content.records.size(), 20U);
}

TEST(InitLogger, ReturnsTheErrnoOfWhatFailed)
{
    TempDirectory directory;
    WriteFile(directory / "file", "");
    mkdir((directory / "directory").c_str(), 0700);
    WriteFile(directory / "target", "");
    ASSERT_EQ(symlink((directory / "target").c_str(), (directory / "link").c_str()), 0);
    ASSERT_EQ(symlink((directory / "missing").c_str(), (directory / "dangling").c_str()), 0);
    ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);
    struct Row
    {
        std::string path;
        int error;
    };
    const Row rows[] = {
        {directory / "directory", EISDIR},
        {directory / "file/log", ENOTDIR},
        {directory / "file/a/log", ENOTDIR},
        {directory / "link", ELOOP},
        {directory / "dangling", ELOOP},
        {directory / "pipe", ENXIO},
        {"", EISDIR},
        {"/dev/null", EINVAL},
        {directory / std::string(300, 'x'), ENAMETOOLONG},
        {std::string(PATH_MAX, '/'), ENAMETOOLONG},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(InitLogger(row.path.c_str()), row.error) << row.path.substr(0, 100);
    }
    EXPECT_FALSE(Exists(directory / "missing"));
}

// The log is opened twice, and may be replaced in between.
TEST(InitLogger, RefusesAFileThatBecomesAPipe)
{
    TempDirectory directory;
    const std::string path = directory / "log";
    WriteFile(path, "");
    for (const int opens : {0, 1}) {
        g_opens_until_pipe = opens;
        errno = 0;
        EXPECT_EQ(InitLogger(path.c_str()), EINVAL) << opens;
        EXPECT_EQ(g_opens_until_pipe, -1);
    }
}

// Runs as another user, because root can write to every directory.
TEST(InitLogger, ReturnsTheErrnoOfAnUnwritableDirectory)
{
    TempDirectory directory;
    const std::string path = directory / "log";
    const std::string deeper = directory / "a/log";
    ASSERT_EQ(chmod(directory.path().c_str(), 0555), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (getuid() == 0 && setuid(65534) != 0) {
            _exit(1);
        }
        const bool as_expected =
            InitLogger(path.c_str()) == EACCES && InitLogger(deeper.c_str()) == EACCES;
        _exit(as_expected ? 0 : 2);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

}  // namespace

TEST(InitLogger, RepeatsAnInterruptedOpen)
{
    const TempDirectory directory;
    g_open_errors = {EINTR, EINTR, 0, EINTR, 0};
    EXPECT_EQ(InitLogger((directory / "log").c_str()), 0);
    EXPECT_TRUE(g_open_errors.empty());
    EXPECT_TRUE(Exists(directory / "log"));
}

TEST(InitLogger, OpensALogThatSomeoneElseCreatesMeanwhile)
{
    const TempDirectory directory;
    g_open_errors = {ENOENT, EEXIST, ENOENT, EEXIST};
    EXPECT_EQ(InitLogger((directory / "log").c_str()), 0);
    EXPECT_TRUE(g_open_errors.empty());
}

TEST(InitLogger, FailsIfSomeoneKeepsRemovingTheLog)
{
    const TempDirectory directory;
    g_open_errors = {ENOENT, EEXIST, ENOENT, EEXIST, ENOENT, EEXIST};
    EXPECT_EQ(InitLogger((directory / "log").c_str()), EEXIST);
    EXPECT_TRUE(g_open_errors.empty());
}

TEST(InitLogger, ReturnsTheErrnoOfAFailedCreation)
{
    const TempDirectory directory;
    g_open_errors = {ENOENT, ENOSPC};
    EXPECT_EQ(InitLogger((directory / "log").c_str()), ENOSPC);
    EXPECT_FALSE(Exists(directory / "log"));
}

TEST(InitLogger, ReturnsTheErrnoOfADirectoryThatCannotBeCreated)
{
    const TempDirectory directory;
    // Some systems report EROFS for the existing directories, too.
    g_mkdir_error = EROFS;
    const int error = InitLogger((directory / "missing/log").c_str());
    g_mkdir_error = 0;
    EXPECT_EQ(error, EROFS);
    EXPECT_EQ(InitLogger((directory / "missing/log").c_str()), 0);
}
