// A cheap fork for a process with a thread per item.
//
// fork copies what every thread added to the address space, so the cost of starting N items grows
// with the square of N. The child needs one stack only, that of the thread that forks. This file
// lets fork skip the others; docs/tuning.md has the figures.
//
// All stacks lie in one range of memory, which is marked MADV_WIPEONFORK after the first few
// stacks: a forked child finds the marked part mapped, but empty, and fork copies neither page
// tables nor pages of it. Around each fork, a thread with a stack in the marked part marks its own
// stack MADV_KEEPONFORK. std::thread has no parameter for a stack, and glibc's default attributes
// take a size but no address, so this file defines pthread_create, which passes a stack of the
// range to glibc's function of that name.
//
// glibc keeps the descriptor of a thread (struct pthread) at the top of the thread's stack. In the
// child, the descriptors of other threads therefore read as zeros. glibc accesses them there in
// these cases:
//
// - fork removes the forking thread from the list of threads whose stacks the caller provided. This
//   writes the links of its two neighbours, whose pages are mapped; nothing reads them. Only for
//   stacks that glibc allocated does it visit the other threads, to mark them as ended.
// - If another thread of the parent was removing a descriptor from that list at that moment, the
//   child repeats the removal, and reads that descriptor. pthread_join removes descriptors, so the
//   stack of a thread that is being joined is kept as well. (So does a pthread_create that fails;
//   the launcher then ends.)
// - pthread_join in the child would follow the links in an empty descriptor. The pthread_join
//   defined here reports such a thread as joined, as glibc does for stacks that it allocated. The
//   other functions that join (pthread_tryjoin_np, pthread_timedjoin_np, pthread_clockjoin_np) are
//   not covered: they must not be called in a child, and a slot never becomes free after them.
//   Nothing in the launcher calls them.
// - Since 2.41, fork visits every thread of the list, to take back its buffer of getrandom. The
//   child would crash, so the range is used with earlier versions only.
//
// _Fork runs no fork handlers, nor does the system call clone: a child that they make with a copy
// of the memory would lose its own stack. Nothing in the launcher calls them. A child that shares
// the memory (CLONE_VM), such as that of vfork or posix_spawn, loses nothing.
//
// In these cases, glibc allocates the stacks, of 512 KiB, outside the range:
//
// - with a glibc that visits all threads;
// - if the kernel has no MADV_WIPEONFORK (before Linux 4.14);
// - if the kernel accounts for all memory that is mapped (strict overcommit), or if the address
//   space or the data segment is limited: the whole range would count, used or not;
// - beyond the end of the range, and in a forked child.
//
// All threads share one heap. By default, glibc creates up to eight per processor, which a fork
// would copy as well, and the supervisors hardly allocate.
//
// The set-up runs before main, while the process has only one thread.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gnu/libc-version.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "launcher/supervision.h"

namespace {

constexpr std::size_t kStackSize = kSupervisorStackSize;

// Limits the range to 1 GiB of address space. A fork also copies the stack of each further thread.
constexpr std::size_t kSlotCount = 2048;

// A fork always copies the first few stacks. While there are only a few threads, that costs less
// than marking a stack before and after each fork.
constexpr std::size_t kCopiedCount = 4;

// The last minor version of glibc 2 with which the range is used. Since 2.41, fork() visits the
// descriptors of all threads in the child. A distribution may have added that to 2.39 and 2.40.
constexpr int kLastMinorVersion = 38;

// MADV_GUARD_INSTALL, since Linux 6.13; the headers are older. It makes a page inaccessible without
// splitting its mapping.
constexpr int kGuardInstall = 102;

// The place of one stack in the range: a guard page, and the stack above it.
struct Slot
{
    std::atomic<bool> taken{false};
    // A flag is enough: POSIX allows only one join of a thread at a time.
    std::atomic<bool> being_joined{false};
};

Slot g_slots[kSlotCount];
char* g_range = nullptr;  // null if there is no range

const std::size_t g_page_size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
const std::size_t g_slot_size = g_page_size + kStackSize;

// An empty range of addresses only asks whether the kernel knows the advice.
const bool g_marks_guards = madvise(nullptr, 0, kGuardInstall) == 0;

char* AddressOf(const Slot& slot)
{
    return g_range + static_cast<std::size_t>(&slot - g_slots) * g_slot_size;
}

std::size_t RangeSize()
{
    return kSlotCount * g_slot_size;
}

// The byte after the stacks is 1 in this process and, because forks wipe it, 0 in a forked child.
// If a fork handler changed a variable instead, a SIGTERM handler that runs in the child before
// that would join threads that do not exist.
bool IsForkedChild()
{
    return g_range[RangeSize()] == 0;
}

// The slot that contains the descriptor of `thread`, whose address a pthread_t is; null if the
// thread has another stack.
Slot* SlotOf(pthread_t thread)
{
    const auto begin = reinterpret_cast<std::uintptr_t>(g_range);
    if (g_range == nullptr || thread < begin || thread - begin >= RangeSize()) {
        return nullptr;
    }
    return &g_slots[(thread - begin) / g_slot_size];
}

bool IsAlwaysCopied(const Slot& slot)
{
    return &slot < g_slots + kCopiedCount;
}

// Lets a fork copy the stack.
void Keep(const Slot& slot)
{
    if (IsAlwaysCopied(slot)) {
        return;
    }
    if (madvise(AddressOf(slot), g_slot_size, MADV_KEEPONFORK) != 0) {
        // To mark a part of the range, the kernel may have to split a mapping, and the process may
        // have as many mappings as it is allowed. To mark the whole range, it splits none. A fork
        // is more expensive then, but a child without a stack would crash.
        //
        // The second call can only fail if the kernel runs out of memory. If the fork succeeds
        // nevertheless, the child crashes, and its item is restarted as after any other end.
        madvise(g_range, RangeSize(), MADV_KEEPONFORK);
    }
}

// Lets a fork skip the stack, unless a joining thread still needs it to be copied.
void Wipe(const Slot& slot)
{
    if (IsAlwaysCopied(slot)) {
        return;
    }
    madvise(AddressOf(slot), g_slot_size, MADV_WIPEONFORK);
    if (slot.being_joined) {
        Keep(slot);
    }
}

bool Guard(const Slot& slot)
{
    char* const lowest_page = AddressOf(slot);
    return g_marks_guards ? madvise(lowest_page, g_page_size, kGuardInstall) == 0
                          : mprotect(lowest_page, g_page_size, PROT_NONE) == 0;
}

// Takes a free slot and marks its guard page. Returns null if there is none, or if the page cannot
// be marked. Lock-free, because the SIGTERM handler joins threads and may have interrupted this.
Slot* TakeSlot()
{
    if (g_range == nullptr || IsForkedChild()) {
        return nullptr;
    }
    for (Slot& slot : g_slots) {
        if (!slot.taken.load(std::memory_order_relaxed) && !slot.taken.exchange(true)) {
            if (Guard(slot)) {
                return &slot;
            }
            slot.taken = false;
            return nullptr;
        }
    }
    return nullptr;
}

// Marks the lowest page of a stack that glibc allocated without a guard page. Each thread does this
// once; a forked child has the mark as well.
void GuardStackOfGlibc()
{
    thread_local bool guarded = false;
    pthread_attr_t attributes;
    if (!g_marks_guards || guarded || pthread_getattr_np(pthread_self(), &attributes) != 0) {
        return;
    }
    void* lowest = nullptr;
    std::size_t size = 0;
    std::size_t guard = 0;
    pthread_attr_getguardsize(&attributes, &guard);
    pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    guarded = guard != 0 || madvise(lowest, g_page_size, kGuardInstall) == 0;
}

// The fork handlers preserve errno: a caller of fork expects the errno of fork.

void BeforeFork()
{
    const int error = errno;
    if (const Slot* const slot = SlotOf(pthread_self())) {
        Keep(*slot);
    } else {
        GuardStackOfGlibc();
    }
    errno = error;
}

void AfterForkInParent()
{
    const int error = errno;
    if (const Slot* const slot = SlotOf(pthread_self())) {
        Wipe(*slot);
    }
    errno = error;
}

bool IsUnlimited(decltype(RLIMIT_AS) resource)
{
    rlimit limit;
    return getrlimit(resource, &limit) == 0 && limit.rlim_cur == RLIM_INFINITY;
}

// False under strict overcommit, and if the kernel's mode is unknown.
bool MayReserveMemory()
{
    const int file = open("/proc/sys/vm/overcommit_memory", O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    char mode = '2';
    const bool known = read(file, &mode, 1) == 1;
    close(file);
    return known && mode != '2';
}

bool GlibcVisitsAllThreads()
{
    int major = 0;
    int minor = 0;
    return std::sscanf(gnu_get_libc_version(), "%d.%d", &major, &minor) != 2 || major != 2 ||
           minor > kLastMinorVersion;
}

// Returns null if the range is unavailable.
char* MakeRange()
{
    if (GlibcVisitsAllThreads() || !IsUnlimited(RLIMIT_AS) || !IsUnlimited(RLIMIT_DATA) ||
        !MayReserveMemory()) {
        return nullptr;
    }
    const std::size_t size = RangeSize() + g_page_size;
    void* const range = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (range == MAP_FAILED) {
        return nullptr;
    }
    const std::size_t copied = kCopiedCount * g_slot_size;
    if (madvise(static_cast<char*>(range) + copied, size - copied, MADV_WIPEONFORK) != 0) {
        munmap(range, size);
        return nullptr;
    }
    // Otherwise the first access to a stack could allocate a huge page of 2 MiB. The advice fails
    // if the kernel has no huge pages.
    madvise(range, size, MADV_NOHUGEPAGE);
    static_cast<char*>(range)[RangeSize()] = 1;
    return static_cast<char*>(range);
}

// Sets the attributes of threads outside the range. A guard page made by glibc splits every stack
// into two mappings. Without it, the stacks join into one mapping, in which each thread marks its
// guard page before it forks.
void SetDefaults(bool marks_guards)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackSize + (marks_guards ? g_page_size : 0));
    if (marks_guards) {
        pthread_attr_setguardsize(&attributes, 0);
    }
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
}

// glibc's functions, which those below hide.

auto NextCreate()
{
    static const auto function =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return function;
}

auto NextJoin()
{
    static const auto function =
        reinterpret_cast<decltype(&pthread_join)>(dlsym(RTLD_NEXT, "pthread_join"));
    return function;
}

bool SetUp()
{
    mallopt(M_ARENA_MAX, 1);
    // Both are looked up here, because the first join may be that of a signal handler, which must
    // not wait for the dynamic linker's lock.
    NextCreate();
    NextJoin();
    const bool has_handlers = pthread_atfork(BeforeFork, AfterForkInParent, nullptr) == 0;
    SetDefaults(has_handlers && g_marks_guards);
    g_range = has_handlers ? MakeRange() : nullptr;
    return true;
}

const bool g_set_up = SetUp();

}  // namespace

// The dynamic linker finds these functions before glibc's, for every library in the process.
extern "C" {

__attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                          const pthread_attr_t* attributes,
                                                          void* (*run)(void*),
                                                          void* argument) noexcept
{
    Slot* const slot = attributes == nullptr ? TakeSlot() : nullptr;
    if (slot == nullptr) {
        return NextCreate()(thread, attributes, run, argument);
    }
    pthread_attr_t own;
    pthread_attr_init(&own);
    pthread_attr_setstack(&own, AddressOf(*slot) + g_page_size, kStackSize);
    const int error = NextCreate()(thread, &own, run, argument);
    pthread_attr_destroy(&own);
    if (error != 0) {
        slot->taken = false;
    }
    return error;
}

// The slot of a thread becomes free only here, after glibc's function has returned: before that,
// glibc still uses the descriptor. A detached thread's slot stays taken.
__attribute__((visibility("default"))) int pthread_join(pthread_t thread, void** result)
{
    Slot* const slot = SlotOf(thread);
    if (slot == nullptr || pthread_equal(thread, pthread_self()) != 0) {
        return NextJoin()(thread, result);
    }
    if (IsForkedChild()) {
        if (result != nullptr) {
            *result = nullptr;
        }
        return 0;
    }
    slot->being_joined = true;
    Keep(*slot);
    const int error = NextJoin()(thread, result);
    slot->being_joined = false;
    // After an error, the thread may still be running, and forking: its stack stays as it is.
    if (error == 0) {
        Wipe(*slot);
        // The next thread finds an empty stack, as if it were new. The guard page stays.
        madvise(AddressOf(*slot) + g_page_size, kStackSize, MADV_DONTNEED);
        slot->taken = false;
    }
    return error;
}

}  // extern "C"
