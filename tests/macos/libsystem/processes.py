"""Processes: fork(2), execve(2), wait(2), exit(3). The processes are real."""

import ctypes
import os
import resource
import signal
import struct

import values
from libsystem.errors import sets_errno
from libsystem.loader import environment as environment_of
from libsystem.registry import function
from libsystem.stdio import flush_all
from scheduling import Invoke, Wait

LIBC = ctypes.CDLL(None, use_errno=True)

LIMITS = {
    values.OTHERS["RLIMIT_FSIZE"]: resource.RLIMIT_FSIZE,
    values.OTHERS["RLIMIT_STACK"]: resource.RLIMIT_STACK,
    values.OTHERS["RLIMIT_CORE"]: resource.RLIMIT_CORE,
    values.OTHERS["RLIMIT_NPROC"]: resource.RLIMIT_NPROC,
    values.OTHERS["RLIMIT_NOFILE"]: resource.RLIMIT_NOFILE,
}


def prepare(machine):
    machine.system["exit"] = exit_process
    machine.system["at_exit"] = []
    machine.system["at_fork"] = []


@function("_getpid")
def getpid(_call):
    """getpid(2)."""
    return os.getpid()


@function("_getppid")
def getppid(_call):
    """getpid(2)."""
    return os.getppid()


@function("_getpgrp")
def getpgrp(_call):
    """getpgrp(2)."""
    return os.getpgrp()


@function("_setpgid")
@sets_errno()
def setpgid(call):
    """setpgid(2)."""
    os.setpgid(call.i32(0), call.i32(1))
    return 0


@function("_setsid")
@sets_errno()
def setsid(_call):
    """setsid(2)."""
    os.setsid()
    return os.getpid()


@function("_pthread_atfork")
def pthread_atfork(call):
    """pthread_atfork(3)."""
    call.machine.system["at_fork"].append((call.u64(0), call.u64(1), call.u64(2)))
    return 0


@function("_fork")
@sets_errno()
def fork(call):
    """fork(2): the child has a copy of the calling thread only. Handlers of pthread_atfork run in
    this thread, those before the fork in reverse order."""
    return fork_with_handlers(call)


def fork_with_handlers(call):
    handlers = call.machine.system["at_fork"]
    for prepare_handler, _, _ in reversed(handlers):
        if prepare_handler:
            yield Invoke(prepare_handler)
    moments = call.machine.moments
    if moments is not None:
        moments.before_fork()
    try:
        pid = os.fork()
    except OSError as error:
        pid, failure = -1, error
    if moments is not None:
        moments.after_fork(pid)
    if pid == 0:
        call.machine.scheduler.after_fork()
    for _, parent_handler, child_handler in handlers:
        handler = child_handler if pid == 0 else parent_handler
        if handler:
            yield Invoke(handler)
    if pid < 0:
        raise failure
    return pid


def vector(machine, address):
    found = []
    while text := machine.memory.u64(address):
        found.append(machine.memory.text(text))
        address += 8
    return found


def execute(call, arguments):
    """Replaces the process. The new program gets the signal mask that this one has set."""
    machine = call.machine
    environment = [entry for _, entry in environment_of(machine)]
    path = os.fsencode(call.path(0))
    if machine.moments is not None:
        machine.moments.before_exec()
    mask = machine.scheduler.unblock_for_exec()
    try:
        # Python's execve refuses an empty first argument; Linux adds one to an empty vector.
        LIBC.execve(path, pointers(arguments or [b""]), pointers(environment))
        number = ctypes.get_errno()
    finally:
        signal.pthread_sigmask(signal.SIG_SETMASK, mask)
    raise OSError(number, os.strerror(number))


def pointers(texts):
    return (ctypes.c_char_p * (len(texts) + 1))(*texts, None)


@function("_execv")
@sets_errno()
def execv(call):
    """execve(2)."""
    execute(call, vector(call.machine, call.u64(1)))


@function("_execl")
@sets_errno()
def execl(call):
    """exec(3)."""
    arguments = [call.text(1)]
    others = call.variadic(2)
    while address := others.integer():
        arguments.append(call.machine.memory.text(address))
    execute(call, arguments)


@function("_waitpid")
@sets_errno()
def waitpid(call):
    """wait(2)."""
    pid, options = call.i32(0), call.i32(2)
    if options & ~values.OTHERS["WNOHANG"]:
        raise NotImplementedError(f"waitpid with options {options}")

    def finish(found, status):
        if call.u64(1):
            call.machine.memory.set_u32(call.u64(1), values.wait_status_to_macos(status))
        return found

    found, status = os.waitpid(pid, os.WNOHANG)
    if found != 0:
        return finish(found, status)
    return 0 if options else wait_for_child(pid, finish)


def wait_for_child(pid, finish):
    found, status = 0, 0

    def ended():
        nonlocal found, status
        try:
            found, status = os.waitpid(pid, os.WNOHANG)
        except ChildProcessError:
            return True
        return found != 0

    while found == 0:
        yield Wait(ended, children=True, what=("child", pid))
        if found == 0:
            found, status = os.waitpid(pid, os.WNOHANG)
    return finish(found, status)


# The end


@function("___cxa_atexit")
def cxa_atexit(call):
    """ "Itanium C++ ABI", 3.3.5: a destructor, its argument, and the image it belongs to."""
    call.machine.system["at_exit"].append((call.u64(0), call.u64(1)))
    return 0


@function("_atexit")
def atexit(call):
    """atexit(3)."""
    call.machine.system["at_exit"].append((call.u64(0), 0))
    return 0


def exit_process(machine, status):
    """exit(3): the functions of atexit in reverse order, then the streams. Threads still run."""
    functions = machine.system["at_exit"]
    while functions:
        address, argument = functions.pop()
        yield Invoke(address, argument)
    flush_all(machine)
    machine.end_process(status)


@function("_exit")
def exit_(call):
    """exit(3)."""
    return exit_process(call.machine, call.u32(0))


@function("__exit", "__Exit")
def exit_now(call):
    """_exit(2)."""
    call.machine.end_process(call.u32(0))


@function("_abort")
def abort(call):
    """abort(3): SIGABRT, which ends the process even if it is handled."""
    call.machine.end_by_signal(signal.SIGABRT)


@function("_getrlimit")
@sets_errno()
def getrlimit(call):
    """getrlimit(2)."""
    limits = resource.getrlimit(LIMITS[call.i32(0)])
    infinity = values.OTHERS["RLIM_INFINITY"]
    numbers = (infinity if limit == resource.RLIM_INFINITY else limit for limit in limits)
    call.store(1, struct.pack("<2Q", *numbers))
    return 0


@function("_setrlimit")
@sets_errno()
def setrlimit(call):
    """getrlimit(2)."""
    infinity = values.OTHERS["RLIM_INFINITY"]
    numbers = struct.unpack("<2Q", call.data(1, 16))
    limits = tuple(resource.RLIM_INFINITY if n == infinity else n for n in numbers)
    resource.setrlimit(LIMITS[call.i32(0)], limits)
    return 0


@function("_task_threads")
def task_threads(call):
    """task_threads: the number of threads, which GoogleTest asks for; the list stays empty."""
    call.machine.memory.set_u64(call.u64(1), 0)
    call.machine.memory.set_u32(call.u64(2), len(call.machine.scheduler.running()))
    return 0


@function("_vm_deallocate")
def vm_deallocate(_call):
    """vm_deallocate, for the list of task_threads."""
    return 0
