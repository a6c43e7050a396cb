"""Threads: pthread(3). Locks, keys and errno are in guest/threads.c.

In a forked child, macOS forgets the parent's threads, so joining one fails with ESRCH, and the
return of the last thread ends the process as exit(0) does.
"""

import struct

import values
from libsystem.processes import exit_process
from libsystem.registry import function
from scheduling import ANYTHING, Invoke, Wait


@function("_pthread_setcancelstate")
def pthread_setcancelstate(call):
    """pthread_setcancelstate(3). pthread_cancel has no model, so only the old state matters."""
    if call.u64(1):
        call.machine.memory.set_u32(call.u64(1), values.OTHERS["PTHREAD_CANCEL_ENABLE"])
    return 0


@function("_pthread_create")
def pthread_create(call):
    """pthread_create(3): with the default attributes."""
    machine = call.machine
    if call.u64(1):
        raise NotImplementedError("pthread_create with attributes")
    thread = machine.scheduler.new_thread()
    if thread is None:
        return values.ERRNO["EAGAIN"]
    machine.scheduler.start(thread, life(machine, thread, call.u64(2), call.u64(3)))
    machine.memory.set_u64(call.u64(0), thread.address)
    return 0


def life(machine, thread, start, argument):
    result = yield Invoke(start, argument)
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


@function("_pthread_join")
def pthread_join(call):
    """pthread_join(3)."""
    scheduler = call.machine.scheduler
    thread = scheduler.find(call.u64(0))
    if thread is None:
        return values.ERRNO["ESRCH"]
    if thread is scheduler.current:
        return values.ERRNO["EDEADLK"]
    return join(call, thread)


def join(call, thread):
    yield Wait(lambda: thread.done)
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
    memory = call.machine.memory
    return wait_while(memory, address, value)


def wait_while(memory, address, value):
    yield Wait(lambda: memory.u64(address) != value)
    return 0
