#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

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

// How a forked child ends that writes to `address` and then leaves with status 7.
int WaitStatusOfWriteInChild(char* address)
{
    const pid_t child = fork();
    if (child == 0) {
        *static_cast<volatile char*>(address) = 1;
        _exit(7);
    }
    int wait_status = -1;
    waitpid(child, &wait_status, 0);
    return wait_status;
}

template <typename Work>
void RunInThread(Work work)
{
    std::thread(work).join();
}

// The mappings of the process while `count` threads live that have all forked.
std::ptrdiff_t MappingsWithThreads(int count)
{
    std::mutex mutex;
    std::condition_variable changed;
    int forked = 0;
    bool done = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            const pid_t child = fork();
            if (child == 0) {
                _exit(0);
            }
            waitpid(child, nullptr, 0);
            std::unique_lock<std::mutex> lock(mutex);
            ++forked;
            changed.notify_all();
            changed.wait(lock, [&] { return done; });
        });
    }
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return forked == count; });
    std::ifstream maps("/proc/self/maps");
    const auto lines = std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
    done = true;
    changed.notify_all();
    lock.unlock();
    for (std::thread& thread : threads) {
        thread.join();
    }
    return lines;
}

bool KernelMarksGuards()
{
    return madvise(nullptr, 0, 102) == 0;  // MADV_GUARD_INSTALL
}

}  // namespace

TEST(ThreadStack, HasRoomFor512KiB)
{
    RunInThread([] {
        const Stack stack = StackOfThisThread();
        const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        // With no guard of the C library's own, the lowest page becomes it.
        EXPECT_EQ(stack.size, 512 * 1024 + (stack.guard == 0 ? page : 0));
    });
}

TEST(ThreadStack, EndsAChildThatRunsOverIt)
{
    const auto expect_guard = [] {
        const Stack stack = StackOfThisThread();
        const std::ptrdiff_t page = sysconf(_SC_PAGESIZE);
        char* const end = stack.guard == 0 ? stack.lowest + page : stack.lowest;
        EXPECT_EQ(WaitStatusOfWriteInChild(end), 7 << 8) << "the last byte of the stack";
        EXPECT_EQ(WaitStatusOfWriteInChild(end - 1) & 0x7f, SIGSEGV) << "the byte below";
    };
    RunInThread([&] {
        expect_guard();
        RunInThread(expect_guard);  // a second thread has a stack of its own
    });
}

TEST(ThreadStack, AddsNoMappingOfItsOwn)
{
    if (!KernelMarksGuards()) {
        GTEST_SKIP() << "needs Linux 6.13";
    }
    const std::ptrdiff_t few = MappingsWithThreads(2);
    EXPECT_LE(MappingsWithThreads(40), few + 2);
}
