#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>
#include <stdexcept>
#include <string>

#include "tests/support/allocation_limit.h"
#include "tests/support/never_returns.h"
#include "tests/support/next_descriptor.h"
#include "util/util.h"

namespace {

bool g_popen_gives_unreadable_stream = false;

}  // namespace

// On request, returns a stream on which every read fails and that never reports end of file.
extern "C" std::FILE* popen(const char* command, const char* mode)
{
    static const auto real = reinterpret_cast<decltype(&popen)>(dlsym(RTLD_NEXT, "popen"));
    return g_popen_gives_unreadable_stream ? std::fopen("/", "r") : real(command, mode);
}

namespace {

// While an object exists, this process cannot open further descriptors.
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

// While an object exists, `text` is the standard input.
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

// While an object exists, standard error goes to a pipe.
class StandardError
{
public:
    StandardError() : m_before(dup(STDERR_FILENO))
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        m_read_end = ends[0];
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
    }
    ~StandardError()
    {
        Restore();
        close(m_before);
        close(m_read_end);
    }
    StandardError(const StandardError&) = delete;
    StandardError& operator=(const StandardError&) = delete;

    // What was written so far, up to 100 bytes. Ends the redirection, so that the read ends.
    std::string Text()
    {
        Restore();
        char text[100];
        const ssize_t count = read(m_read_end, text, sizeof text);
        return std::string(text, count > 0 ? static_cast<std::size_t>(count) : 0);
    }

private:
    void Restore() const { dup2(m_before, STDERR_FILENO); }

    const int m_before;
    int m_read_end = -1;
};

// Runs `ask` in a child process and returns its result, passed on as the exit status. The child is
// in its own process group, so that a question about group 0 concerns only the child.
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

TEST(Pexec, DropsTheRestOfAPieceAfterANul)
{
    EXPECT_EQ(pexec("printf 'ab\\000cd\\nef\\n'"), "abef\n");
    EXPECT_EQ(pexec("printf 'a\\000%0298d' 0"), "a" + std::string(173, '0'));  // 127 of 300 bytes.
}

TEST(Pexec, LeavesStandardErrorToTheCaller)
{
    StandardError standard_error;
    EXPECT_EQ(pexec("{ echo kept; echo 'not kept' >&2; }"), "kept\n");
    EXPECT_EQ(standard_error.Text(), "not kept\n");
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

TEST(Pexec, LeavesNoChildAndNoDescriptorWhenItThrows)
{
    const int descriptor = NextDescriptor();
    {
        const AllocationLimit limit(1000);
        EXPECT_THROW(pexec("printf %0100000d 0"), std::bad_alloc);
    }
    EXPECT_EQ(NextDescriptor(), descriptor);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

// Callers rely on complete output: a check for read errors would return what was read before.
TEST(Pexec, DoesNotReturnOnAReadError)
{
    g_popen_gives_unreadable_stream = true;
    EXPECT_TRUE(NeverReturns([] { pexec("echo hi"); }));
    g_popen_gives_unreadable_stream = false;
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

TEST(IsRunningPID, IsTrueUntilAChildIsReaped)
{
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    EXPECT_TRUE(IsRunningPID(child));  // Running or a zombie: its id is in use.
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_FALSE(IsRunningPID(child));
}

TEST(IsRunningPID, CutsTheIdTo32Bits)
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
