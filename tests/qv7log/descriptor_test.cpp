// Which descriptors the log uses, and what programs inherit. Every test runs in a forked child
// with descriptors 0, 1 and 2 closed, as in the launcher. Its exit status names the failed check.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "qv7log/limits.h"
#include "tests/qv7log/read_log.h"

namespace {

constexpr int kMaxDescriptors = 256;

bool IsOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) >= 0;
}

bool IsCloseOnExec(int descriptor)
{
    return (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
}

bool IsLogFile(int descriptor, const std::string& path)
{
    struct stat open_file;
    struct stat at_path;
    return fstat(descriptor, &open_file) == 0 && stat(path.c_str(), &at_path) == 0 &&
           open_file.st_ino == at_path.st_ino && open_file.st_dev == at_path.st_dev;
}

int CountOpenDescriptors()
{
    int open = 0;
    for (int descriptor = 0; descriptor < kMaxDescriptors; ++descriptor) {
        open += IsOpen(descriptor) ? 1 : 0;
    }
    return open;
}

// Runs `body` in a forked child that has no open descriptor. Returns the exit status of the child,
// which is the result of `body`.
template <typename Body>
int InDaemon(Body body)
{
    const pid_t child = fork();
    if (child == 0) {
        for (int descriptor = 0; descriptor < kMaxDescriptors; ++descriptor) {
            close(descriptor);
        }
        _exit(body());
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + status;
}

TEST(LogDescriptor, IsTheLowestWhileOneAndTwoStayClosed)
{
    TempDirectory directory;
    const std::string path = directory / "log";
    EXPECT_EQ(InDaemon([&] {
                  if (StartLog(path) == nullptr) {
                      return 1;
                  }
                  if (!IsLogFile(0, path) || IsCloseOnExec(0)) {
                      return 2;
                  }
                  if (IsOpen(1) || IsOpen(2)) {
                      return 3;
                  }
                  for (int descriptor = 3; descriptor < kMaxDescriptors; ++descriptor) {
                      if (IsOpen(descriptor) && !IsCloseOnExec(descriptor)) {
                          return 4;
                      }
                  }
                  return (fcntl(0, F_GETFL) & O_NONBLOCK) != 0 ? 5 : 0;
              }),
              0);
}

TEST(LogDescriptor, KeepsItsNumberInRotations)
{
    TempDirectory directory;
    const std::string path = directory / "log";
    EXPECT_EQ(InDaemon([&] {
                  ILog* const log = StartLog(path);
                  for (int i = 0; i < 200; ++i) {
                      Log(log, LOGLEVEL_ERROR, "%0500d", i);
                  }
                  if (!Exists(path + ".5")) {
                      return 1;
                  }
                  if (!IsLogFile(0, path) || IsCloseOnExec(0)) {
                      return 2;
                  }
                  return CountOpenDescriptors() == 2 && !IsOpen(1) && !IsOpen(2) ? 0 : 3;
              }),
              0);
}

TEST(LogDescriptor, IsSharedByAllPathsOfALogAlsoAfterARotation)
{
    TempDirectory directory;
    EXPECT_EQ(InDaemon([&] {
                  InitLogger((directory / "log").c_str());
                  const int open = CountOpenDescriptors();
                  InitLogger((directory.path() + "//log").c_str());
                  if (CountOpenDescriptors() != open) {
                      return 1;
                  }
                  rename((directory / "log").c_str(), (directory / "log.1").c_str());
                  InitLogger((directory.path() + "/./log").c_str());
                  if (CountOpenDescriptors() != open) {
                      return 2;
                  }
                  InitLogger((directory / "other").c_str());
                  return CountOpenDescriptors() > open ? 0 : 3;
              }),
              0);
}

TEST(LogDescriptor, IsClosedWhenInitLoggerFails)
{
    TempDirectory directory;
    const std::string path = directory.path();
    EXPECT_EQ(InDaemon([&] { return InitLogger(path.c_str()); }), EISDIR);
    EXPECT_EQ(InDaemon([&] {
                  InitLogger(path.c_str());
                  return CountOpenDescriptors();
              }),
              0);
}

TEST(LogDescriptor, IsIndependentOfTheLockFile)
{
    for (const mode_t type : std::initializer_list<mode_t>{S_IFDIR, S_IFLNK, S_IFIFO, S_IFREG}) {
        TempDirectory directory;
        const std::string path = directory / "log";
        const std::string lock = directory / "log.lock";
        ASSERT_EQ(type == S_IFDIR   ? mkdir(lock.c_str(), 0700)
                  : type == S_IFLNK ? symlink("missing", lock.c_str())
                                    : mknod(lock.c_str(), type, 0),
                  0);
        ILog* const log = StartLog(path);
        ASSERT_NE(log, nullptr) << type;
        Log(log, LOGLEVEL_ERROR, "%05000d", 0);
        EXPECT_EQ(Texts(path).size(), 1U);
    }
}

// The close-on-exec descriptor of the log at `path`; -1 if there is none.
int OwnDescriptor(const std::string& path)
{
    for (int descriptor = 0; descriptor < kMaxDescriptors; ++descriptor) {
        if (IsLogFile(descriptor, path) && IsCloseOnExec(descriptor)) {
            return descriptor;
        }
    }
    return -1;
}

TEST(LogDescriptor, ForRecordsKeepsItsNumberAndIsReopenedAfterTheProgramHasClosedIt)
{
    TempDirectory directory;
    const std::string path = directory / "log";
    EXPECT_EQ(InDaemon([&] {
                  ILog* const log = StartLog(path);
                  const int own = OwnDescriptor(path);
                  for (int i = 0; i < 20; ++i) {
                      Log(log, LOGLEVEL_ERROR, "%0500d", i);
                  }
                  if (own < 3 || OwnDescriptor(path) != own) {
                      return 1;
                  }
                  close(own);
                  Log(log, LOGLEVEL_ERROR, "here");
                  return OwnDescriptor(path) == own ? 0 : 2;
              }),
              0);
    EXPECT_EQ(Texts(path).back(), "here");
}

TEST(LogDescriptor, ForProgramsStaysAsTheProgramLeavesIt)
{
    TempDirectory directory;
    const std::string path = directory / "log";
    WriteFile(directory / "other", "");
    EXPECT_EQ(InDaemon([&] {
                  ILog* const log = StartLog(path);
                  close(0);
                  const int other = open((directory / "other").c_str(), O_RDONLY);
                  for (int i = 0; i < 20; ++i) {
                      Log(log, LOGLEVEL_ERROR, "%0500d", i);
                  }
                  return other == 0 && IsLogFile(0, directory / "other") ? 0 : 1;
              }),
              0);
    EXPECT_TRUE(Exists(path + ".1"));
}

// Does to standard input what a program that inherits the log may do.
void DisturbInheritedDescriptor()
{
    fcntl(0, F_SETFL, O_NONBLOCK);  // without O_APPEND
    lseek(0, 0, SEEK_SET);
}

TEST(LogDescriptor, ForProgramsDoesNotAffectRecords)
{
    TempDirectory directory;
    const std::string path = directory / "log";
    EXPECT_EQ(InDaemon([&] {
                  ILog* const log = StartLog(path);
                  Log(log, LOGLEVEL_ERROR, "first");
                  DisturbInheritedDescriptor();
                  const pid_t other = fork();
                  if (other == 0) {
                      ILog* const others = StartLog(path);
                      for (int i = 0; i < 10; ++i) {
                          Log(others, LOGLEVEL_ERROR, "other's");
                      }
                      _exit(0);
                  }
                  int status = 0;
                  waitpid(other, &status, 0);
                  for (int i = 0; i < 10; ++i) {
                      Log(log, LOGLEVEL_ERROR, "own");
                      lseek(0, 0, SEEK_SET);
                  }
                  return status;
              }),
              0);
    EXPECT_EQ(Texts(path).size(), 21U);
    EXPECT_EQ(Texts(path).front(), "first");
}

// Executes this test program with an argument that makes it check what it has inherited.
int ExecuteDescriptorCheck(const char* program)
{
    const pid_t child = fork();
    if (child == 0) {
        execl(program, program, "check-descriptors", static_cast<char*>(nullptr));
        _exit(100);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 101;
}

std::string g_program;

TEST(LogDescriptor, IsTheOnlyOneThatProgramsInheritDuringRotations)
{
    TempDirectory directory;
    const std::string path = directory / "log";
    EXPECT_EQ(InDaemon([&] {
                  ILog* const log = StartLog(path);
                  std::atomic<bool> stop{false};
                  std::vector<std::thread> threads;
                  for (int i = 0; i < 2; ++i) {
                      threads.emplace_back([&] {
                          while (!stop) {
                              Log(log, LOGLEVEL_ERROR, "%01000d", 0);
                              std::this_thread::sleep_for(std::chrono::microseconds(20));
                          }
                      });
                  }
                  int wrong = 0;
                  for (int i = 0; i < 100 && wrong == 0; ++i) {
                      wrong = ExecuteDescriptorCheck(g_program.c_str());
                  }
                  stop = true;
                  for (std::thread& thread : threads) {
                      thread.join();
                  }
                  return wrong;
              }),
              0);
    EXPECT_TRUE(Exists(path + ".5"));
}

// Returns 0 if this program has inherited a regular file as descriptor 0 and nothing else.
int CheckInheritedDescriptors()
{
    struct stat status;
    if (fstat(0, &status) != 0 || !S_ISREG(status.st_mode)) {
        return 50;
    }
    for (int descriptor = 1; descriptor < kMaxDescriptors; ++descriptor) {
        if (IsOpen(descriptor)) {
            return descriptor < 40 ? descriptor : 40;
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::string(argv[1]) == "check-descriptors") {
        return CheckInheritedDescriptors();
    }
    g_program = argv[0];
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
