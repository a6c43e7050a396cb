#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>

#include "launcher/main.h"
#include "tests/support/wait_until.h"

// In a child, memory that only the stacks of the parent's threads point to looks leaked.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
    return "detect_leaks=0";
}

namespace {

// Waits for the child and returns its wait status. After a deadline kills the child and returns -1.
int WaitStatusOf(pid_t child)
{
    int wait_status = -1;
    if (WaitUntil([&] { return waitpid(child, &wait_status, WNOHANG) == child; })) {
        return wait_status;
    }
    kill(child, SIGKILL);
    waitpid(child, &wait_status, 0);
    return -1;
}

}  // namespace

TEST(ForkedChild, CanDestroyTheConditionOnWhichTheParentWaits)
{
    std::atomic<bool> locked = false;
    std::atomic<bool> woken = false;
    std::thread waiter([&] {
        std::unique_lock<std::mutex> lock(g_process_mutex);
        locked = true;
        g_process_condition.wait(lock);
        woken = true;
    });
    ASSERT_TRUE(WaitUntil([&] { return locked.load(); }));
    {
        // Available only once the thread waits; glibc counts the waiter before that.
        const std::lock_guard<std::mutex> lock(g_process_mutex);
    }

    const pid_t child = fork();
    if (child == 0) {
        g_process_condition.~condition_variable();
        _exit(7);
    }
    EXPECT_EQ(WaitStatusOf(child), 7 << 8);

    // The parent's own condition is untouched: its waiter can still be woken.
    EXPECT_FALSE(woken);
    EXPECT_TRUE(WaitUntil([&] {
        g_process_condition.notify_all();
        return woken.load();
    }));
    waiter.join();
}

TEST(ForkedChild, ExitsWithStatus0WhenItsOnlyThreadReturns)
{
    pid_t child = -1;
    std::thread([&] { child = fork(); }).join();
    EXPECT_EQ(WaitStatusOf(child), 0);
}

namespace {

constexpr int kJoined = 3;
constexpr int kNoSuchThread = 4;

// Joins a thread of the parent; the child's exit status shows the result.
void JoinAndExit(std::thread& thread)
{
    try {
        thread.join();
    } catch (const std::system_error& error) {
        _exit(error.code().value() == ESRCH ? kNoSuchThread : 1);
    }
    _exit(kJoined);
}

}  // namespace

// macOS forgets the parent's threads at the fork; glibc treats them as ended.
TEST(ForkedChild, JoinsAThreadOfTheParentAsTheSystemDoes)
{
    std::atomic<bool> stop = false;
    std::thread other([&] { WaitUntil([&] { return stop.load(); }); });
    const pid_t child = fork();
    if (child == 0) {
        JoinAndExit(other);
    }
    const int wait_status = WaitStatusOf(child);
#ifdef __APPLE__
    EXPECT_EQ(wait_status, kNoSuchThread << 8);
#else
    EXPECT_EQ(wait_status, kJoined << 8);
#endif
    stop = true;
    other.join();
}
