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
#include <mach-o/dyld.h>
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

int main(void)
{
    setbuf(stdout, NULL);
    char directory[] = "/tmp/posix_test_XXXXXX";
    if (mkdtemp(directory) == NULL || chdir(directory) != 0) {
        return 2;
    }
    check_masks();
    check_masks_of_threads();
    check_size_limit();
    check_supplied_stack();
    check_cancellation();
    check_threads();
    check_children();
    check_child_whose_thread_returns();
    check_files();
    check_paths();
    unlink("limited");
    unlink("loop");
    rmdir(directory);
    return failures != 0;
}
