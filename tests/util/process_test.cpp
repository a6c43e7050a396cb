#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "tests/support/next_descriptor.h"
#include "util/util.h"

namespace {

// For a while, this process gets no new descriptor.
class NoNewDescriptors
{
public:
    NoNewDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit none = m_before;
        none.rlim_cur = 0;
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoNewDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }
    NoNewDescriptors(const NoNewDescriptors&) = delete;
    NoNewDescriptors& operator=(const NoNewDescriptors&) = delete;

private:
    rlimit m_before{};
};

// For a while, `text` is what descriptor 0 gives.
class StandardInput
{
public:
    explicit StandardInput(const std::string& text) : m_before(dup(STDIN_FILENO))
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        EXPECT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(ends[1]);
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
    }
    ~StandardInput()
    {
        dup2(m_before, STDIN_FILENO);
        close(m_before);
    }
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

private:
    const int m_before;
};

// The exit status of a child that ends with what `ask` gives there. The child has a process group
// of its own, so that a question about group 0 cannot reach anybody else.
template <typename Ask>
int StatusOfChild(Ask ask)
{
    const pid_t child = fork();
    if (child == 0) {
        setpgid(0, 0);
        _exit(ask());
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(Pexec, ReturnsTheOutputUntrimmed)
{
    EXPECT_EQ(pexec("echo hi"), "hi\n");
    EXPECT_EQ(pexec("printf ' a\\n\\n b'"), " a\n\n b");
    EXPECT_EQ(pexec("true"), "");
}

TEST(Pexec, RunsTheCommandInTheShell)
{
    EXPECT_EQ(pexec("x=3; echo $((x + 4)) | cat && echo done"), "7\ndone\n");
}

TEST(Pexec, ReturnsALineLongerThanOnePieceWhole)
{
    for (const int length : {126, 127, 128, 254, 255, 300, 100000}) {
        const auto digits = static_cast<std::size_t>(length);
        EXPECT_EQ(pexec("printf %0" + std::to_string(length) + "d 0"), std::string(digits, '0'));
        EXPECT_EQ(pexec("printf '%0" + std::to_string(length) + "d\\nx\\n' 0"),
                  std::string(digits, '0') + "\nx\n");
    }
}

TEST(Pexec, LosesTheRestOfAPieceBehindANul)
{
    EXPECT_EQ(pexec("printf 'ab\\000cd\\nef\\n'"), "abef\n");
    EXPECT_EQ(pexec("printf 'a\\000%0298d' 0"), "a" + std::string(173, '0'));  // 127 of 300 bytes.
}

TEST(Pexec, LeavesStandardErrorToTheCaller)
{
    EXPECT_EQ(pexec("echo kept; echo 'on standard error, as it should be' >&2"), "kept\n");
    EXPECT_EQ(pexec("echo both >&2 2>&1"), "");
}

TEST(Pexec, LeavesStandardInputToTheCommand)
{
    const StandardInput input("from the caller");
    EXPECT_EQ(pexec("cat"), "from the caller");
}

TEST(Pexec, ReturnsTheOutputOfACommandThatFails)
{
    EXPECT_EQ(pexec("echo partly; exit 3"), "partly\n");
    EXPECT_EQ(pexec("echo partly; kill -9 $$"), "partly\n");
}

TEST(Pexec, IsEmptyForACommandThatDoesNotExist)
{
    EXPECT_EQ(pexec("/no/such/command 2>/dev/null"), "");
}

TEST(Pexec, LeavesNoChildAndNoDescriptor)
{
    const int descriptor = NextDescriptor();
    pexec("echo hi; exit 3");
    EXPECT_EQ(NextDescriptor(), descriptor);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(Pexec, ThrowsWhenTheShellCannotBeStarted)
{
    try {
        const NoNewDescriptors guard;
        pexec("echo hi");
        FAIL() << "the shell was started";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "popen() failed!");
    }
    EXPECT_EQ(pexec("echo hi"), "hi\n");
}

TEST(IsRunningPID, IsTrueForThisProcessItsParentAndItsGroup)
{
    EXPECT_TRUE(IsRunningPID(getpid()));
    EXPECT_EQ(StatusOfChild([] { return IsRunningPID(0) ? 1 : 0; }), 1);
    EXPECT_EQ(StatusOfChild([] { return IsRunningPID(getppid()) ? 1 : 0; }), 1);
}

TEST(IsRunningPID, IsTrueUntilAChildIsWaitedFor)
{
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    EXPECT_TRUE(IsRunningPID(child));  // Running or ended: its id is taken until the wait.
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_FALSE(IsRunningPID(child));
}

TEST(IsRunningPID, LooksAtTheLow32BitsOnly)
{
    constexpr long long kHighBit = 1LL << 32;
    EXPECT_TRUE(IsRunningPID(kHighBit + getpid()));
    EXPECT_TRUE(IsRunningPID(-kHighBit + getpid()));
    EXPECT_EQ(StatusOfChild([] { return IsRunningPID(kHighBit) ? 1 : 0; }), 1);
    EXPECT_FALSE(IsRunningPID(0x7FFFFFFF));
    EXPECT_FALSE(IsRunningPID(kHighBit + 0x7FFFFFFF));
}

TEST(IsRunningPID, IsFalseForAProcessOfAnotherUser)
{
    constexpr int kCannotBecomeAnother = 2;
    const int status = StatusOfChild([] {
        if (setuid(65534) != 0) {
            return kCannotBecomeAnother;
        }
        return IsRunningPID(getppid()) ? 1 : 0;
    });
    if (status == kCannotBecomeAnother) {
        GTEST_SKIP() << "only root can become another user";
    }
    EXPECT_EQ(status, 0);
}

TEST(IsRunningPID, DeliversNothing)
{
    const int status = StatusOfChild([] {
        for (int signal_number = 1; signal_number < 32; ++signal_number) {
            signal(signal_number, SIG_DFL);
        }
        IsRunningPID(getpid());
        IsRunningPID(0);
        return 7;
    });
    EXPECT_EQ(status, 7);
}
