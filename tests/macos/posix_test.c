// What programs may expect of the system, checked from inside a program. model_test.py runs it on
// the model of macOS and, built for Linux, on Linux itself, so no expectation comes from the model
// alone.
//
// Sources: POSIX; where the two systems differ, Apple's manual pages. Prints each wrong
// expectation.

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __APPLE__
#include <libproc.h>
#include <mach-o/dyld.h>
#include <mach/mach_time.h>
#include <sys/fcntl.h>
#include <sys/proc_info.h>
#include <sys/sysctl.h>
#endif

static int failures;

#define CHECK(condition)                                   \
    do {                                                   \
        if (!(condition)) {                                \
            printf("line %d: %s\n", __LINE__, #condition); \
            ++failures;                                    \
        }                                                  \
    } while (0)

#define CHECK_ERROR(number, call) \
    do {                          \
        errno = 0;                \
        CHECK((call) == -1);      \
        CHECK(errno == (number)); \
    } while (0)

// Signals

static volatile sig_atomic_t handled;
static pthread_t handled_by;

static void count(int number)
{
    (void)number;
    ++handled;
    handled_by = pthread_self();
}

static sigset_t only(int number)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    return set;
}

static int is_pending(int number)
{
    sigset_t set;
    sigemptyset(&set);
    CHECK(sigpending(&set) == 0);
    return sigismember(&set, number);
}

static int is_blocked(int number)
{
    sigset_t set;
    sigemptyset(&set);
    CHECK(pthread_sigmask(SIG_BLOCK, NULL, &set) == 0);
    return sigismember(&set, number);
}

static void check_masks(void)
{
    const sigset_t user = only(SIGUSR1);
    sigset_t before;
    CHECK(pthread_sigmask(4711, &user, NULL) == EINVAL);
    CHECK(pthread_sigmask(SIG_BLOCK, &user, &before) == 0);
    CHECK(!sigismember(&before, SIGUSR1));
    CHECK(is_blocked(SIGUSR1));
    const sigset_t stop = only(SIGKILL);
    CHECK(pthread_sigmask(SIG_BLOCK, &stop, NULL) == 0);
    CHECK(!is_blocked(SIGKILL));

    // Its default action would end this program.
    CHECK(!is_pending(SIGUSR1));
    CHECK(raise(SIGUSR1) == 0);
    CHECK(is_pending(SIGUSR1));
    int received = 0;
    CHECK(sigwait(&user, &received) == 0);
    CHECK(received == SIGUSR1);
    CHECK(!is_pending(SIGUSR1));
    CHECK(kill(getpid(), SIGUSR1) == 0);
    CHECK(is_pending(SIGUSR1));
    CHECK(sigwait(&user, &received) == 0);
    CHECK(!is_pending(SIGUSR1));

    signal(SIGUSR1, count);
    handled = 0;
    raise(SIGUSR1);
    CHECK(handled == 0);
    CHECK(is_pending(SIGUSR1));
    CHECK(pthread_sigmask(SIG_SETMASK, &before, NULL) == 0);
    CHECK(handled == 1);
    raise(SIGUSR1);
    CHECK(handled == 2);
    signal(SIGUSR1, SIG_DFL);
    CHECK(sigprocmask(SIG_BLOCK, &user, NULL) == 0);
    CHECK(is_blocked(SIGUSR1));
    CHECK(sigprocmask(SIG_UNBLOCK, &user, NULL) == 0);
    CHECK(!is_blocked(SIGUSR1));
    CHECK_ERROR(EINVAL, sigprocmask(4711, &user, NULL));
}

static void* unblock_and_wait(void* inherited)
{
    const sigset_t user = only(SIGUSR1);
    *(int*)inherited = is_blocked(SIGUSR1);
    pthread_sigmask(SIG_UNBLOCK, &user, NULL);
    kill(getpid(), SIGUSR1);
    while (handled == 0) {
        sched_yield();
    }
    return NULL;
}

static void check_masks_of_threads(void)
{
    const sigset_t user = only(SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &user, NULL);
    signal(SIGUSR1, count);
    handled = 0;
    int inherited = 0;
    pthread_t thread;
    CHECK(pthread_create(&thread, NULL, unblock_and_wait, &inherited) == 0);
    CHECK(pthread_join(thread, NULL) == 0);
    CHECK(inherited);
    CHECK(handled == 1);
    CHECK(!pthread_equal(handled_by, pthread_self()));
    CHECK(is_blocked(SIGUSR1));
    signal(SIGUSR1, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &user, NULL);
}

static void check_size_limit(void)
{
    const sigset_t size = only(SIGXFSZ);
    const int file = open("limited", O_RDWR | O_CREAT, 0600);
    struct rlimit before;
    CHECK(getrlimit(RLIMIT_FSIZE, &before) == 0);
    const struct rlimit limit = {2, before.rlim_max};
    CHECK(setrlimit(RLIMIT_FSIZE, &limit) == 0);
    pthread_sigmask(SIG_BLOCK, &size, NULL);
    CHECK(write(file, "abc", 3) == 2);
    CHECK_ERROR(EFBIG, write(file, "c", 1));
    CHECK(is_pending(SIGXFSZ));
    int received = 0;
    sigwait(&size, &received);
    pthread_sigmask(SIG_UNBLOCK, &size, NULL);
    CHECK(setrlimit(RLIMIT_FSIZE, &before) == 0);
    close(file);
}

// Threads

static void* frame_address(void* unused)
{
    (void)unused;
    return __builtin_frame_address(0);
}

static void check_supplied_stack(void)
{
    enum
    {
        kSize = 256 * 1024
    };
    char* const stack = mmap(NULL, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
    pthread_attr_t attributes;
    CHECK(pthread_attr_init(&attributes) == 0);
    CHECK(pthread_attr_setstack(&attributes, stack, 4096) == EINVAL);
    CHECK(pthread_attr_setstack(&attributes, stack, kSize) == 0);
    pthread_t thread;
    void* frame = NULL;
    CHECK(pthread_create(&thread, &attributes, frame_address, NULL) == 0);
    CHECK(pthread_join(thread, &frame) == 0);
    CHECK((char*)frame > stack && (char*)frame < stack + kSize);
    CHECK(pthread_attr_destroy(&attributes) == 0);
    CHECK(munmap(stack, kSize) == 0);
}

static pthread_key_t key;
static void* destroyed;
static int reached;

static void destroy(void* value)
{
    destroyed = value;
}

static void* cancel_itself(void* unused)
{
    (void)unused;
    int old = -1;
    pthread_setspecific(key, &reached);
    CHECK(pthread_setcancelstate(4711, &old) == EINVAL);
    CHECK(pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &old) == 0);
    CHECK(old == PTHREAD_CANCEL_ENABLE);
    pthread_cancel(pthread_self());
    pthread_testcancel();
    reached = 1;
    CHECK(pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &old) == 0);
    CHECK(old == PTHREAD_CANCEL_DISABLE);
    pthread_testcancel();
    reached = 2;
    return NULL;
}

static void check_cancellation(void)
{
    CHECK(pthread_key_create(&key, destroy) == 0);
    pthread_t thread;
    void* result = NULL;
    CHECK(pthread_create(&thread, NULL, cancel_itself, NULL) == 0);
    CHECK(pthread_join(thread, &result) == 0);
    CHECK(result == PTHREAD_CANCELED);
    CHECK(reached == 1);
    CHECK(destroyed == &reached);
    CHECK(pthread_key_delete(key) == 0);
}

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
static int stage_reached;

static void* wait_for_stage(void* unused)
{
    (void)unused;
    pthread_mutex_lock(&mutex);
    CHECK(pthread_mutex_trylock(&mutex) == EBUSY);
    stage_reached = 1;
    pthread_cond_broadcast(&condition);
    while (stage_reached != 2) {
        pthread_cond_wait(&condition, &mutex);
    }
    pthread_mutex_unlock(&mutex);
    return &stage_reached;
}

static void check_threads(void)
{
    pthread_t thread;
    void* result = NULL;
    CHECK(pthread_join(pthread_self(), NULL) == EDEADLK);
    pthread_mutex_lock(&mutex);
    CHECK(pthread_create(&thread, NULL, wait_for_stage, NULL) == 0);
    while (stage_reached != 1) {
        pthread_cond_wait(&condition, &mutex);
    }
    // In a forked child the thread does not exist; what a join gives is not specified.
    const pid_t child = fork();
    if (child == 0) {
        _exit(pthread_join(thread, NULL));
    }
    int status = 0;
    CHECK(waitpid(child, &status, 0) == child);
#ifdef __APPLE__
    CHECK(status == ESRCH << 8);
#endif
    stage_reached = 2;
    pthread_cond_broadcast(&condition);
    pthread_mutex_unlock(&mutex);
    CHECK(pthread_join(thread, &result) == 0);
    CHECK(result == &stage_reached);
    CHECK(pthread_cond_destroy(&condition) == 0);
    CHECK(pthread_mutex_destroy(&mutex) == 0);
}

// Processes

static int at_exit[2];

static void write_at_exit(void)
{
    (void)!write(at_exit[1], "x", 1);
}

static void* fork_and_return(void* pid)
{
    *(pid_t*)pid = fork();
    return NULL;
}

// A child whose only thread returns ends as if by exit(0).
static void check_child_whose_thread_returns(void)
{
    CHECK(pipe(at_exit) == 0);
    const pid_t middle = fork();
    if (middle == 0) {
        atexit(write_at_exit);
        pid_t child = -1;
        pthread_t thread;
        pthread_create(&thread, NULL, fork_and_return, &child);
        pthread_join(thread, NULL);
        int status = -1;
        waitpid(child, &status, 0);
        _exit(status == 0 ? 7 : 8);
    }
    int status = -1;
    CHECK(waitpid(middle, &status, 0) == middle);
    CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 7);
    close(at_exit[1]);
    char byte = 0;
    CHECK(read(at_exit[0], &byte, 1) == 1 && byte == 'x');
    CHECK(read(at_exit[0], &byte, 1) == 0);
    close(at_exit[0]);
}

static pid_t parent;

static void* note_other_process(void* other)
{
    while (*(volatile int*)other == 0) {
        if (getpid() != parent) {
            *(volatile int*)other = 2;
        }
        sched_yield();
    }
    return NULL;
}

static void* fork_and_sleep(void* pid)
{
    *(pid_t*)pid = fork();
    if (*(pid_t*)pid == 0) {
        usleep(20000);
    }
    return NULL;
}

// A forked child has only the thread that has forked, although others could run.
static void check_only_thread_of_a_child(void)
{
    volatile int* const other =
        mmap(NULL, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANON, -1, 0);
    pthread_t threads[3];
    pid_t child = -1;
    parent = getpid();
    pthread_create(&threads[0], NULL, note_other_process, (void*)other);
    pthread_create(&threads[1], NULL, fork_and_sleep, &child);
    pthread_create(&threads[2], NULL, note_other_process, (void*)other);
    pthread_join(threads[1], NULL);
    int status = -1;
    CHECK(waitpid(child, &status, 0) == child && status == 0);
    CHECK(*other == 0);
    *other = *other == 0 ? 1 : *other;
    pthread_join(threads[0], NULL);
    pthread_join(threads[2], NULL);
    munmap((void*)other, sizeof(int));
}

static void check_children(void)
{
    int status = -1;
    CHECK_ERROR(ECHILD, waitpid(-1, &status, 0));
    pid_t child = fork();
    if (child == 0) {
        raise(SIGUSR2);
        _exit(1);
    }
    CHECK(waitpid(child, &status, 0) == child);
    CHECK(WIFSIGNALED(status) && WTERMSIG(status) == SIGUSR2);
    child = fork();
    if (child == 0) {
        execv("/no such program", (char*[]){"x", NULL});
        _exit(errno == ENOENT ? 3 : 4);
    }
    CHECK(waitpid(child, &status, 0) == child);
    CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 3);
    CHECK_ERROR(ESRCH, kill(child, 0));
    CHECK_ERROR(EINVAL, kill(getpid(), 4711));
}

// Files

static void check_unblockable_signals(void)
{
    errno = 0;
    CHECK(signal(SIGKILL, SIG_IGN) == SIG_ERR && errno == EINVAL);
    errno = 0;
    CHECK(signal(SIGSTOP, count) == SIG_ERR && errno == EINVAL);
    signal(SIGKILL, SIG_DFL);
}

static void check_files(void)
{
    struct stat status;
    char text[8] = "";
    CHECK_ERROR(ENOENT, open("missing", O_RDONLY));
    CHECK_ERROR(ENOENT, chown("missing", getuid(), (gid_t)-1));
    CHECK_ERROR(EBADF, close(4711));
    CHECK(mkdir("directory", 0700) == 0);
    CHECK_ERROR(EEXIST, mkdir("directory", 0700));
    const int file = open("directory/file", O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
    CHECK(file >= 0);
    CHECK_ERROR(EEXIST, open("directory/file", O_RDWR | O_CREAT | O_EXCL, 0640));
    CHECK(fcntl(file, F_GETFD) == FD_CLOEXEC);
    CHECK(chown("directory/file", getuid(), (gid_t)-1) == 0);
    CHECK(write(file, "abc", 3) == 3);
    CHECK(pread(file, text, sizeof text, 1) == 2 && strcmp(text, "bc") == 0);
    CHECK(fstat(file, &status) == 0);
    CHECK(S_ISREG(status.st_mode) && status.st_size == 3 && status.st_uid == getuid());
    CHECK(fcntl(file, F_SETFL, O_APPEND) == 0);
    CHECK((fcntl(file, F_GETFL) & (O_APPEND | O_NONBLOCK)) == O_APPEND);
    CHECK(close(file) == 0);
    CHECK_ERROR(ENOTEMPTY, rmdir("directory"));
    CHECK_ERROR(ENOTDIR, open("directory/file/x", O_RDONLY));
    CHECK(symlink("loop", "loop") == 0);
    CHECK_ERROR(ELOOP, open("loop", O_RDONLY));

    int found = 0;
    DIR* const directory = opendir("directory");
    for (const struct dirent* entry; (entry = readdir(directory)) != NULL;) {
        found += strcmp(entry->d_name, "file") == 0;
    }
    CHECK(closedir(directory) == 0);
    CHECK(found == 1);
    CHECK(unlink("directory/file") == 0);
    CHECK(rmdir("directory") == 0);
}

static void check_paths(void)
{
    char long_path[PATH_MAX + 2];
    memset(long_path, '/', sizeof long_path);
    long_path[PATH_MAX] = '\0';
    CHECK_ERROR(ENAMETOOLONG, open(long_path, O_RDONLY));
    long_path[PATH_MAX - 1] = '\0';
    CHECK(close(open(long_path, O_RDONLY)) == 0);
    char* const resolved = realpath(long_path, NULL);
    CHECK(resolved != NULL && strcmp(resolved, "/") == 0);
    free(resolved);
#ifdef __APPLE__
    CHECK(PATH_MAX == 1024);
    long_path[PATH_MAX - 1] = long_path[PATH_MAX] = '/';
    long_path[PATH_MAX + 1] = '\0';
    CHECK(realpath(long_path, NULL) == NULL && errno == ENAMETOOLONG);

    char path[PATH_MAX] = "";
    uint32_t size = sizeof path;
    CHECK(_NSGetExecutablePath(path, &size) == 0);
    const uint32_t needed = (uint32_t)strlen(path) + 1;
    size = needed;
    CHECK(_NSGetExecutablePath(path, &size) == 0);
    size = needed - 1;
    CHECK(_NSGetExecutablePath(path, &size) == -1);
    CHECK(size == needed);
#endif
}

#ifdef __APPLE__
// Information about processes. A failed function of libproc returns 0.

#define CHECK_NOTHING(number, call) \
    do {                            \
        errno = 0;                  \
        CHECK((call) == 0);         \
        CHECK(errno == (number));   \
    } while (0)

static int read_all(pid_t id, struct proc_taskallinfo* info)
{
    return proc_pidinfo(id, PROC_PIDTASKALLINFO, 0, info, sizeof *info);
}

static int is_listed(pid_t id)
{
    pid_t ids[1024];
    const int size = proc_listpids(PROC_RUID_ONLY, getuid(), ids, sizeof ids);
    int found = 0;
    for (int i = 0; i < size / (int)sizeof *ids; ++i) {
        found += ids[i] == id;
    }
    return found;
}

// `executed`: the path as it was given to the system.
static void check_arguments(pid_t id, const char* executed, int argc, char** argv)
{
    int name[] = {CTL_KERN, KERN_PROCARGS2, id};
    size_t size = 0;
    CHECK(sysctl(name, 3, NULL, &size, NULL, 0) == 0);
    char* const text = calloc(1, size + 1);
    size_t too_small = 8;
    CHECK_ERROR(ENOMEM, sysctl(name, 3, text, &too_small, NULL, 0));
    CHECK(sysctl(name, 3, text, &size, NULL, 0) == 0);
    int count = -1;
    memcpy(&count, text, sizeof count);
    CHECK(count == argc);
    const char* at = text + sizeof count;
    CHECK(strcmp(at, executed) == 0);
    at += strlen(at);
    while (*at == '\0') {
        ++at;
    }
    for (int i = 0; i < argc; ++i) {
        CHECK(strcmp(at, argv[i]) == 0);
        at += strlen(at) + 1;
    }
    // The environment follows.
    CHECK(strchr(at, '=') != NULL);
    free(text);
}

static void check_process_table(int argc, char** argv)
{
    char own[PATH_MAX] = "";
    uint32_t own_size = sizeof own;
    CHECK(_NSGetExecutablePath(own, &own_size) == 0);
    char* const resolved = realpath(own, NULL);
    char path[PROC_PIDPATHINFO_MAXSIZE] = "";
    CHECK(proc_pidpath(getpid(), path, sizeof path) == (int)strlen(resolved));
    CHECK(strcmp(path, resolved) == 0);
    check_arguments(getpid(), resolved, argc, argv);

    struct proc_taskallinfo info;
    CHECK(read_all(getpid(), &info) == sizeof info);
    CHECK(info.pbsd.pbi_pid == (uint32_t)getpid() && info.pbsd.pbi_ppid == (uint32_t)getppid());
    CHECK(info.pbsd.pbi_ruid == getuid() && info.pbsd.pbi_pgid == (uint32_t)getpgrp());
    CHECK((info.pbsd.pbi_flags & PROC_FLAG_EXEC) != 0);
    CHECK(info.ptinfo.pti_resident_size > 4096 && info.ptinfo.pti_threadnum > 0);
    mach_timebase_info_data_t base = {0, 0};
    CHECK(mach_timebase_info(&base) == 0);
    const uint64_t ticks = info.ptinfo.pti_total_user + info.ptinfo.pti_total_system;
    CHECK(ticks * base.numer / base.denom > 10000000);

    // A forked child has executed no program. Once it has ended, nothing is known about it.
    int ends[2];
    CHECK(pipe(ends) == 0);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[1]);
        char byte = 0;
        _exit((int)read(ends[0], &byte, 1));
    }
    CHECK(is_listed(getpid()) == 1 && is_listed(child) == 1 && is_listed(4711) == 0);
    CHECK(proc_listpids(PROC_RUID_ONLY, getuid(), NULL, 0) >= 2 * (int)sizeof(pid_t));
    CHECK(read_all(child, &info) == sizeof info);
    CHECK(info.pbsd.pbi_ppid == (uint32_t)getpid());
    CHECK((info.pbsd.pbi_flags & PROC_FLAG_EXEC) == 0);
    CHECK(proc_pidpath(child, path, sizeof path) > 0 && strcmp(path, resolved) == 0);
    check_arguments(child, resolved, argc, argv);
    close(ends[1]);
    int status = -1;
    CHECK(waitpid(child, &status, 0) == child);
    close(ends[0]);
    CHECK_NOTHING(ESRCH, read_all(child, &info));
    CHECK_NOTHING(ESRCH, proc_pidpath(child, path, sizeof path));
    int name[] = {CTL_KERN, KERN_PROCARGS2, child};
    size_t size = sizeof path;
    CHECK_ERROR(EINVAL, sysctl(name, 3, path, &size, NULL, 0));

    // Directories and descriptors.
    struct proc_vnodepathinfo directories;
    char directory[PATH_MAX] = "";
    CHECK(proc_pidinfo(getpid(), PROC_PIDVNODEPATHINFO, 0, &directories, sizeof directories) ==
          sizeof directories);
    CHECK(getcwd(directory, sizeof directory) != NULL);
    CHECK(strcmp(directories.pvi_cdir.vip_path, directory) == 0);
    const int file = open("appended", O_WRONLY | O_CREAT | O_APPEND, 0600);
    CHECK(write(file, "abc", 3) == 3);
    struct vnode_fdinfowithpath open_file;
    CHECK(proc_pidfdinfo(getpid(), file, PROC_PIDFDVNODEPATHINFO, &open_file, sizeof open_file) ==
          sizeof open_file);
    CHECK((open_file.pfi.fi_openflags & (FREAD | FWRITE | O_APPEND)) == (FWRITE | O_APPEND));
    CHECK(open_file.pfi.fi_offset == 3);
    CHECK(strcmp(strrchr(open_file.pvip.vip_path, '/'), "/appended") == 0);
    close(file);
    unlink("appended");
    CHECK_NOTHING(EBADF, proc_pidfdinfo(getpid(), file, PROC_PIDFDVNODEPATHINFO, &open_file,
                                        sizeof open_file));
    free(resolved);
}
#endif

int main(int argc, char** argv)
{
    setbuf(stdout, NULL);
    char directory[] = "/tmp/posix_test_XXXXXX";
    if (mkdtemp(directory) == NULL || chdir(directory) != 0) {
        return 2;
    }
    check_masks();
    check_unblockable_signals();
    check_masks_of_threads();
    check_size_limit();
    check_supplied_stack();
    check_cancellation();
    check_threads();
    check_children();
    check_child_whose_thread_returns();
    check_only_thread_of_a_child();
    check_files();
    check_paths();
#ifdef __APPLE__
    check_process_table(argc, argv);
#else
    (void)argc;
    (void)argv;
#endif
    unlink("limited");
    unlink("loop");
    rmdir(directory);
    return failures != 0;
}
