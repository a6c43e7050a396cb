"""Signals: signal(3), sigaction(2), sigprocmask(2), pause(3), alarm(3)."""

import signal
import struct

import values
from libsystem.errors import fail
from libsystem.registry import function
from scheduling import Wait

DEFAULT, IGNORE = 0, 1


def prepare(machine):
    machine.system["signal_number"] = values.signal_to_macos


def current(machine, number):
    """The address of the handler, or the value for the default action or for ignoring."""
    if number in machine.scheduler.handlers:
        return machine.scheduler.handlers[number]
    return IGNORE if signal.getsignal(number) == signal.SIG_IGN else DEFAULT


def change(machine, number, handler):
    scheduler = machine.scheduler
    if handler in (DEFAULT, IGNORE):
        signal.signal(number, signal.SIG_IGN if handler == IGNORE else signal.SIG_DFL)
        scheduler.remove_handler(number)
    else:
        # From now on it is blocked, and other processes see it as caught.
        scheduler.set_handler(number, handler)
        signal.signal(number, lambda *_: None)


@function("_signal")
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


@function("_sigprocmask")
def sigprocmask(call):
    """sigprocmask(2): reads the mask."""
    if call.u64(1):
        raise NotImplementedError("sigprocmask with a set")
    mask = sum(1 << values.signal_to_macos(n) - 1 for n in call.machine.scheduler.blocked)
    call.store(2, struct.pack("<I", mask))
    return 0


@function("_pause")
def pause(_call):
    """pause(3). Returns never: only a signal that ends the program ends the wait."""
    return wait_forever()


def wait_forever():
    yield Wait(lambda: False)
