"""Threads: pthread(3). Locks, keys, attributes and errno are in guest/threads.c.

In a forked child, macOS forgets the parent's threads, so joining one fails with ESRCH, and the
return of the last thread ends the process as exit(0) does.
"""

import struct

import values
from libsystem.processes import exit_process
from libsystem.registry import function
from scheduling import ANYTHING, THREAD_STACK, Invoke, Wait


@function("_pthread_create")
def pthread_create(call):
    """pthread_create(3)."""
    machine = call.machine
    size, supplied = THREAD_STACK, 0
    if call.u64(1):
        size, supplied = struct.unpack("<QQ", machine.memory.read(call.u64(1) + 8, 16))
    thread = machine.scheduler.new_thread(size, supplied or None)
    if thread is None:
        return values.ERRNO["EAGAIN"]
    machine.scheduler.start(thread, life(machine, thread, call.u64(2), call.u64(3)))
    machine.memory.set_u64(call.u64(0), thread.address)
    return 0


def life(machine, thread, start, argument):
    result = yield Invoke(start, argument)
    yield from end(machine, thread, result)


def end(machine, thread, result):
    """Runs the destructors of the thread's keys and ends it."""
    destructors = struct.unpack(
        "<128Q", machine.memory.read(machine.symbol("_key_destructors"), 1024)
    )
    for key, destructor in enumerate(destructors):
        place = thread.address + 8 + 8 * key
        value = machine.memory.u64(place)
        if destructor and value:
            machine.memory.set_u64(place, 0)
            yield Invoke(destructor, value)
    machine.scheduler.end_thread(thread, result)
    if not machine.scheduler.running():
        thread.done = False
        yield from exit_process(machine, 0)


# Cancellation. The only modelled cancellation point is pthread_testcancel, and handlers of
# pthread_cleanup_push do not run; a cancelled thread of a test has none.


@function("_pthread_setcancelstate")
def pthread_setcancelstate(call):
    """pthread_setcancelstate(3)."""
    states = (values.OTHERS["PTHREAD_CANCEL_DISABLE"], values.OTHERS["PTHREAD_CANCEL_ENABLE"])
    thread = call.machine.scheduler.current
    if call.i32(0) not in states:
        return values.ERRNO["EINVAL"]
    if call.u64(1):
        call.machine.memory.set_u32(call.u64(1), states[thread.cancellable])
    thread.cancellable = call.i32(0) == states[True]
    return 0


@function("_pthread_cancel")
def pthread_cancel(call):
    """pthread_cancel(3): of the deferred type."""
    thread = call.machine.scheduler.find(call.u64(0))
    if thread is None:
        return values.ERRNO["ESRCH"]
    thread.cancelled = True
    return 0


@function("_pthread_testcancel")
def pthread_testcancel(call):
    """pthread_testcancel(3)."""
    thread = call.machine.scheduler.current
    if thread.cancelled and thread.cancellable:
        return cancel(call.machine, thread)
    return None


def cancel(machine, thread):
    thread.cancellable = False
    yield from end(machine, thread, values.OTHERS["PTHREAD_CANCELED"])
    yield Wait(lambda: False)


@function("_pthread_join")
def pthread_join(call):
    """pthread_join(3)."""
    scheduler = call.machine.scheduler
    thread = scheduler.find(call.u64(0))
    if thread is None:
        return values.ERRNO["ESRCH"]
    if thread is scheduler.current:
        return values.ERRNO["EDEADLK"]
    if thread.joined:  # POSIX leaves it undefined
        return values.ERRNO["EINVAL"]
    thread.joined = True
    return join(call, thread)


def join(call, thread):
    yield Wait(lambda: thread.done, what=("join", thread))
    if call.u64(1):
        call.machine.memory.set_u64(call.u64(1), thread.result)
    call.machine.scheduler.remove(thread)
    return 0


@function("_pthread_mach_thread_np")
def pthread_mach_thread_np(call):
    """pthread_mach_thread_np: a number that no other thread has."""
    return call.u64(0) >> 4 & 0xFFFF_FFFF


@function("_sched_yield")
def sched_yield(_call):
    """sched_yield(2)."""
    return give_way()


def give_way():
    yield ANYTHING
    return 0


@function("_host_tick")
def host_tick(_call):
    """The guest library has been called many times in a row."""
    return give_way()


@function("_host_wait_while")
def host_wait_while(call):
    """Waits until a word in the program's memory changes."""
    address, value = call.u64(0), call.u64(1)
    return wait_while(call.machine.memory, address, value, awaited_object(call))


def awaited_object(call):
    """Whether it is a condition or a mutex, whose value is its owner."""
    condition = values.OTHERS["_PTHREAD_COND_SIG_init"]
    if call.machine.memory.u64(call.u64(0) - 8) == condition:
        return ("notification",)
    return ("mutex", call.u64(1))


def wait_while(memory, address, value, what):
    yield Wait(lambda: memory.u64(address) != value, what=what)
    return 0
