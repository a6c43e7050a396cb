"""Information about processes: <libproc.h>, <sys/proc_info.h>, and sysctl(3) with KERN_PROCARGS2.

The processes are those of Linux's /proc. One that runs a program for macOS has that program's path
and arguments, not Python's: show_program maps the program's file, so the kernel keeps the path up to
date, passes it on to forked children, and drops it at an execv.

libproc has no manual pages. Its structures are those of the headers; a failed function returns 0 and
sets errno. Where the headers say nothing about an error, it is ESRCH for a process that does not
exist or has ended, EPERM for another user's, and ENOENT for a file without a directory entry.
"""

import ctypes
import errno
import functools
import os
import stat
import struct
import time
from dataclasses import dataclass

import values
from libsystem.errors import sets_errno
from libsystem.registry import function

PATH_MAX = values.OTHERS["PATH_MAX"]
LIBC = ctypes.CDLL(None, use_errno=True)
LIBC.mmap.restype = ctypes.c_void_p
LIBC.mmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t, *[ctypes.c_int] * 3, ctypes.c_long]

RUNNER = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "run.py")
DELETED = " (deleted)"
HAS_NOT_EXECUTED = 0x40  # PF_FORKNOEXEC in the flags of /proc/PID/stat
TICKS = os.sysconf("SC_CLK_TCK")


def show_program(path):
    """Makes the present process one that runs the program `path`."""
    descriptor = os.open(path, os.O_RDONLY | os.O_CLOEXEC)
    # Nothing else in the process is shared and without any access, so a reader of its maps can
    # recognize it. At the lowest possible address it comes first.
    no_access, shared, lowest = 0, 1, 0x10000
    address = LIBC.mmap(lowest, 1, no_access, shared, descriptor, 0)
    os.close(descriptor)
    if address == ctypes.c_void_p(-1).value:
        raise OSError(ctypes.get_errno(), "mmap")


def read(pid, name):
    with open(f"/proc/{pid}/{name}", "rb") as file:
        return file.read()


def no_such_process():
    return OSError(errno.ESRCH, os.strerror(errno.ESRCH))


def reads_process(result=0):
    """For a function whose first argument is a process id. /proc reports EACCES for another user's
    process, and ENOENT for one that has ended."""

    def decorate(implementation):
        @functools.wraps(implementation)
        def run(call):
            try:
                return implementation(call)
            except PermissionError as error:
                raise OSError(errno.EPERM, os.strerror(errno.EPERM)) from error

        return sets_errno(result)(run)

    return decorate


@dataclass
class Status:
    """What /proc/PID/stat and the owner of /proc/PID say."""

    name: bytes
    state: str
    parent: int
    group: int
    flags: int
    user_ticks: int
    system_ticks: int
    nice: int
    threads: int
    start_ticks: int
    virtual_size: int
    resident_pages: int


def status_of(pid):
    """The status of a process that has not ended."""
    try:
        text = read(pid, "stat")
    except (FileNotFoundError, ProcessLookupError):
        raise no_such_process() from None
    head, tail = text.rsplit(b")", 1)
    state, *numbers = tail.split()
    if state in (b"Z", b"X"):
        raise no_such_process()
    # proc(5) counts the fields from 1; the number after the state is the fourth.
    field = dict(enumerate(map(int, numbers), 4))
    return Status(
        head.split(b"(", 1)[1],
        state.decode(),
        *(field[number] for number in (4, 5, 9, 14, 15, 19, 20, 22, 23, 24)),
    )


def users_of(pid):
    """The real, effective and saved user and group ids."""
    fields = dict(line.split(b":", 1) for line in read(pid, "status").splitlines() if b":" in line)
    users, groups = ([int(word) for word in fields[name].split()] for name in (b"Uid", b"Gid"))
    return users[:3], groups[:3]


def path_of_link(link):
    """The file that a link of /proc names; ENOENT if the file has no directory entry."""
    path = os.readlink(link)
    if path.endswith(DELETED) and not os.path.exists(path):
        raise FileNotFoundError(errno.ENOENT, "deleted")
    return path


@functools.lru_cache(1)
def python():
    return os.stat("/proc/self/exe")


def is_python(pid):
    return os.path.samestat(os.stat(f"/proc/{pid}/exe"), python())


def shown_program(pid):
    """The path that show_program has set in a process, as /proc/PID/maps has it; None without one."""
    with open(f"/proc/{pid}/maps", "rb") as file:
        for line in file:
            _, rights, _, _, number, *path = line.rstrip(b"\n").split(maxsplit=5)
            if rights == b"---s" and number != b"0" and path:
                return os.fsdecode(path[0].replace(rb"\012", b"\n"))
    return None


def path_of(pid):
    """The path of a process's executable."""
    status_of(pid)
    try:
        path = shown_program(pid) if is_python(pid) else None
        if path is None:
            return path_of_link(f"/proc/{pid}/exe")
    except ProcessLookupError:
        raise no_such_process() from None
    except FileNotFoundError:
        status_of(pid)  # it may have ended just now
        raise
    if path.endswith(DELETED) and not os.path.exists(path):
        raise FileNotFoundError(errno.ENOENT, "deleted")
    return path


def arguments_of(pid):
    """The path that was executed, and the arguments as the process has them now."""
    status_of(pid)
    text = read(pid, "cmdline")
    arguments = text.removesuffix(b"\0").split(b"\0") if text else []
    if is_python(pid) and shown_program(pid) is not None:
        # python -IB run.py ARCHITECTURE DIRECTORY FILE NAME [ARGUMENT...], or python -IB SCRIPT
        # [ARGUMENT...] with a script of stage.py.
        skipped = 6 if os.fsdecode(arguments[2]) == RUNNER else 2
        arguments = arguments[skipped:]
    # Linux adds an empty argument to an empty vector.
    return path_of_execution(pid, arguments), [] if arguments == [b""] else arguments


def path_of_execution(pid, arguments):
    try:
        return os.fsencode(path_of(pid))
    except FileNotFoundError:
        shown = shown_program(pid) if is_python(pid) else os.readlink(f"/proc/{pid}/exe")
        return os.fsencode(shown.removesuffix(DELETED)) if shown else arguments[0]


@functools.lru_cache(1)
def boot_time():
    """In microseconds since 1970; always the same, so that the start of a process is."""
    return (time.time_ns() - time.clock_gettime_ns(time.CLOCK_BOOTTIME)) // 1000


TIMEBASES = {
    # "Addressing Architectural Differences in Your macOS Code" says that a tick differs from a
    # nanosecond on Apple silicon. The counter there runs at 24 MHz.
    "arm64": (125, 3),
    "x86_64": (1, 1),
}


@function("_mach_timebase_info")
def mach_timebase_info(call):
    """<mach/mach_time.h>: nanoseconds of a tick, as a fraction."""
    call.store(0, struct.pack("<2I", *TIMEBASES[call.machine.processor.name]))
    return 0


@function("_proc_listpids")
@sets_errno(0)
def proc_listpids(call):
    """<libproc.h>: the ids of a real user's processes, or the size that the buffer must have. The
    result is a number of bytes."""
    if call.u32(0) != values.OTHERS["PROC_RUID_ONLY"]:
        raise NotImplementedError(f"proc_listpids of type {call.u32(0)}")
    found = []
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            if users_of(int(name))[0][0] == call.u32(1):
                found.append(int(name))
        except (FileNotFoundError, ProcessLookupError):
            pass
    if call.u64(2) == 0:
        return 4 * len(found)
    found = found[: call.i32(3) // 4]
    call.store(2, struct.pack(f"<{len(found)}i", *found))
    return 4 * len(found)


STATES = {"R": values.OTHERS["SRUN"], "T": values.OTHERS["SSTOP"], "t": values.OTHERS["SSTOP"]}


def all_info(call):
    """PROC_PIDTASKALLINFO: proc_taskallinfo. Its times are ticks of mach_absolute_time."""
    pid = call.i32(0)
    status = status_of(pid)
    users, groups = users_of(pid)
    flags = values.OTHERS["PROC_FLAG_LP64"]
    if not status.flags & HAS_NOT_EXECUTED:
        flags |= values.OTHERS["PROC_FLAG_EXEC"]
    start = boot_time() + status.start_ticks * 1_000_000 // TICKS
    effective = (users[1], groups[1], users[0], groups[0], users[2], groups[2])
    bsd = values.PROC_BSDINFO.pack(
        flags,
        STATES.get(status.state, values.OTHERS["SSLEEP"]),
        0,
        pid,
        status.parent,
        *effective,
        status.name[:15],
        status.name[:31],
        status.group,
        status.nice,
        *divmod(start, 1_000_000),
    )
    numerator, denominator = TIMEBASES[call.machine.processor.name]
    user, system = (
        ticks * (10**9 // TICKS) * denominator // numerator
        for ticks in (status.user_ticks, status.system_ticks)
    )
    task = values.PROC_TASKINFO.pack(
        status.virtual_size,
        status.resident_pages * os.sysconf("SC_PAGESIZE"),
        user,
        system,
        status.threads,
    )
    return bsd + task


def directories_info(call):
    """PROC_PIDVNODEPATHINFO: proc_vnodepathinfo, of which only the paths are filled in."""
    pid = call.i32(0)
    status_of(pid)
    return vnode_path(path_of_link(f"/proc/{pid}/cwd")) + vnode_path("/")


def vnode_path(path):
    """A vnode_info_path without the vnode_info."""
    offset = values.LAYOUTS["vnode_info_path.vip_path"]
    return bytes(offset) + os.fsencode(path)[: PATH_MAX - 1].ljust(PATH_MAX, b"\0")


INFORMATION = {
    values.OTHERS["PROC_PIDTASKALLINFO"]: all_info,
    values.OTHERS["PROC_PIDVNODEPATHINFO"]: directories_info,
}


def store_information(call, index, size, content):
    """Fills the buffer of a function of libproc; returns the size of the structure."""
    if size < len(content):
        raise OSError(errno.ENOMEM, os.strerror(errno.ENOMEM))
    call.store(index, content)
    return len(content)


@function("_proc_pidinfo")
@reads_process()
def proc_pidinfo(call):
    """<libproc.h>."""
    if call.i32(1) not in INFORMATION:
        raise NotImplementedError(f"proc_pidinfo with flavor {call.i32(1)}")
    return store_information(call, 3, call.i32(4), INFORMATION[call.i32(1)](call))


@function("_proc_pidpath")
@reads_process()
def proc_pidpath(call):
    """<libproc.h>: the result is the length of the path."""
    path = os.fsencode(path_of(call.i32(0)))
    store_information(call, 1, call.u32(2), path + b"\0")
    return len(path)


@function("_proc_pidfdinfo")
@reads_process()
def proc_pidfdinfo(call):
    """<libproc.h>: with PROC_PIDFDVNODEPATHINFO; of vnode_fdinfowithpath, the flags, the offset and
    the path."""
    if call.i32(2) != values.OTHERS["PROC_PIDFDVNODEPATHINFO"]:
        raise NotImplementedError(f"proc_pidfdinfo with flavor {call.i32(2)}")
    pid, descriptor = call.i32(0), call.i32(1)
    status_of(pid)
    link = f"/proc/{pid}/fd/{descriptor}"
    try:
        mode = os.stat(link).st_mode
        text = read(pid, f"fdinfo/{descriptor}")
    except FileNotFoundError:
        raise OSError(errno.EBADF, os.strerror(errno.EBADF)) from None
    if stat.S_ISFIFO(mode) or stat.S_ISSOCK(mode):
        raise OSError(errno.EBADF, os.strerror(errno.EBADF))
    fields = dict(line.split(b":", 1) for line in text.splitlines())
    linux = int(fields[b"flags"], 8)
    # FREAD and FWRITE of <sys/fcntl.h>; then the flags of open.
    flags = (linux & os.O_ACCMODE) + 1
    for name in ("O_APPEND", "O_NONBLOCK"):
        flags |= values.OPEN_FLAGS[name] if linux & getattr(os, name) else 0
    info = values.PROC_FILEINFO.pack(flags, 0, int(fields[b"pos"]), 0, 0)
    return store_information(call, 3, call.i32(4), info + vnode_path(path_of_link(link)))


@function("_sysctl")
@reads_process(result=0xFFFF_FFFF_FFFF_FFFF)
def sysctl(call):
    """sysctl(3), with CTL_KERN, KERN_PROCARGS2: the number of arguments, the path that was executed,
    padding, and the arguments before the environment, each with a NUL at its end. sysctl(3) does
    not describe this layout; programs that show arguments rely on it."""
    name = struct.unpack(f"<{call.u32(1)}i", call.data(0, 4 * call.u32(1)))
    if name[:2] != (values.OTHERS["CTL_KERN"], values.OTHERS["KERN_PROCARGS2"]) or len(name) != 3:
        raise NotImplementedError(f"sysctl {name}")
    try:
        path, arguments = arguments_of(name[2])
        environment = read(name[2], "environ").split(b"\0")[:-1]
    except (FileNotFoundError, ProcessLookupError, PermissionError):
        raise OSError(errno.EINVAL, os.strerror(errno.EINVAL)) from None
    path = path.ljust(len(path) // 8 * 8 + 8, b"\0")
    content = struct.pack("<i", len(arguments)) + path
    content += b"".join(text + b"\0" for text in arguments + environment)
    if call.u64(2) != 0:
        if call.machine.memory.u64(call.u64(3)) < len(content):
            raise OSError(errno.ENOMEM, os.strerror(errno.ENOMEM))
        call.store(2, content)
    call.machine.memory.set_u64(call.u64(3), len(content))
    return 0
