// Stops the launcher at chosen library calls. Loaded ahead of the C library by
// tests/end_to_end/moments.py, which describes the coordinates of a run.
//
// Every thread of the launcher counts its moments. A library call has one moment before it and,
// except for allocations, one after it. Allocations and fork also have a moment at which the
// allocation lock is held, and calls that block have one while they block.
//
// One thread runs at a time. It passes control on when it blocks, when it ends, when it has created
// a thread, and where the plan holds it. A blocking call blocks here instead of in the C library,
// so what each thread waits for is known, and the 50 ms of a restart pause take no time: sleeping
// threads continue once all others wait. The same plan therefore gives the same run.
//
// The allocation lock stands for the lock of the C library's heap. Here every allocation takes it
// and fork holds it, as with glibc.malloc.tcache_count=0; otherwise the C library takes it only for
// what its cache for each thread cannot serve.
//
// If a thread blocks SIGTERM when the plan sends it, the signal is delivered once the thread
// unblocks it. In the system, such a thread can also take a SIGTERM that another thread has not
// taken yet.
//
// The environment variable KESTRANE_PLAN holds the plan, a sequence of:
//     signal THREAD CALL    sends SIGTERM to that thread at that moment; up to two
//     hold THREAD CALL      holds the thread there until no other thread can run
//     order main            prefers main to the supervisors when several threads can run
//     trace yes             records every moment
// A thread is main, s0, s1, … in order of creation, or c0, c1, … for the first child of a
// supervisor before it calls execv; c0.2 is its second child.
//
// Before the first signal, the first child of s0 is killed once all threads wait, so that the plan
// can name moments of a restart. KESTRANE_RECORD names the file for the record.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>
#include <pwd.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

extern "C" {
void* __libc_malloc(std::size_t);
void __libc_free(void*);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
}

namespace {

constexpr int kMaxThreads = 16;
constexpr int kMaxSteps = 8;
constexpr std::size_t kRecordSize = std::size_t{1} << 20;
// Beyond the descriptors that the launcher passes to its helpers.
constexpr int kPrivateDescriptor = 200;
constexpr int kStatusOfRecordedEnd = 99;

enum class State
{
    kReady,
    kRunning,
    kWaiting,
    kHeld,
    kDone
};
enum class Reason
{
    kNone,
    kLock,
    kMutex,
    kJoin,
    kNotify,
    kChild,
    kSleep
};

struct Thread;

// What a thread waits for.
struct Wait
{
    Reason reason = Reason::kNone;
    Thread* thread = nullptr;          // kJoin
    pthread_mutex_t* mutex = nullptr;  // kMutex
    unsigned notified = 0;             // kNotify
    pid_t child = 0;                   // kChild
    std::uint64_t until = 0;           // kSleep
};

struct Thread
{
    char name[16] = {};
    pthread_t handle{};
    pid_t id = 0;
    State state = State::kReady;
    Wait wait;
    unsigned moments = 0;
    const char* call = "";
    int handlers = 0;          // SIGTERM handlers running
    bool signal_here = false;  // the plan signals it while it waits
    bool deliver = false;      // it is to run the handler when it continues
    bool joined = false;
    // It releases the stack of a joined thread, with a lock of the C library that another thread
    // would wait for in the system instead of here. No plan can hold it meanwhile.
    bool releases_stack = false;
    bool has_had_child = false;
    unsigned forks = 0;
    std::atomic<int> go{0};
    void* (*start)(void*) = nullptr;
    void* argument = nullptr;
};

struct Step
{
    char thread[16] = {};
    unsigned moment = 0;
    bool done = false;
};

Thread g_threads[kMaxThreads];
int g_thread_count = 0;
Step g_signals[2];
int g_signal_count = 0;
Step g_holds[kMaxSteps];
int g_hold_count = 0;
bool g_main_first = false;
bool g_trace = false;

bool g_active = false;
// Whether this is a forked child, which has one thread and counts its own moments.
bool g_in_child = false;
char g_child_name[16] = {};
unsigned g_child_moments = 0;

Thread* g_lock_holder = nullptr;
unsigned g_notified = 0;
std::uint64_t g_now = 0;
void (*g_handler)(int) = nullptr;
bool g_main_has_waited = false;
bool g_child_ended_once = false;
bool g_stopped_ordinarily = false;
int g_sent = 0;
int g_extra_signals = 0;
int g_unkilled = 0;
int g_exec_pipe[2] = {-1, -1};

char* g_record = nullptr;

__thread Thread* t_self __attribute__((tls_model("initial-exec"))) = nullptr;

template <typename Function>
Function* Next(Function* /* of the type */, const char* name)
{
    void* const found = dlsym(RTLD_NEXT, name);
    return reinterpret_cast<Function*>(found);
}

// The record: text, appended to by the launcher and its children. No allocation.

void Record(const char* format, ...) __attribute__((format(printf, 1, 2)));
void Record(const char* format, ...)
{
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (g_record == nullptr || length < 0) {
        return;
    }
    auto& end = *reinterpret_cast<std::atomic<std::uint32_t>*>(g_record);
    const auto size = static_cast<std::uint32_t>(length) < sizeof line
                          ? static_cast<std::uint32_t>(length)
                          : static_cast<std::uint32_t>(sizeof line - 1);
    const std::uint32_t at = end.fetch_add(size);
    if (at + size < kRecordSize - sizeof end) {
        memcpy(g_record + sizeof end + at, line, size);
    }
}

[[noreturn]] void EndHere()
{
    for (;;) {
        syscall(SYS_exit_group, kStatusOfRecordedEnd);
    }
}

// Waiting and choosing who runs next.

bool HasEnded(pid_t child)
{
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid != 0;
}

bool IsOver(const Wait& wait)
{
    switch (wait.reason) {
        case Reason::kNone:
            return true;
        case Reason::kLock:
            return g_lock_holder == nullptr;
        case Reason::kMutex:
            return wait.mutex->__data.__lock == 0;
        case Reason::kJoin:
            return wait.thread->state == State::kDone;
        case Reason::kNotify:
            return wait.notified != g_notified;
        case Reason::kChild:
            return HasEnded(wait.child);
        case Reason::kSleep:
            return wait.until <= g_now;
    }
    return true;
}

const char* Name(Reason reason)
{
    switch (reason) {
        case Reason::kNone:
            return "nothing";
        case Reason::kLock:
            return "the allocation lock";
        case Reason::kMutex:
            return "a mutex";
        case Reason::kJoin:
            return "the end of a thread";
        case Reason::kNotify:
            return "a notification";
        case Reason::kChild:
            return "its child";
        case Reason::kSleep:
            return "time";
    }
    return "";
}

bool CanRun(const Thread& thread)
{
    return thread.state == State::kReady ||
           (thread.state == State::kWaiting && (thread.deliver || IsOver(thread.wait)));
}

Thread* FirstThat(bool (*can)(const Thread&))
{
    if (g_main_first && can(g_threads[0])) {
        return &g_threads[0];
    }
    for (int i = 1; i < g_thread_count; ++i) {
        if (can(g_threads[i])) {
            return &g_threads[i];
        }
    }
    return can(g_threads[0]) ? &g_threads[0] : nullptr;
}

// Whether the plan signals this waiting thread now: only once the other threads are where the plan
// holds them. This thread itself is held later.
bool IsSignalDue(const Thread& thread)
{
    if (thread.state != State::kWaiting || !thread.signal_here) {
        return false;
    }
    for (int i = 0; i < g_hold_count; ++i) {
        if (!g_holds[i].done && strcmp(g_holds[i].thread, thread.name) != 0) {
            return false;
        }
    }
    return true;
}

void KillChild(pid_t child)
{
    syscall(SYS_kill, child, SIGKILL);
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
}

Thread* WaitedFor(const Thread& thread)
{
    if (thread.wait.reason == Reason::kLock) {
        return g_lock_holder;
    }
    if (thread.wait.reason == Reason::kJoin) {
        return thread.wait.thread;
    }
    if (thread.wait.reason == Reason::kMutex) {
        for (Thread& other : g_threads) {
            if (other.id != 0 && other.id == thread.wait.mutex->__data.__owner) {
                return &other;
            }
        }
    }
    return nullptr;
}

// The last thread of the chain in which each waits for the next; null if the chain is a cycle.
Thread* EndOfChain(Thread* thread)
{
    for (int i = 0; i <= g_thread_count; ++i) {
        Thread* const next = WaitedFor(*thread);
        if (next == nullptr) {
            return thread;
        }
        thread = next;
    }
    return nullptr;
}

void RecordWaits()
{
    for (int i = 0; i < g_thread_count; ++i) {
        const Thread& thread = g_threads[i];
        if (thread.state == State::kDone) {
            continue;
        }
        const Thread* const other = WaitedFor(thread);
        Record("waits %s%s in %s for %s%s%s\n", thread.name,
               thread.handlers > 0 ? ", handler," : "", thread.call, Name(thread.wait.reason),
               other != nullptr ? " of " : "", other != nullptr ? other->name : "");
    }
}

// Ends the child that a thread waits for. If the supervisor keeps starting another one, the run is
// recorded as endless.
Thread* EndUnkilled(Thread& thread)
{
    if (++g_unkilled > kMaxThreads) {
        Record("endless\n");
        EndHere();
    }
    Record("unkilled\n");
    KillChild(thread.wait.child);
    return &thread;
}

// Called when no thread can run and none is held, so the launcher would wait forever. Does what a
// user could do to end the wait, or ends the launcher.
Thread* Quiet()
{
    Thread& main = g_threads[0];
    if (g_sent == 0 && !g_child_ended_once && g_thread_count > 1 &&
        g_threads[1].wait.reason == Reason::kChild) {
        g_child_ended_once = true;
        Record("restart\n");
        KillChild(g_threads[1].wait.child);
        return &g_threads[1];
    }
    bool any_handler = false;
    for (int i = 0; i < g_thread_count; ++i) {
        Thread& thread = g_threads[i];
        if (thread.state == State::kDone || thread.handlers == 0) {
            continue;
        }
        any_handler = true;
        Thread* const last = EndOfChain(&thread);
        if (last != nullptr && last->wait.reason == Reason::kChild) {
            return EndUnkilled(*last);
        }
    }
    if (!any_handler) {
        Thread* const last = EndOfChain(&main);
        if (last == &main && main.wait.reason == Reason::kNotify) {
            for (int i = 0; i < g_signal_count; ++i) {
                if (!g_signals[i].done) {
                    Record("unreached %s %u\n", g_signals[i].thread, g_signals[i].moment);
                    g_signals[i].done = true;
                }
            }
            if (g_sent == 0) {
                // Nothing was sent in the launcher itself: the plan signals a child, or nothing.
                Record("ordinary\n");
                ++g_sent;
                g_stopped_ordinarily = true;
            } else if (++g_extra_signals > 1) {
                Record("ignored\n");
                EndHere();
            } else {
                Record("lost\n");
            }
            main.deliver = true;
            return &main;
        }
        if (last != nullptr && last->wait.reason == Reason::kChild) {
            return EndUnkilled(*last);
        }
    }
    Record("hung\n");
    RecordWaits();
    EndHere();
}

Thread* Choose()
{
    if (Thread* const ready = FirstThat(CanRun)) {
        return ready;
    }
    Thread* sleeper = nullptr;
    for (int i = 0; i < g_thread_count; ++i) {
        Thread& thread = g_threads[i];
        if (thread.state == State::kWaiting && thread.wait.reason == Reason::kSleep &&
            (sleeper == nullptr || thread.wait.until < sleeper->wait.until)) {
            sleeper = &thread;
        }
    }
    if (sleeper != nullptr && !sleeper->signal_here) {
        g_now = sleeper->wait.until;
        return sleeper;
    }
    for (int i = 0; i < g_thread_count; ++i) {
        if (IsSignalDue(g_threads[i])) {
            g_threads[i].deliver = true;
            return &g_threads[i];
        }
    }
    if (Thread* const held =
            FirstThat([](const Thread& thread) { return thread.state == State::kHeld; })) {
        return held;
    }
    return Quiet();
}

void Futex(std::atomic<int>& word, int operation, int value)
{
    syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
}

void AwaitControl(Thread& self)
{
    while (self.go.exchange(0) == 0) {
        Futex(self.go, FUTEX_WAIT_PRIVATE, 0);
    }
}

void PassControl(Thread& next)
{
    next.go = 1;
    Futex(next.go, FUTEX_WAKE_PRIVATE, 1);
}

// Runs other threads until this one is chosen. The caller has set its state.
void Yield()
{
    Thread& self = *t_self;
    Thread* const next = Choose();
    if (next != &self) {
        PassControl(*next);
        AwaitControl(self);
    }
    self.state = State::kRunning;
}

// Signals.

const char* Phase()
{
    if (g_handler == nullptr) {
        return "no-handler";
    }
    if (g_thread_count == 1) {
        return "start";
    }
    if (g_sent > 0) {
        return "stop";
    }
    if (!g_main_has_waited) {
        return "launching";
    }
    for (int i = 1; i < g_thread_count; ++i) {
        if (!g_threads[i].has_had_child) {
            return "launching";
        }
    }
    for (int i = 1; i < g_thread_count; ++i) {
        const Thread& thread = g_threads[i];
        if (thread.wait.reason != Reason::kChild || IsOver(thread.wait)) {
            return "restart";
        }
    }
    return "steady";
}

// Runs the handler in the calling thread, as if the system had interrupted it here.
void Deliver(bool planned)
{
    Thread& self = *t_self;
    if (planned) {
        Record("signal %s %u %s %s\n", self.name, self.moments, Phase(), self.call);
        ++g_sent;
    }
    const Wait wait = self.wait;
    const char* const call = self.call;
    self.wait = Wait();
    const int saved = errno;
    syscall(SYS_tgkill, syscall(SYS_getpid), syscall(SYS_gettid), SIGTERM);
    errno = saved;
    self.wait = wait;
    self.call = call;
}

void OnSigterm(int number)
{
    if (g_in_child) {
        g_handler(number);
        Record("handled %s %u\n", g_child_name, g_child_moments);
        return;
    }
    Thread* const self = t_self;
    if (self != nullptr) {
        ++self->handlers;
    }
    g_handler(number);
    if (self != nullptr) {
        --self->handlers;
        Record("handled %s %u\n", self->name, self->moments);
    }
}

bool Take(Step* steps, int count, const char* thread, unsigned moment)
{
    for (int i = 0; i < count; ++i) {
        if (!steps[i].done && steps[i].moment == moment && strcmp(steps[i].thread, thread) == 0) {
            steps[i].done = true;
            return true;
        }
    }
    return false;
}

bool Counts()
{
    return g_active && (g_in_child || t_self != nullptr);
}

// One moment of the calling thread.
void Moment(const char* call)
{
    if (!Counts()) {
        return;
    }
    if (g_in_child) {
        ++g_child_moments;
        if (g_trace) {
            Record("at %s %u %s\n", g_child_name, g_child_moments, call);
        }
        if (Take(g_signals, g_signal_count, g_child_name, g_child_moments)) {
            Record("signal %s %u %s %s\n", g_child_name, g_child_moments,
                   g_main_has_waited ? "restart" : "launching", call);
            syscall(SYS_tgkill, syscall(SYS_getpid), syscall(SYS_gettid), SIGTERM);
        }
        return;
    }
    Thread& self = *t_self;
    const int saved = errno;
    ++self.moments;
    self.call = call;
    if (g_trace) {
        Record("at %s %u %s\n", self.name, self.moments, call);
    }
    if (Take(g_holds, g_hold_count, self.name, self.moments) && !self.releases_stack) {
        self.state = State::kHeld;
        Yield();
    }
    if (Take(g_signals, g_signal_count, self.name, self.moments)) {
        Deliver(true);
    }
    errno = saved;
}

// Blocks the calling thread. The wait is one moment.
void Block(const char* call, const Wait& wait)
{
    Thread& self = *t_self;
    const int saved = errno;
    ++self.moments;
    self.call = call;
    if (g_trace) {
        Record("at %s %u %s\n", self.name, self.moments, call);
    }
    self.wait = wait;
    if (wait.reason == Reason::kNotify) {
        g_main_has_waited = true;
    }
    if (wait.reason == Reason::kChild) {
        self.has_had_child = true;
    }
    if (Take(g_holds, g_hold_count, self.name, self.moments)) {
        self.state = State::kHeld;
        Yield();
    }
    self.signal_here = Take(g_signals, g_signal_count, self.name, self.moments);
    while (self.signal_here || !IsOver(wait)) {
        if (self.signal_here && IsOver(wait)) {
            self.signal_here = false;
            Deliver(true);
            continue;
        }
        self.state = State::kWaiting;
        Yield();
        if (self.deliver) {
            const bool planned = self.signal_here;
            self.deliver = false;
            self.signal_here = false;
            Deliver(planned);
        }
    }
    self.wait = Wait();
    errno = saved;
}

// The allocation lock.

void Lock(const char* call)
{
    if (g_thread_count > 1 && g_lock_holder != nullptr) {
        Wait wait;
        wait.reason = Reason::kLock;
        Thread& self = *t_self;
        // Not a moment, because only a thread that finds the lock taken would count it.
        const char* const before = self.call;
        self.call = call;
        self.wait = wait;
        while (!IsOver(wait)) {
            self.state = State::kWaiting;
            Yield();
        }
        self.wait = Wait();
        self.call = before;
    }
    g_lock_holder = t_self;
}

void Unlock()
{
    if (g_lock_holder == t_self) {
        g_lock_holder = nullptr;
    }
}

// An allocation: a moment before it, and one that holds the lock.
class Allocation
{
public:
    explicit Allocation(const char* call) : m_counts(Counts())
    {
        Moment(call);
        if (m_counts && !g_in_child) {
            Lock(call);
        }
        Moment(call);
    }
    ~Allocation()
    {
        if (m_counts && !g_in_child) {
            Unlock();
        }
    }

private:
    const bool m_counts;
};

// fork.

void BeforeFork()
{
    if (Counts() && !g_in_child) {
        Lock("fork");
        Moment("fork, locks held");
    }
}

void AfterForkInParent()
{
    if (!Counts() || g_in_child) {
        return;
    }
    // Waits until the child has called execv or ended, so that its moments and its end come first.
    syscall(SYS_close, g_exec_pipe[1]);
    char byte = 0;
    while (syscall(SYS_read, g_exec_pipe[0], &byte, 1) < 0 && errno == EINTR) {
    }
    syscall(SYS_close, g_exec_pipe[0]);
    Moment("fork, forked, locks held");
    Unlock();
}

void AfterForkInChild()
{
    if (!Counts() || g_in_child) {
        return;
    }
    Thread& self = *t_self;
    g_in_child = true;
    g_lock_holder = nullptr;
    snprintf(g_child_name, sizeof g_child_name, self.forks > 1 ? "c%s.%u" : "c%s", self.name + 1,
             self.forks);
    Moment("fork, in the child");
}

void OpenPipeToChild()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    for (int i = 0; i < 2; ++i) {
        g_exec_pipe[i] =
            static_cast<int>(syscall(SYS_fcntl, ends[i], F_DUPFD_CLOEXEC, kPrivateDescriptor));
        syscall(SYS_close, ends[i]);
    }
}

// Threads.

Thread* Find(pthread_t handle)
{
    for (int i = g_thread_count - 1; i >= 0; --i) {
        if (pthread_equal(g_threads[i].handle, handle) != 0) {
            return &g_threads[i];
        }
    }
    return nullptr;
}

void* Run(void* argument)
{
    Thread& self = *static_cast<Thread*>(argument);
    t_self = &self;
    self.id = static_cast<pid_t>(syscall(SYS_gettid));
    AwaitControl(self);
    self.state = State::kRunning;
    Moment("thread begins");
    void* const result = self.start(self.argument);
    if (g_in_child) {
        return result;
    }
    Moment("thread ends");
    self.state = State::kDone;
    t_self = nullptr;
    PassControl(*Choose());
    return result;
}

// The start.

// "signal main 4 hold s0 5 …"
void ReadPlan(const char* plan)
{
    char words[256] = {};
    strncpy(words, plan, sizeof words - 1);
    char* rest = nullptr;
    for (char* word = strtok_r(words, " ", &rest); word != nullptr;
         word = strtok_r(nullptr, " ", &rest)) {
        const char* const first = strtok_r(nullptr, " ", &rest);
        if (strcmp(word, "order") == 0) {
            g_main_first = true;
        } else if (strcmp(word, "trace") == 0) {
            g_trace = true;
        } else {
            const bool is_signal = strcmp(word, "signal") == 0;
            Step& step = is_signal ? g_signals[g_signal_count++] : g_holds[g_hold_count++];
            strncpy(step.thread, first, sizeof step.thread - 1);
            step.moment = static_cast<unsigned>(atoi(strtok_r(nullptr, " ", &rest)));
        }
    }
}

__attribute__((constructor)) void Begin()
{
    const char* const plan = getenv("KESTRANE_PLAN");
    const char* const path = getenv("KESTRANE_RECORD");
    if (plan == nullptr || path == nullptr) {
        return;
    }
    ReadPlan(plan);
    const int file = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC));
    void* const memory = mmap(nullptr, kRecordSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    syscall(SYS_close, file);
    if (memory == MAP_FAILED) {
        return;
    }
    g_record = static_cast<char*>(memory);
    // The helpers must not load this library.
    unsetenv("LD_PRELOAD");
    unsetenv("KESTRANE_PLAN");
    unsetenv("KESTRANE_RECORD");

    Thread& main = g_threads[g_thread_count++];
    strcpy(main.name, "main");
    main.handle = pthread_self();
    main.id = getpid();
    main.state = State::kRunning;
    t_self = &main;
    pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
    g_active = true;
}

}  // namespace

// The calls. Each has a moment before and one after it, unless said otherwise.
// NOLINTBEGIN(bugprone-macro-parentheses): a type, a name and lists of parameters

#define KESTRANE_COUNTED(result, name, parameters, arguments) \
    extern "C" result name parameters                         \
    {                                                         \
        static auto* const next = Next(&name, #name);         \
        Moment(#name);                                        \
        const auto value = next arguments;                    \
        Moment(#name " done");                                \
        return value;                                         \
    }

// NOLINTEND(bugprone-macro-parentheses)

extern "C" void* malloc(std::size_t size)
{
    const Allocation allocation("malloc");
    return __libc_malloc(size);
}

extern "C" void* calloc(std::size_t count, std::size_t size)
{
    const Allocation allocation("calloc");
    return __libc_calloc(count, size);
}

extern "C" void* realloc(void* memory, std::size_t size)
{
    const Allocation allocation("realloc");
    return __libc_realloc(memory, size);
}

extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size)
{
    const Allocation allocation("aligned_alloc");
    return __libc_memalign(alignment, size);
}

extern "C" void free(void* memory)
{
    const Allocation allocation("free");
    __libc_free(memory);
}

KESTRANE_COUNTED(int, close, (int file), (file))
KESTRANE_COUNTED(ssize_t, write, (int file, const void* bytes, std::size_t size),
                 (file, bytes, size))
KESTRANE_COUNTED(ssize_t, read, (int file, void* bytes, std::size_t size), (file, bytes, size))
KESTRANE_COUNTED(FILE*, fopen, (const char* path, const char* mode), (path, mode))
KESTRANE_COUNTED(std::size_t, fread, (void* bytes, std::size_t size, std::size_t count, FILE* file),
                 (bytes, size, count, file))
KESTRANE_COUNTED(char*, fgets, (char* text, int size, FILE* file), (text, size, file))
KESTRANE_COUNTED(int, fclose, (FILE * file), (file))
KESTRANE_COUNTED(int, fstat, (int file, struct stat* status), (file, status))
KESTRANE_COUNTED(int, stat, (const char* path, struct stat* status), (path, status))
KESTRANE_COUNTED(int, lstat, (const char* path, struct stat* status), (path, status))
KESTRANE_COUNTED(int, mkdir, (const char* path, mode_t mode), (path, mode))
KESTRANE_COUNTED(int, rename, (const char* from, const char* to), (from, to))
KESTRANE_COUNTED(int, unlink, (const char* path), (path))
KESTRANE_COUNTED(int, dup2, (int from, int to), (from, to))
KESTRANE_COUNTED(int, fchmod, (int file, mode_t mode), (file, mode))
KESTRANE_COUNTED(char*, realpath, (const char* path, char* resolved), (path, resolved))
KESTRANE_COUNTED(ssize_t, readlink, (const char* path, char* text, std::size_t size),
                 (path, text, size))
KESTRANE_COUNTED(struct passwd*, getpwuid, (uid_t user), (user))
KESTRANE_COUNTED(int, clock_gettime, (clockid_t clock, struct timespec* time), (clock, time))
KESTRANE_COUNTED(int, execv, (const char* path, char* const* arguments), (path, arguments))

extern "C" int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    Moment("open");
    const auto file = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    Moment("open done");
    return file;
}

extern "C" int fcntl(int file, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    Moment("fcntl");
    const auto result = static_cast<int>(syscall(SYS_fcntl, file, command, argument));
    Moment("fcntl done");
    return result;
}

extern "C" sighandler_t signal(int number, sighandler_t handler) noexcept
{
    static auto* const next = Next(&signal, "signal");
    Moment("signal");
    if (number == SIGTERM && handler != SIG_DFL && handler != SIG_IGN) {
        g_handler = handler;
        handler = OnSigterm;
    }
    const sighandler_t result = next(number, handler);
    Moment("signal done");
    return result;
}

extern "C" int kill(pid_t process, int number) noexcept
{
    Moment("kill");
    Record("kill %d %d\n", process, number);
    const auto result = static_cast<int>(syscall(SYS_kill, process, number));
    const int saved = errno;
    if (result == 0 && process > 0 && number == SIGKILL) {
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOWAIT);
    }
    errno = saved;
    Moment("kill done");
    return result;
}

extern "C" pid_t waitpid(pid_t process, int* status, int options)
{
    static auto* const next = Next(&waitpid, "waitpid");
    Moment("waitpid");
    if (Counts() && !g_in_child && process > 0 && (options & WNOHANG) == 0) {
        Wait wait;
        wait.reason = Reason::kChild;
        wait.child = process;
        Block("waitpid, waiting", wait);
    }
    const pid_t result = next(process, status, options);
    Moment("waitpid done");
    return result;
}

extern "C" int nanosleep(const struct timespec* time, struct timespec* rest)
{
    static auto* const next = Next(&nanosleep, "nanosleep");
    Moment("nanosleep");
    int result = 0;
    if (Counts() && !g_in_child) {
        Wait wait;
        wait.reason = Reason::kSleep;
        wait.until = g_now + static_cast<std::uint64_t>(time->tv_sec) * 1'000'000'000U +
                     static_cast<std::uint64_t>(time->tv_nsec);
        Block("nanosleep, waiting", wait);
    } else {
        result = next(time, rest);
    }
    Moment("nanosleep done");
    return result;
}

extern "C" pid_t fork() noexcept
{
    static auto* const next = Next(&fork, "fork");
    if (!Counts() || g_in_child) {
        return next();
    }
    Moment("fork");
    ++t_self->forks;
    OpenPipeToChild();
    const pid_t child = next();
    if (child > 0) {
        Record("child %d %s\n", child, t_self->name);
    }
    Moment("fork done");
    return child;
}

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    static auto* const next = Next(&pthread_mutex_lock, "pthread_mutex_lock");
    Moment("pthread_mutex_lock");
    if (Counts() && !g_in_child && mutex->__data.__lock != 0 &&
        mutex->__data.__kind == PTHREAD_MUTEX_TIMED_NP) {
        Wait wait;
        wait.reason = Reason::kMutex;
        wait.mutex = mutex;
        Block("pthread_mutex_lock, waiting", wait);
    }
    const int result = next(mutex);
    Moment("pthread_mutex_lock done");
    return result;
}

KESTRANE_COUNTED(int, pthread_sigmask, (int how, const sigset_t* set, sigset_t* old) noexcept,
                 (how, set, old))
KESTRANE_COUNTED(int, madvise, (void* memory, std::size_t size, int advice) noexcept,
                 (memory, size, advice))
KESTRANE_COUNTED(int, pthread_mutex_unlock, (pthread_mutex_t * mutex) noexcept, (mutex))

extern "C" int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    (void)condition;
    Moment("pthread_cond_wait");
    Wait wait;
    wait.reason = Reason::kNotify;
    wait.notified = g_notified;
    static auto* const unlock = Next(&pthread_mutex_unlock, "pthread_mutex_unlock");
    static auto* const lock = Next(&pthread_mutex_lock, "pthread_mutex_lock");
    unlock(mutex);
    Block("pthread_cond_wait, waiting", wait);
    lock(mutex);
    Moment("pthread_cond_wait done");
    return 0;
}

extern "C" int pthread_cond_broadcast(pthread_cond_t* condition) noexcept
{
    (void)condition;
    Moment("pthread_cond_broadcast");
    ++g_notified;
    Moment("pthread_cond_broadcast done");
    return 0;
}

extern "C" int pthread_create(pthread_t* handle, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument) noexcept
{
    static auto* const next = Next(&pthread_create, "pthread_create");
    if (!Counts() || g_in_child || g_thread_count == kMaxThreads) {
        return next(handle, attributes, start, argument);
    }
    Moment("pthread_create");
    Thread& thread = g_threads[g_thread_count];
    snprintf(thread.name, sizeof thread.name, "s%d", g_thread_count - 1);
    thread.start = start;
    thread.argument = argument;
    const int result = next(handle, attributes, Run, &thread);
    if (result == 0) {
        thread.handle = *handle;
        ++g_thread_count;
        // The new thread runs until it blocks, unless the plan holds it.
        t_self->state = State::kReady;
        Yield();
    }
    Moment("pthread_create done");
    return result;
}

extern "C" int pthread_join(pthread_t handle, void** value)
{
    static auto* const next = Next(&pthread_join, "pthread_join");
    Moment("pthread_join");
    int result = 0;
    Thread* const thread = Counts() && !g_in_child ? Find(handle) : nullptr;
    if (thread == nullptr || thread == t_self || thread->joined) {
        result = next(handle, value);
    } else if (thread->state != State::kDone && thread->wait.reason == Reason::kJoin &&
               thread->wait.thread == t_self) {
        result = EDEADLK;  // as the C library finds two threads that join each other
    } else {
        bool joining = false;
        for (int i = 0; i < g_thread_count; ++i) {
            joining = joining || (&g_threads[i] != t_self && g_threads[i].state != State::kDone &&
                                  g_threads[i].wait.reason == Reason::kJoin &&
                                  g_threads[i].wait.thread == thread);
        }
        if (joining) {
            result = EINVAL;  // as the C library refuses a second thread
        } else {
            Wait wait;
            wait.reason = Reason::kJoin;
            wait.thread = thread;
            Block("pthread_join, waiting", wait);
            thread->joined = true;
            t_self->releases_stack = true;
            result = next(handle, value);
            t_self->releases_stack = false;
        }
    }
    Moment("pthread_join done");
    return result;
}
