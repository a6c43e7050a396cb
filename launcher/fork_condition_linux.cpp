// Lets a forked child exit through the exit-time destructors.
//
// The destructor of glibc's condition variable waits until no thread waits on it. A forked child
// inherits a copy of g_process_condition that counts the parent's `main` as a waiter; the child has
// no such thread, so its destructor would never return. Every child therefore constructs its copy
// again. The parent's is not touched. Other systems do not wait in the destructor.
#include <pthread.h>

#include <new>

#include "launcher/main.h"

namespace {

void ReconstructCondition()
{
    new (&g_process_condition) std::condition_variable;
}

const int g_registered = pthread_atfork(nullptr, nullptr, ReconstructCondition);

}  // namespace
