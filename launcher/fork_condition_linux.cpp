// A child that leaves through the exit-time destructors must end.
//
// glibc's condition variable waits in its destructor until nobody waits on it any more. A forked
// child of the launcher inherits a copy on which the parent's `main` waits, a thread that the child
// does not have, and would wait for ever. So every child makes its copy new; the parent's is not
// touched. Other systems destroy such a copy at once.
#include <pthread.h>

#include <new>

#include "launcher/main.h"

namespace {

void RenewCondition()
{
    new (&g_process_condition) std::condition_variable;
}

const int g_registered = pthread_atfork(nullptr, nullptr, RenewCondition);

}  // namespace
