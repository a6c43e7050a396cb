// The stacks of threads, and their contents in a forked child. The cases run in this process, and
// again in processes that lack something, where the replaced functions below fail.
#include <fcntl.h>
#include <gnu/libc-version.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kStackSize = 512 * 1024;
constexpr int kGuardInstall = 102;  // MADV_GUARD_INSTALL
// More threads than the range has room for.
constexpr int kTooMany = 2048 + 20;
// A fork always copies the stacks of the first threads.
constexpr int kCopiedCount = 4;

std::atomic<int> g_keep_calls{0};

// The environment variable that names what this process lacks. It may be read even before main.
constexpr const char* kLacks = "KESTRANE_TEST_LACKS";

bool Lacks(const char* what)
{
    const char* const lacks = std::getenv(kLacks);
    return lacks != nullptr && std::strstr(lacks, what) != nullptr;
}

int FailWith(int error)
{
    errno = error;
    return -1;
}

const char* RealGlibcVersion()
{
    static char name[64];  // "glibc 2.36"
    const std::size_t size = confstr(_CS_GNU_LIBC_VERSION, name, sizeof name);
    return size > 0 && size <= sizeof name ? name + std::strlen("glibc ") : "unknown";
}

// Whether fork leaves the descriptors of other threads alone.
bool GlibcSuits()
{
    return std::strncmp(RealGlibcVersion(), "2.", 2) == 0 &&
           std::atoi(RealGlibcVersion() + 2) <= 38;
}

}  // namespace

// The functions that the source under test calls.
extern "C" {

int madvise(void* address, std::size_t size, int advice) noexcept
{
    if ((advice == kGuardInstall && Lacks("guard marks")) ||
        (advice == MADV_WIPEONFORK && Lacks("wiping"))) {
        return FailWith(EINVAL);
    }
    if (advice == MADV_KEEPONFORK) {
        ++g_keep_calls;
    }
    if (advice == MADV_KEEPONFORK && size < 2 * kStackSize && Lacks("further mappings")) {
        return FailWith(ENOMEM);
    }
    return static_cast<int>(syscall(SYS_madvise, address, size, advice));
}

int mprotect(void* address, std::size_t size, int protection) noexcept
{
    if (Lacks("protection")) {
        return FailWith(ENOMEM);
    }
    return static_cast<int>(syscall(SYS_mprotect, address, size, protection));
}

void* mmap(void* address, std::size_t size, int protection, int flags, int file,
           off_t offset) noexcept
{
    if ((flags & MAP_NORESERVE) != 0 && Lacks("address space")) {
        errno = ENOMEM;
        return MAP_FAILED;
    }
    const auto result = syscall(SYS_mmap, address, size, protection, flags, file, offset);
    return reinterpret_cast<void*>(result);  // NOLINT(performance-no-int-to-ptr)
}

int open(const char* path, int flags, ...)
{
    const char* const other = std::getenv("KESTRANE_TEST_OVERCOMMIT");
    if (other != nullptr && std::strcmp(path, "/proc/sys/vm/overcommit_memory") == 0) {
        path = other;
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0600));
}

// Hides the real limits of this process, so that the range fits.
int getrlimit(__rlimit_resource_t resource, rlimit* limit) noexcept
{
    const bool limited = (resource == RLIMIT_AS && Lacks("free address space")) ||
                         (resource == RLIMIT_DATA && Lacks("free data segment"));
    limit->rlim_cur = limited ? rlim_t{16} << 30 : RLIM_INFINITY;
    limit->rlim_max = RLIM_INFINITY;
    return 0;
}

const char* gnu_get_libc_version() noexcept
{
    const char* const version = std::getenv("KESTRANE_TEST_GLIBC");
    return version != nullptr ? version : RealGlibcVersion();
}

}  // extern "C"

namespace {

// Whether threads have stacks that a fork does not copy.
bool HasWipedStacks()
{
    return GlibcSuits() && std::getenv("KESTRANE_TEST_COPIED") == nullptr;
}

struct Stack
{
    char* lowest = nullptr;
    std::size_t size = 0;
    std::size_t guard = 0;
};

Stack StackOfThisThread()
{
    Stack stack;
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    void* lowest = nullptr;
    pthread_attr_getstack(&attributes, &lowest, &stack.size);
    pthread_attr_getguardsize(&attributes, &stack.guard);
    pthread_attr_destroy(&attributes);
    stack.lowest = static_cast<char*>(lowest);
    return stack;
}

// The end of the usable part: below it lies the guard page, which is part of some stacks.
char* EndOfStack()
{
    const Stack stack = StackOfThisThread();
    return stack.lowest + stack.size - kStackSize;
}

// The wait status of a forked child that does `work` and then exits with status 7.
template <typename Work>
int WaitStatusOfChild(Work work)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        work();
        _exit(7);
    }
    int wait_status = -1;
    waitpid(child, &wait_status, 0);
    return wait_status;
}

constexpr int kLeft = 7 << 8;

int WaitStatusOfWriteInChild(char* address)
{
    return WaitStatusOfChild([&] { *static_cast<volatile char*>(address) = 1; });
}

// The value at `address` in a forked child.
int ValueInChild(const volatile int* address)
{
    return WEXITSTATUS(WaitStatusOfChild([&] { _exit(*address); }));
}

template <typename Work>
void RunInThread(Work work)
{
    std::thread(work).join();
}

// Threads that live until this is destroyed. Each begins with `first`.
class Threads
{
public:
    template <typename First>
    Threads(int count, First first)
    {
        for (int i = 0; i < count; ++i) {
            m_threads.emplace_back([this, first, i] {
                first(i);
                std::unique_lock<std::mutex> lock(m_mutex);
                ++m_ready;
                m_changed.notify_all();
                m_changed.wait(lock, [this] { return m_done; });
            });
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return m_ready == count; });
    }

    ~Threads()
    {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_done = true;
            m_changed.notify_all();
        }
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }

    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

    pthread_t operator[](std::size_t index) { return m_threads[index].native_handle(); }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_ready = 0;
    bool m_done = false;
    std::vector<std::thread> m_threads;
};

void ForkOnce(int)
{
    EXPECT_EQ(WaitStatusOfChild([] {}), kLeft);
}

std::ptrdiff_t CountMappings()
{
    std::ifstream maps("/proc/self/maps");
    return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
}

std::ptrdiff_t MappingsWithThreads(int count)
{
    const Threads threads(count, ForkOnce);
    return CountMappings();
}

bool KernelMarksGuards()
{
    return madvise(nullptr, 0, kGuardInstall) == 0;
}

// All cases that are quick.
constexpr const char* kMostCases = "ThreadStack.*-*IsUsedAgain*:*BeyondTheEnd*:*LosesNoChild*";
constexpr const char* kLongCases = "*IsUsedAgain*:*BeyondTheEnd*:*LosesNoChild*";
// Enough to tell which stacks are in use.
constexpr const char* kOneCase = "ThreadStack.IsNotCopiedForOtherThreads";

// Runs these cases in a new process with these environment variables; returns its wait status.
int RunAgain(const std::string& cases, const std::vector<std::string>& variables)
{
    const pid_t child = fork();
    if (child == 0) {
        for (const std::string& variable : variables) {
            putenv(strdup(variable.c_str()));
        }
        const std::string filter = "--gtest_filter=" + cases;
        execl("/proc/self/exe", "again", filter.c_str(), "--gtest_brief=1",
              "--gtest_also_run_disabled_tests", nullptr);
        _exit(127);
    }
    int wait_status = -1;
    waitpid(child, &wait_status, 0);
    return wait_status;
}

const std::string kCopied = "KESTRANE_TEST_COPIED=1";

std::string Lacking(const std::string& what)
{
    return std::string(kLacks) + "=" + what;
}

// The threads of a case come after those whose stacks a fork always copies.
class ThreadStack : public testing::Test
{
    const Threads m_first{kCopiedCount, [](int) {}};
};

// How often a thread that forks marks its stack before that.
int KeepCallsOfFork()
{
    int calls = 0;
    const Threads thread(1, [&](int) {
        const int before = g_keep_calls;
        ForkOnce(0);
        calls = g_keep_calls - before;
    });
    return calls;
}

}  // namespace

TEST_F(ThreadStack, HasRoomFor512KiB)
{
    RunInThread([] {
        const Stack stack = StackOfThisThread();
        const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        // glibc's stacks include the guard page that the thread marks.
        const bool marks = !HasWipedStacks() && KernelMarksGuards();
        EXPECT_EQ(stack.size, kStackSize + (marks ? page : 0));
        // All of it.
        std::memset(EndOfStack(), 1, kStackSize - 64 * 1024);
    });
}

TEST_F(ThreadStack, EndsAChildThatRunsOverIt)
{
    const auto expect_guard = [] {
        char* const end = EndOfStack();
        EXPECT_EQ(WaitStatusOfWriteInChild(end), kLeft) << "the last byte of the stack";
        EXPECT_EQ(WaitStatusOfWriteInChild(end - 1) & 0x7f, SIGSEGV) << "the byte below";
    };
    RunInThread([&] {
        expect_guard();
        RunInThread(expect_guard);  // a second thread has another stack
    });
}

TEST_F(ThreadStack, IsKeptInTheChildOfItsThread)
{
    const Threads others(3, ForkOnce);
    RunInThread([] {
        volatile int local = 5;
        EXPECT_EQ(ValueInChild(&local), 5);
        // Again, because after a fork the parent marks the stack for wiping again.
        EXPECT_EQ(ValueInChild(&local), 5);
    });
}

TEST_F(ThreadStack, IsKeptInTheChildOfAChild)
{
    RunInThread([] {
        volatile int local = 5;
        EXPECT_EQ(WaitStatusOfChild([&] {
                      _exit(ValueInChild(&local) == 5 && ValueInChild(&local) == 5 ? 7 : 1);
                  }),
                  kLeft);
    });
}

TEST_F(ThreadStack, IsNotCopiedForOtherThreads)
{
    volatile int* of_other = nullptr;
    const Threads other(1, [&](int) {
        static thread_local volatile int local = 5;
        of_other = &local;
        ForkOnce(0);
    });
    const int expected = HasWipedStacks() ? 0 : 5;
    EXPECT_EQ(ValueInChild(of_other), expected);
    RunInThread([&] { EXPECT_EQ(ValueInChild(of_other), expected); });
}

TEST(FirstThreadStacks, AreCopied)
{
    std::vector<volatile int*> of_others(kCopiedCount + 1);
    const Threads others(kCopiedCount + 1, [&](int i) {
        static thread_local volatile int local = 5;
        of_others[static_cast<std::size_t>(i)] = &local;
        ForkOnce(i);
    });
    std::multiset<int> values;
    for (volatile int* const of_other : of_others) {
        values.insert(ValueInChild(of_other));
    }
    EXPECT_EQ(values.count(5), kCopiedCount + (HasWipedStacks() ? 0 : 1));
}

TEST(FirstThreadStacks, AreNotMarkedForEachFork)
{
    EXPECT_EQ(KeepCallsOfFork(), 0);
}

TEST_F(ThreadStack, IsMarkedForEachFork)
{
    if (!Lacks("further mappings")) {
        EXPECT_EQ(KeepCallsOfFork(), HasWipedStacks() ? 1 : 0);
    }
}

TEST_F(ThreadStack, ServesManyThreadsThatForkAtOnce)
{
    const Threads threads(40, [](int) {
        for (int i = 0; i < 20; ++i) {
            ForkOnce(i);
        }
    });
}

TEST_F(ThreadStack, IsUsedAgainOnceItsThreadIsJoined)
{
    std::set<char*> stacks;
    for (int i = 0; i < kTooMany; ++i) {
        RunInThread([&] { stacks.insert(StackOfThisThread().lowest); });
    }
    EXPECT_EQ(stacks.size(), 1U);
}

TEST_F(ThreadStack, IsEmptyWhenItIsUsedAgain)
{
    for (int i = 0; i < 2; ++i) {
        RunInThread([&] {
            char* const middle = EndOfStack() + kStackSize / 2;
            EXPECT_EQ(*middle, 0);
            *middle = 1;
        });
    }
}

TEST_F(ThreadStack, IsNotUsedAgainBeforeItsThreadIsJoined)
{
    std::atomic<char*> ended{nullptr};
    std::thread thread([&] { ended = StackOfThisThread().lowest; });
    while (ended == nullptr) {
        std::this_thread::yield();
    }
    RunInThread([&] { EXPECT_NE(StackOfThisThread().lowest, ended.load()); });
    thread.join();
}

TEST_F(ThreadStack, ComesFromGlibcBeyondTheEndOfTheRange)
{
    std::vector<char*> stacks(kTooMany);
    Threads threads(kTooMany, [&](int i) {
        stacks[static_cast<std::size_t>(i)] = EndOfStack();
        if (i >= kTooMany - 20) {
            ForkOnce(i);
        }
    });
    EXPECT_EQ(std::set<char*>(stacks.begin(), stacks.end()).size(), stacks.size());
    for (char* const stack : {stacks.front(), stacks.back()}) {
        EXPECT_EQ(WaitStatusOfWriteInChild(stack), kLeft);
    }
    RunInThread([] { ForkOnce(0); });
}

TEST_F(ThreadStack, IsTheCallersIfAttributesAreGiven)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 2 * kStackSize);
    pthread_t thread;
    std::size_t size = 0;
    const auto run = [](void* size_of_stack) -> void* {
        *static_cast<std::size_t*>(size_of_stack) = StackOfThisThread().size;
        return size_of_stack;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &size), 0);
    pthread_attr_destroy(&attributes);
    void* result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, &size);
    EXPECT_EQ(size, 2 * kStackSize);
}

TEST_F(ThreadStack, AddsNoMappingOfItsOwn)
{
    if (!KernelMarksGuards()) {
        GTEST_SKIP() << "needs Linux 6.13";
    }
    if (Lacks("further mappings")) {
        GTEST_SKIP() << "each thread wipes its own stack only";
    }
    const std::ptrdiff_t few = MappingsWithThreads(2);
    EXPECT_LE(MappingsWithThreads(40), few + 2);
}

TEST_F(ThreadStack, BelongsToThreadsThatReturnTheirResult)
{
    pthread_t thread;
    int value = 0;
    ASSERT_EQ(pthread_create(
                  &thread, nullptr, [](void* argument) { return argument; }, &value),
              0);
    void* result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, &value);
}

TEST_F(ThreadStack, LetsAChildJoinTheThreadsOfItsParent)
{
    Threads threads(3, ForkOnce);
    const auto join_all = [&] {
        for (std::size_t i = 0; i < 3; ++i) {
            void* result = &threads;
            if (pthread_join(threads[i], &result) != 0 || result == &threads) {
                _exit(1);
            }
        }
    };
    EXPECT_EQ(WaitStatusOfChild(join_all), kLeft) << "of main";
    RunInThread([&] {
        EXPECT_EQ(WaitStatusOfChild(join_all), kLeft) << "of a thread";
        EXPECT_EQ(WaitStatusOfChild([&] { _exit(WEXITSTATUS(WaitStatusOfChild(join_all))); }),
                  kLeft)
            << "of a child";
    });
}

namespace {

// While g_joins_early is true, each forked child joins this thread and exits.
std::atomic<bool> g_joins_early{false};
pthread_t g_parents_thread;

void JoinEarly()
{
    if (g_joins_early) {
        alarm(20);
        _exit(pthread_join(g_parents_thread, nullptr) == 0 ? 7 : 1);
    }
}

// Fork handlers of a child run in the order of their registration. This one precedes those of the
// source under test, if it has any.
__attribute__((constructor(101))) void RegisterFirst()
{
    pthread_atfork(nullptr, nullptr, JoinEarly);
}

void ExpectEarlyJoin()
{
    Threads thread(1, [](int) {});
    g_parents_thread = thread[0];
    g_joins_early = true;
    EXPECT_EQ(WaitStatusOfChild([] { _exit(2); }), kLeft);
    g_joins_early = false;
}

}  // namespace

// A signal handler may run in the child as soon as it exists.
TEST_F(ThreadStack, LetsAChildJoinBeforeItsForkReturns)
{
    ExpectEarlyJoin();
}

TEST(FirstThreadStacks, LetAChildJoinBeforeItsForkReturns)
{
    ExpectEarlyJoin();
}

TEST_F(ThreadStack, LetsNoThreadJoinItself)
{
    RunInThread([] {
        EXPECT_EQ(pthread_join(pthread_self(), nullptr), EDEADLK);
        // The stack is as usable as before.
        ForkOnce(0);
        EXPECT_EQ(WaitStatusOfChild(
                      [] { _exit(pthread_join(pthread_self(), nullptr) == EDEADLK ? 7 : 1); }),
                  kLeft);
    });
}

TEST_F(ThreadStack, LetsAChildStartThreads)
{
    RunInThread([] {
        EXPECT_EQ(WaitStatusOfChild([] {
                      int value = 0;
                      RunInThread([&] { value = 7; });
                      RunInThread([&] { ForkOnce(0); });
                      _exit(value);
                  }),
                  kLeft);
    });
}

// A child whose fork coincides with the end of a join reads the descriptor of the joined thread.
TEST_F(ThreadStack, IsCopiedWhileItsThreadIsJoined)
{
    std::atomic<const volatile int*> of_joined{nullptr};
    std::atomic<bool> forks{false};
    std::atomic<bool> ends{false};
    std::thread joined([&] {
        volatile int local = 5;
        of_joined = &local;
        while (!ends) {
            if (forks.exchange(false)) {
                ForkOnce(0);
                of_joined = &local;
            }
            std::this_thread::yield();
        }
    });
    while (of_joined == nullptr) {
        std::this_thread::yield();
    }
    EXPECT_EQ(ValueInChild(of_joined), HasWipedStacks() ? 0 : 5);

    std::thread joining([&] { joined.join(); });
    for (int i = 0; i < 5000 && ValueInChild(of_joined) != 5; ++i) {
        std::this_thread::yield();
    }
    EXPECT_EQ(ValueInChild(of_joined), 5);
    // A fork by the joined thread does not change that.
    const volatile int* const local = of_joined.exchange(nullptr);
    forks = true;
    while (of_joined == nullptr) {
        std::this_thread::yield();
    }
    EXPECT_EQ(ValueInChild(local), 5);
    ends = true;
    joining.join();
    // The child does not get the stack of the next thread that uses the same memory.
    if (HasWipedStacks()) {
        const volatile int* of_other = nullptr;
        const Threads other(1, [&](int) {
            static thread_local volatile int value = 5;
            of_other = &value;
        });
        EXPECT_EQ(ValueInChild(of_other), 0);
    }
}

// The thread may be about to fork, and its child needs the stack.
TEST_F(ThreadStack, IsNotWipedByAJoinThatFails)
{
    std::atomic<const volatile int*> of_detached{nullptr};
    std::atomic<bool> ends{false};
    std::atomic<bool> has_ended{false};
    std::thread detached([&] {
        volatile int local = 5;
        of_detached = &local;
        while (!ends) {
            std::this_thread::yield();
        }
        has_ended = true;
    });
    const pthread_t thread = detached.native_handle();
    detached.detach();
    while (of_detached == nullptr) {
        std::this_thread::yield();
    }
    EXPECT_EQ(pthread_join(thread, nullptr), EINVAL);
    EXPECT_EQ(ValueInChild(of_detached), 5);
    ends = true;
    while (!has_ended) {
        std::this_thread::yield();
    }
}

TEST_F(ThreadStack, LeavesErrnoToFork)
{
    RunInThread([] {
        errno = EDOM;
        const pid_t child = fork();
        if (child == 0) {
            _exit(0);
        }
        const int error = errno;
        waitpid(child, nullptr, 0);
        EXPECT_EQ(error, EDOM);
    });
}

TEST_F(ThreadStack, LosesNoChildToThreadsThatAreJoined)
{
    // A child that is forked during a join completes the join's work.
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < 200; ++k) {
                RunInThread([] {});
            }
        });
    }
    RunInThread([] {
        for (int k = 0; k < 200; ++k) {
            ForkOnce(k);
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Lowers a limit of this process and becomes a user that it applies to, so needs its own process.
TEST(ThreadStackOfALimitedUser, DISABLED_IsFreeAgainIfItsThreadCannotBeStarted)
{
    rlimit before;
    prlimit(0, RLIMIT_NPROC, nullptr, &before);
    const rlimit lowered = {0, before.rlim_max};
    prlimit(0, RLIMIT_NPROC, &lowered, nullptr);
    ASSERT_EQ(setuid(static_cast<uid_t>(1'000'000 + getpid())), 0);
    for (int i = 0; i < kTooMany; ++i) {
        ASSERT_THROW(RunInThread([] {}), std::system_error);
    }
    prlimit(0, RLIMIT_NPROC, &before, nullptr);
    volatile int* of_last = nullptr;
    const Threads others(kCopiedCount + 1, [&](int i) {
        static thread_local volatile int local = 5;
        if (i == kCopiedCount) {
            of_last = &local;
        }
    });
    EXPECT_EQ(ValueInChild(of_last), 0);
}

TEST_F(ThreadStack, IsFreeAgainIfItsThreadCannotBeStarted)
{
    if (!HasWipedStacks() || getuid() != 0) {
        GTEST_SKIP() << "needs the range, and root to become a user with a limit";
    }
    EXPECT_EQ(RunAgain("ThreadStackOfALimitedUser.*", {}), 0);
}

TEST(ThreadStackFallback, KernelWithoutGuardMarks)
{
    EXPECT_EQ(RunAgain(kMostCases, {Lacking("guard marks")}), 0);
    EXPECT_EQ(RunAgain(kLongCases, {Lacking("guard marks")}), 0);
}

TEST(ThreadStackFallback, KernelWithoutWiping)
{
    EXPECT_EQ(RunAgain(kMostCases, {Lacking("wiping"), kCopied}), 0);
    EXPECT_EQ(RunAgain(kMostCases, {Lacking("wiping, guard marks"), kCopied}), 0);
}

TEST(ThreadStackFallback, NoGuardPages)
{
    // glibc itself protects the guard pages of the stacks that it allocates.
    EXPECT_EQ(RunAgain(kMostCases, {Lacking("guard marks, protection"), kCopied}), 0);
}

TEST(ThreadStackFallback, NoAddressSpace)
{
    EXPECT_EQ(RunAgain(kMostCases, {Lacking("address space"), kCopied}), 0);
}

TEST(ThreadStackFallback, LimitedMemory)
{
    EXPECT_EQ(RunAgain(kMostCases, {Lacking("free address space"), kCopied}), 0);
    EXPECT_EQ(RunAgain(kOneCase, {Lacking("free data segment"), kCopied}), 0);
}

TEST(ThreadStackFallback, StrictOvercommit)
{
    const std::string path = testing::TempDir() + "strict" + std::to_string(getpid());
    const std::string mode = "KESTRANE_TEST_OVERCOMMIT=" + path;
    std::ofstream(path) << "2\n";
    EXPECT_EQ(RunAgain(kMostCases, {mode, kCopied}), 0);
    std::ofstream(path) << "1\n";
    EXPECT_EQ(RunAgain(kOneCase, {mode}), 0);
    std::ofstream(path) << "";
    EXPECT_EQ(RunAgain(kOneCase, {mode, kCopied}), 0) << "no answer";
    unlink(path.c_str());
    EXPECT_EQ(RunAgain(kOneCase, {mode, kCopied}), 0) << "no file";
}

TEST(ThreadStackFallback, NoFurtherMappings)
{
    // A thread whose own stack cannot be excluded from the wiping keeps all of them.
    const std::string cases = std::string(kMostCases) + ":*IsNotCopied*";
    EXPECT_EQ(RunAgain(cases, {Lacking("further mappings")}), 0);
}

TEST(ThreadStackFallback, GlibcThatVisitsAllThreads)
{
    const std::string version = "KESTRANE_TEST_GLIBC=";
    EXPECT_EQ(RunAgain(kMostCases, {version + "2.41", kCopied}), 0);
    EXPECT_EQ(RunAgain(kOneCase, {version + "2.39", kCopied}), 0);
    if (GlibcSuits()) {
        EXPECT_EQ(RunAgain(kOneCase, {version + "2.38"}), 0);
    }
    EXPECT_EQ(RunAgain(kOneCase, {version + "3.0", kCopied}), 0);
    EXPECT_EQ(RunAgain(kOneCase, {version + "unknown", kCopied}), 0);
}
