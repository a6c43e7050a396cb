// A cheap fork for a process with a thread per item.
//
// Every fork copies what every thread added to the address space, so the start of N items costs N
// squared. Three settings make a thread small; docs/tuning.md has the figures.
//
// - Stacks of 512 KiB, what a thread has on macOS, in place of 8 MiB. Not less: the argument vector
//   of an item lives there ("argc").
// - No guard page that the C library maps: it would make two mappings of every stack. Without it
//   the stacks join into one mapping, in which each thread marks its own guard page before it
//   forks.
// - One heap for all threads in place of eight per processor; the supervisors hardly allocate.
//
// Part of the start-up of the program, before the first thread.
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>

namespace {

constexpr std::size_t kStackSize = 512 * 1024;

// Since Linux 6.13; the headers are older.
constexpr int kGuardInstall = 102;

std::size_t PageSize()
{
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// Marks the lowest page of the calling thread's stack, if it has no guard of the C library's. Once
// in a thread; a forked child has the mark as well.
void GuardStack()
{
    thread_local bool guarded = false;
    pthread_attr_t attributes;
    if (guarded || pthread_getattr_np(pthread_self(), &attributes) != 0) {
        return;
    }
    void* lowest = nullptr;
    std::size_t size = 0;
    std::size_t guard = 0;
    pthread_attr_getguardsize(&attributes, &guard);
    pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    guarded = guard != 0 || madvise(lowest, PageSize(), kGuardInstall) == 0;
}

bool SetThreadDefaults()
{
    mallopt(M_ARENA_MAX, 1);

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackSize);
    // An empty range only tells whether the kernel knows the advice. An older one keeps the C
    // library's guard pages.
    if (madvise(nullptr, 0, kGuardInstall) == 0 &&
        pthread_atfork(GuardStack, nullptr, nullptr) == 0) {
        pthread_attr_setstacksize(&attributes, kStackSize + PageSize());
        pthread_attr_setguardsize(&attributes, 0);
    }
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
    return true;
}

const bool g_set = SetThreadDefaults();

}  // namespace
