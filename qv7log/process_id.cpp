#include "qv7log/process_id.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace qv7log {
namespace {

// getpid() is a system call, and takes an eighth of the time of a record.
std::atomic<pid_t> g_process{0};

// The number of threads that are inside fork(). While it is not 0, this process may be a child
// whose own handler has not run yet: handlers that other code registered earlier run first, and may
// log.
std::atomic<int> g_forking{0};

void (*g_in_child)() = nullptr;

void BeforeFork()
{
    g_forking.fetch_add(1, std::memory_order_relaxed);
}

void AfterForkInParent()
{
    g_forking.fetch_sub(1, std::memory_order_relaxed);
}

void AfterForkInChild()
{
    g_process.store(getpid(), std::memory_order_relaxed);
    g_forking.store(0, std::memory_order_relaxed);
    g_in_child();
}

}  // namespace

int WatchForks(void (*in_child)())
{
    g_in_child = in_child;
    g_process.store(getpid());
    return pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
}

pid_t ProcessId()
{
    return g_forking.load(std::memory_order_relaxed) == 0
               ? g_process.load(std::memory_order_relaxed)
               : getpid();
}

}  // namespace qv7log
