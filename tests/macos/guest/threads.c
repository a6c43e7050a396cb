// Locks, keys and errno of threads, which the model switches at calls: pthread(3), intro(2).

#include "guest.h"

#include <limits.h>
#include <pthread.h>

EXPORT struct thread* current_thread;
EXPORT void (*host_tick)(void);
EXPORT void (*host_wait_while)(const volatile uint64_t* word, uint64_t value);
EXPORT void (*host_fail)(const char* message);

enum { kCallsPerTick = 2000 };

void tick(void)
{
    static unsigned calls;
    if (++calls % kCallsPerTick == 0) {
        host_tick();
    }
}

EXPORT int* __error(void)
{
    return &current_thread->error;
}

EXPORT pthread_t pthread_self(void)
{
    return (pthread_t)current_thread;
}

EXPORT int pthread_equal(pthread_t a, pthread_t b)
{
    return a == b;
}

// The static initialisers write the signatures; the rest of the object is ours.
struct mutex {
    long signature;
    volatile uint64_t owner;
    uint64_t count;
};

struct condition {
    long signature;
    volatile uint64_t generation;
};

static int is_mutex(const struct mutex* mutex)
{
    return mutex->signature == _PTHREAD_MUTEX_SIG_init ||
           mutex->signature == _PTHREAD_RECURSIVE_MUTEX_SIG_init;
}

EXPORT int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes)
{
    if (attributes != NULL) {
        host_fail("pthread_mutex_init: attributes are not modelled");
    }
    *(struct mutex*)mutex = (struct mutex){_PTHREAD_MUTEX_SIG_init, 0, 0};
    return 0;
}

EXPORT int pthread_mutex_destroy(pthread_mutex_t* object)
{
    struct mutex* const mutex = (struct mutex*)object;
    if (!is_mutex(mutex)) {
        return EINVAL;
    }
    if (mutex->owner != 0) {
        return EBUSY;
    }
    mutex->signature = 0;
    return 0;
}

EXPORT int pthread_mutex_lock(pthread_mutex_t* object)
{
    struct mutex* const mutex = (struct mutex*)object;
    const uint64_t self = (uint64_t)current_thread;
    if (!is_mutex(mutex)) {
        return EINVAL;
    }
    tick();
    if (mutex->owner == self && mutex->signature == _PTHREAD_RECURSIVE_MUTEX_SIG_init) {
        ++mutex->count;
        return 0;
    }
    // An owner that locks it again waits forever, as with a normal mutex.
    uint64_t owner;
    while ((owner = mutex->owner) != 0) {
        host_wait_while(&mutex->owner, owner);
    }
    mutex->owner = self;
    mutex->count = 1;
    return 0;
}

EXPORT int pthread_mutex_trylock(pthread_mutex_t* object)
{
    struct mutex* const mutex = (struct mutex*)object;
    if (!is_mutex(mutex)) {
        return EINVAL;
    }
    tick();
    return mutex->owner != 0 ? EBUSY : pthread_mutex_lock(object);
}

EXPORT int pthread_mutex_unlock(pthread_mutex_t* object)
{
    struct mutex* const mutex = (struct mutex*)object;
    if (!is_mutex(mutex)) {
        return EINVAL;
    }
    if (mutex->owner != (uint64_t)current_thread) {
        return EPERM;
    }
    if (--mutex->count == 0) {
        mutex->owner = 0;
    }
    return 0;
}

static int is_condition(const struct condition* condition)
{
    return condition->signature == _PTHREAD_COND_SIG_init;
}

EXPORT int pthread_cond_wait(pthread_cond_t* object, pthread_mutex_t* mutex)
{
    struct condition* const condition = (struct condition*)object;
    if (!is_condition(condition)) {
        return EINVAL;
    }
    const uint64_t seen = condition->generation;
    const int error = pthread_mutex_unlock(mutex);
    if (error != 0) {
        return error;
    }
    host_wait_while(&condition->generation, seen);
    return pthread_mutex_lock(mutex);
}

EXPORT int pthread_cond_broadcast(pthread_cond_t* object)
{
    struct condition* const condition = (struct condition*)object;
    if (!is_condition(condition)) {
        return EINVAL;
    }
    ++condition->generation;
    return 0;
}

// POSIX allows more than one thread to wake up.
EXPORT int pthread_cond_signal(pthread_cond_t* object)
{
    return pthread_cond_broadcast(object);
}

// Does not wait for waiters: a forked child has none.
EXPORT int pthread_cond_destroy(pthread_cond_t* object)
{
    struct condition* const condition = (struct condition*)object;
    if (!is_condition(condition)) {
        return EINVAL;
    }
    condition->signature = 0;
    return 0;
}

// Attributes, of which only the stack is modelled. pthread_create reads them in the model.
struct attributes {
    long signature;
    uint64_t stack_size;
    void* stack;  // null: the system allocates it
};

static const long kAttributes = 0x61747472;
static const uint64_t kDefaultStack = 512 * 1024;

static int is_attributes(const struct attributes* attributes)
{
    return attributes->signature == kAttributes;
}

EXPORT int pthread_attr_init(pthread_attr_t* attributes)
{
    *(struct attributes*)attributes = (struct attributes){kAttributes, kDefaultStack, NULL};
    return 0;
}

EXPORT int pthread_attr_destroy(pthread_attr_t* object)
{
    struct attributes* const attributes = (struct attributes*)object;
    if (!is_attributes(attributes)) {
        return EINVAL;
    }
    attributes->signature = 0;
    return 0;
}

EXPORT int pthread_attr_setstack(pthread_attr_t* object, void* stack, size_t size)
{
    struct attributes* const attributes = (struct attributes*)object;
    if (!is_attributes(attributes) || size < PTHREAD_STACK_MIN || size % 0x1000 != 0 ||
        (uintptr_t)stack % 0x1000 != 0) {
        return EINVAL;
    }
    attributes->stack_size = size;
    attributes->stack = stack;
    return 0;
}

// The destructors of the keys, for the model, which runs them when a thread ends.
EXPORT void (*key_destructors[kKeys])(void*);
static char key_used[kKeys];

EXPORT int pthread_key_create(pthread_key_t* key, void (*destructor)(void*))
{
    for (unsigned i = 1; i < kKeys; ++i) {
        if (!key_used[i]) {
            key_used[i] = 1;
            key_destructors[i] = destructor;
            *key = i;
            return 0;
        }
    }
    return EAGAIN;
}

EXPORT int pthread_key_delete(pthread_key_t key)
{
    if (key >= kKeys || !key_used[key]) {
        return EINVAL;
    }
    key_used[key] = 0;
    key_destructors[key] = NULL;
    return 0;
}

EXPORT void* pthread_getspecific(pthread_key_t key)
{
    return key < kKeys ? current_thread->values[key] : NULL;
}

EXPORT int pthread_setspecific(pthread_key_t key, const void* value)
{
    if (key >= kKeys || !key_used[key]) {
        return EINVAL;
    }
    current_thread->values[key] = (void*)value;
    return 0;
}
