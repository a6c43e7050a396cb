"""Signals: signal(3), sigaction(2), sigprocmask(2), sigwait(2), kill(2), pause(3), alarm(3)."""

import errno
import os
import signal

import values
from libsystem.errors import fail, sets_errno
from libsystem.registry import function
from scheduling import Invoke, Wait

DEFAULT, IGNORE = 0, 1


# POSIX: blocking them has no effect, and they can be neither handled nor ignored.
UNBLOCKABLE = {signal.SIGKILL, signal.SIGSTOP}


def prepare(machine):
    machine.system["signal_number"] = values.signal_to_macos


def current(machine, number):
    """The address of the handler, or the value for the default action or for ignoring."""
    if number in machine.scheduler.handlers:
        return machine.scheduler.handlers[number]
    return IGNORE if signal.getsignal(number) == signal.SIG_IGN else DEFAULT


def change(machine, number, handler):
    scheduler = machine.scheduler
    if number in UNBLOCKABLE:
        if handler != DEFAULT:
            raise OSError(errno.EINVAL, os.strerror(errno.EINVAL))
        return
    if handler in (DEFAULT, IGNORE):
        signal.signal(number, signal.SIG_IGN if handler == IGNORE else signal.SIG_DFL)
        scheduler.remove_handler(number)
    else:
        # From now on it is blocked, and other processes see it as caught.
        scheduler.set_handler(number, handler)
        signal.signal(number, lambda *_: None)


@function("_signal")
@sets_errno()
def signal_(call):
    """signal(3)."""
    machine = call.machine
    try:
        number = values.signal_to_linux(call.i32(0))
    except ValueError:
        return fail(call, "EINVAL")
    old = current(machine, number)
    change(machine, number, call.u64(1))
    return old


@function("_alarm")
def alarm(call):
    """alarm(3)."""
    return signal.alarm(call.u32(0))


@function("_sigaction")
@sets_errno()
def sigaction(call):
    """sigaction(2): the handler only; flags and mask are those of signal(3)."""
    machine = call.machine
    try:
        number = values.signal_to_linux(call.i32(0))
    except ValueError:
        return fail(call, "EINVAL")
    old = current(machine, number)
    if call.u64(1):
        handler, _, flags = values.SIGACTION.unpack(call.data(1, values.SIGACTION.size))
        if flags:
            raise NotImplementedError(f"sigaction with flags {flags:#x}")
        change(machine, number, handler)
    if call.u64(2):
        call.store(2, values.SIGACTION.pack(old, 0, 0))
    return 0


# Sets of signals


def read_set(call, index):
    """The signals of a sigset_t; those that Linux does not have can be blocked to no effect."""
    bits = call.machine.memory.u32(call.u64(index))
    return frozenset(
        values.signal_to_linux(number)
        for number in values.SIGNALS.values()
        if bits >> (number - 1) & 1
    )


def store_set(call, index, signals):
    bits = sum(1 << values.signal_to_macos(number) - 1 for number in signals)
    call.machine.memory.set_u32(call.u64(index), bits)


def pending(scheduler):
    """The signals that wait until the calling thread unblocks them."""
    in_process = {number for number in signal.sigpending() if number != signal.SIGCHLD}
    in_process |= set(scheduler.pending)
    return scheduler.current.pending | in_process & scheduler.current.blocked


def change_mask(call, error):
    """Stores and changes the mask of the calling thread; returns what `error` does for EINVAL."""
    scheduler = call.machine.scheduler
    thread = scheduler.current
    old = thread.blocked
    if call.u64(1):
        chosen = read_set(call, 1) - UNBLOCKABLE
        if call.i32(0) == values.OTHERS["SIG_BLOCK"]:
            thread.blocked = old | chosen
        elif call.i32(0) == values.OTHERS["SIG_UNBLOCK"]:
            thread.blocked = old - chosen
        elif call.i32(0) == values.OTHERS["SIG_SETMASK"]:
            thread.blocked = chosen
        else:
            return error()
    if call.u64(2):
        store_set(call, 2, old)
    scheduler.update_mask()
    due = thread.pending - thread.blocked
    return deliver(scheduler, due) if due else 0


def deliver(scheduler, due):
    """Delivers signals that the calling thread has just unblocked."""
    thread = scheduler.current
    thread.pending -= due
    for number in due:
        if number in scheduler.handlers:
            yield from scheduler.handle(thread, number)
        else:
            os.kill(os.getpid(), number)
    return 0


@function("_pthread_sigmask")
def pthread_sigmask(call):
    """pthread_sigmask(2). POSIX: at least one pending signal is delivered before it returns."""
    return change_mask(call, lambda: values.ERRNO["EINVAL"])


@function("_sigprocmask")
def sigprocmask(call):
    """sigprocmask(2): like pthread_sigmask, but sets errno."""
    return change_mask(call, lambda: fail(call, "EINVAL"))


@function("_sigpending")
def sigpending(call):
    """sigpending(2)."""
    store_set(call, 0, pending(call.machine.scheduler))
    return 0


@function("_sigwait")
def sigwait(call):
    """sigwait(2), for signals that the calling thread blocks."""
    chosen = read_set(call, 0)
    scheduler = call.machine.scheduler
    if signal.SIGCHLD in chosen or chosen - scheduler.current.blocked:
        raise NotImplementedError("sigwait for SIGCHLD, or for a signal that is not blocked")
    return wait_for_signal(call, scheduler, chosen)


def wait_for_signal(call, scheduler, chosen):
    thread = scheduler.current
    yield Wait(lambda: chosen & (thread.pending | set(scheduler.pending) | signal.sigpending()),
               polled=True)  # fmt: skip
    if chosen & thread.pending:
        number = min(chosen & thread.pending)
        thread.pending.discard(number)
    elif chosen & set(scheduler.pending):
        number = min(chosen & set(scheduler.pending))
        scheduler.pending.remove(number)
    else:
        number = signal.sigwait(chosen & signal.sigpending())
    call.machine.memory.set_u32(call.u64(1), values.signal_to_macos(number))
    return 0


# Sending


def send(call, pid, number):
    try:
        os.kill(pid, values.signal_to_linux(number))
    except ValueError:
        return fail(call, "EINVAL")
    return 0


@function("_kill")
@sets_errno()
def kill(call):
    """kill(2)."""
    return send(call, call.i32(0), call.i32(1))


@function("_raise")
@sets_errno()
def raise_(call):
    """raise(3): to the calling thread, and delivered before the function returns unless blocked."""
    number = values.signal_to_linux(call.i32(0))
    scheduler = call.machine.scheduler
    if number in scheduler.current.blocked:
        scheduler.current.pending.add(number)
        return 0
    if number not in scheduler.handlers:
        return send(call, os.getpid(), call.i32(0))
    return raise_handled(call, number)


def raise_handled(call, number):
    handler = call.machine.scheduler.handlers[number]
    yield Invoke(handler, call.i32(0))
    return 0


@function("_pause")
def pause(_call):
    """pause(3). Returns never: only a signal that ends the program ends the wait."""
    return wait_forever()


def wait_forever():
    yield Wait(lambda: False)
