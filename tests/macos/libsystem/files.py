"""Files and directories: the system calls of POSIX's <fcntl.h>, <unistd.h>, <sys/stat.h>, <dirent.h>.

Each is the Linux call with numbers and layouts translated. Other differences are described at the
function.
"""

import ctypes
import fcntl
import os
import select
import stat
import struct
import termios

import values
from libsystem.errors import fail, sets_errno
from libsystem.registry import function
from scheduling import Invoke, Wait

PATH_MAX = values.OTHERS["PATH_MAX"]
LINUX_LOCK = struct.Struct("@hhqqi4x")


def would_block(descriptor, event):
    """The Wait until the descriptor can be read or written; None if it can be now."""
    mode = os.fstat(descriptor).st_mode
    if not (stat.S_ISFIFO(mode) or stat.S_ISSOCK(mode) or stat.S_ISCHR(mode)):
        return None
    if fcntl.fcntl(descriptor, fcntl.F_GETFL) & os.O_NONBLOCK:
        return None
    poll = select.poll()
    poll.register(descriptor, event)
    return None if poll.poll(0) else Wait(lambda: poll.poll(0), polled=True)


def after(wait, action):
    """Waits, then returns the action's result."""
    yield wait
    return action()


def open_file(path, flags, mode, directory=None):
    descriptor = os.open(path, values.open_flags_to_linux(flags), mode, dir_fd=directory)
    os.set_inheritable(descriptor, not flags & values.OPEN_FLAGS["O_CLOEXEC"])
    return descriptor


def mode_argument(call, flags, fixed):
    return call.variadic(fixed).integer() & 0o7777 if flags & values.OPEN_FLAGS["O_CREAT"] else 0


def directory_argument(call, index):
    descriptor = call.i32(index)
    return None if descriptor == values.AT["AT_FDCWD"] else descriptor


@function("_open")
@sets_errno()
def open_(call):
    """open(2). Waiting for the other end of a FIFO does not stop the other threads."""
    flags, path = call.u32(1), call.path(0)
    mode = mode_argument(call, flags, 2)
    blocks = flags & 3 and not flags & values.OPEN_FLAGS["O_NONBLOCK"]
    if blocks and os.path.exists(path) and stat.S_ISFIFO(os.stat(path).st_mode):
        return open_fifo(path, flags, mode)
    return open_file(path, flags, mode)


def open_fifo(path, flags, mode):
    def can_open():
        try:
            os.close(os.open(path, os.O_WRONLY | os.O_NONBLOCK))
        except OSError:
            return False
        return True

    yield Wait(can_open, polled=True)
    return open_file(path, flags, mode)


@function("_openat")
@sets_errno()
def openat(call):
    """openat(2)."""
    flags = call.u32(2)
    mode = mode_argument(call, flags, 3)
    return open_file(call.path(1), flags, mode, directory_argument(call, 0))


@function("_close")
@sets_errno()
def close(call):
    """close(2)."""
    os.close(call.i32(0))
    return 0


@function("_read")
@sets_errno()
def read(call):
    """read(2)."""

    def take():
        data = os.read(call.i32(0), call.u64(2))
        call.store(1, data)
        return len(data)

    wait = would_block(call.i32(0), select.POLLIN)
    return take() if wait is None else after(wait, take)


@function("_pread")
@sets_errno()
def pread(call):
    """pread(2)."""
    data = os.pread(call.i32(0), call.u64(2), call.i64(3))
    call.store(1, data)
    return len(data)


@function("_write")
@sets_errno()
def write(call):
    """write(2)."""
    descriptor, data = call.i32(0), call.data(1, call.u64(2))
    wait = would_block(descriptor, select.POLLOUT)
    if wait is None:
        return os.write(descriptor, data)
    return after(wait, lambda: os.write(descriptor, data))


@function("_lseek")
@sets_errno()
def lseek(call):
    """lseek(2); SEEK_SET, SEEK_CUR and SEEK_END have the same numbers."""
    return os.lseek(call.i32(0), call.i64(1), call.i32(2))


@function("_access")
@sets_errno()
def access(call):
    """access(2), which checks the rights of the real user."""
    path = call.path(0)
    os.stat(path)
    if not os.access(path, call.i32(1)):
        return fail(call, "EACCES")
    return 0


@function("_mkdir")
@sets_errno()
def mkdir(call):
    """mkdir(2)."""
    os.mkdir(call.path(0), call.u32(1) & 0o7777)
    return 0


@function("_mkdirat")
@sets_errno()
def mkdirat(call):
    """mkdir(2)."""
    os.mkdir(call.path(1), call.u32(2) & 0o7777, dir_fd=directory_argument(call, 0))
    return 0


def simple(name, action):
    """Declares a system call whose result is 0."""

    @function(name)
    @sets_errno()
    def run(call):
        action(call)
        return 0

    return run


simple("_rmdir", lambda call: os.rmdir(call.path(0)))
simple("_unlink", lambda call: os.unlink(call.path(0)))
simple("_rename", lambda call: os.rename(call.path(0), call.path(1)))
simple("_link", lambda call: os.link(call.path(0), call.path(1)))
simple("_symlink", lambda call: os.symlink(call.path(0), call.path(1)))
simple("_chdir", lambda call: os.chdir(call.path(0)))
simple("_chmod", lambda call: os.chmod(call.path(0), call.u32(1) & 0o7777))
simple("_chown", lambda call: os.chown(call.path(0), call.i32(1), call.i32(2)))
simple("_fchown", lambda call: os.fchown(call.i32(0), call.i32(1), call.i32(2)))
simple("_fsync", lambda call: os.fsync(call.i32(0)))
simple("_fchmod", lambda call: os.fchmod(call.i32(0), call.u32(1) & 0o7777))
simple("_truncate", lambda call: os.truncate(call.path(0), call.i64(1)))
simple("_mknod", lambda call: os.mknod(call.path(0), call.u32(1)))
simple("_mkfifo", lambda call: os.mkfifo(call.path(0), call.u32(1) & 0o7777))


@function("_utimes")
@sets_errno()
def utimes(call):
    """utimes(2), with times: a timeval has seconds of 64 bits, microseconds of 32 and padding."""
    access, access_micros, change, change_micros = struct.unpack("<qi4xqi4x", call.data(1, 32))
    nanoseconds = (access * 10**9 + access_micros * 1000, change * 10**9 + change_micros * 1000)
    os.utime(call.path(0), ns=nanoseconds)
    return 0


@function("_renamex_np")
@sets_errno()
def renamex_np(call):
    """renamex_np(2): with RENAME_EXCL."""
    if call.u32(2) != values.OTHERS["RENAME_EXCL"]:
        raise NotImplementedError(f"renamex_np with flags {call.u32(2):#x}")
    paths = [os.fsencode(call.path(number)) for number in (0, 1)]
    here, exclusive = -100, 1  # AT_FDCWD and RENAME_NOREPLACE of Linux
    if ctypes.CDLL(None, use_errno=True).renameat2(here, paths[0], here, paths[1], exclusive):
        raise OSError(ctypes.get_errno(), "renameat2")
    return 0


@function("_remove")
@sets_errno()
def remove(call):
    """remove(3): a file or an empty directory."""
    path = call.path(0)
    if os.path.isdir(path) and not os.path.islink(path):
        os.rmdir(path)
    else:
        os.unlink(path)
    return 0


@function("_unlinkat")
@sets_errno()
def unlinkat(call):
    """unlink(2)."""
    directory = directory_argument(call, 0)
    if call.u32(2) & values.AT["AT_REMOVEDIR"]:
        os.rmdir(call.path(1), dir_fd=directory)
    else:
        os.unlink(call.path(1), dir_fd=directory)
    return 0


@function("_umask")
def umask(call):
    """umask(2)."""
    return os.umask(call.u32(0) & 0o777)


@function("_dup")
@sets_errno()
def dup(call):
    """dup(2); the new descriptor is inherited by programs."""
    return fcntl.fcntl(call.i32(0), fcntl.F_DUPFD, 0)


@function("_dup2")
@sets_errno()
def dup2(call):
    """dup(2)."""
    return os.dup2(call.i32(0), call.i32(1))


@function("_pipe")
@sets_errno()
def pipe(call):
    """pipe(2)."""
    ends = os.pipe()
    for end in ends:
        os.set_inheritable(end, True)
    call.store(0, struct.pack("<2i", *ends))
    return 0


# stat(2)


def packed_stat(found):
    def time(nanoseconds):
        return divmod(nanoseconds, 10**9)

    return values.STAT.pack(
        found.st_dev & 0x7FFF_FFFF,
        found.st_mode,
        found.st_nlink & 0xFFFF,
        found.st_ino,
        found.st_uid,
        found.st_gid,
        found.st_rdev & 0x7FFF_FFFF,
        *time(found.st_atime_ns),
        *time(found.st_mtime_ns),
        *time(found.st_ctime_ns),
        *time(found.st_ctime_ns),
        found.st_size,
        found.st_blocks,
        found.st_blksize,
        0,
        0,
    )


@function("_stat", "_stat$INODE64")
@sets_errno()
def stat_(call):
    """stat(2)."""
    call.store(1, packed_stat(os.stat(call.path(0))))
    return 0


@function("_lstat", "_lstat$INODE64")
@sets_errno()
def lstat(call):
    """stat(2)."""
    call.store(1, packed_stat(os.lstat(call.path(0))))
    return 0


@function("_fstat", "_fstat$INODE64")
@sets_errno()
def fstat(call):
    """stat(2)."""
    call.store(1, packed_stat(os.fstat(call.i32(0))))
    return 0


@function("_fstatat", "_fstatat$INODE64")
@sets_errno()
def fstatat(call):
    """stat(2)."""
    follow = not call.u32(3) & values.AT["AT_SYMLINK_NOFOLLOW"]
    found = os.stat(call.path(1), dir_fd=directory_argument(call, 0), follow_symlinks=follow)
    call.store(2, packed_stat(found))
    return 0


# fcntl(2)


@function("_fcntl")
@sets_errno()
def fcntl_(call):
    """fcntl(2): flags, duplicates and locks."""
    numbers = values.FCNTL
    descriptor, command = call.i32(0), call.i32(1)
    if command in (numbers["F_SETLK"], numbers["F_SETLKW"]):
        address = call.variadic(2).integer()
        return set_lock(call, descriptor, address, command == numbers["F_SETLKW"])
    if command == numbers["F_GETFD"]:
        return fcntl.fcntl(descriptor, fcntl.F_GETFD)
    if command == numbers["F_GETFL"]:
        return flags_to_macos(fcntl.fcntl(descriptor, fcntl.F_GETFL))
    argument = call.variadic(2).integer() & 0xFFFF_FFFF
    if command == numbers["F_SETFD"]:
        return fcntl.fcntl(descriptor, fcntl.F_SETFD, argument)
    if command == numbers["F_SETFL"]:
        flags = values.open_flags_to_linux(argument)
        return fcntl.fcntl(descriptor, fcntl.F_SETFL, flags)
    if command == numbers["F_DUPFD"]:
        return fcntl.fcntl(descriptor, fcntl.F_DUPFD, argument)
    if command == numbers["F_DUPFD_CLOEXEC"]:
        return fcntl.fcntl(descriptor, fcntl.F_DUPFD_CLOEXEC, argument)
    raise NotImplementedError(f"fcntl with command {command}")


def flags_to_macos(flags):
    found = flags & 3
    for name in ("O_NONBLOCK", "O_APPEND"):
        if flags & getattr(os, name):
            found |= values.OPEN_FLAGS[name]
    return found


def set_lock(call, descriptor, address, waits):
    """A record lock. Waiting for it lets other threads run."""
    memory = call.machine.memory
    start, length, _, kind, whence = values.FLOCK.unpack(memory.read(address, values.FLOCK.size))
    kinds = {"F_RDLCK": fcntl.F_RDLCK, "F_UNLCK": fcntl.F_UNLCK, "F_WRLCK": fcntl.F_WRLCK}
    linux = {values.FCNTL[name]: number for name, number in kinds.items()}[kind]
    lock = LINUX_LOCK.pack(linux, whence, start, length, 0)

    def take():
        try:
            fcntl.fcntl(descriptor, fcntl.F_SETLK, lock)
        except (BlockingIOError, PermissionError):
            return False
        return True

    if take():
        return 0
    if not waits:
        return fail(call, "EAGAIN")
    return after(Wait(take, polled=True), lambda: 0)


@function("_ioctl")
@sets_errno()
def ioctl(call):
    """ioctl(2), tty(4): the size of a terminal's window."""
    if call.u64(1) != values.OTHERS["TIOCGWINSZ"]:
        raise NotImplementedError(f"ioctl {call.u64(1):#x}")
    size = fcntl.ioctl(call.i32(0), termios.TIOCGWINSZ, bytes(8))
    call.machine.memory.write(call.variadic(2).integer(), size)
    return 0


@function("_isatty")
def isatty(call):
    """ttyname(3)."""
    return int(os.isatty(call.i32(0))) or fail(call, "ENOTTY", 0)


# Paths


@function("_getcwd")
@sets_errno(0)
def getcwd(call):
    """getcwd(3)."""
    path = os.getcwdb() + b"\0"
    if call.u64(0) == 0:
        return copy_to_heap(call.machine, path)
    if len(path) > call.u64(1):
        return fail(call, "ERANGE", 0)
    call.store(0, path)
    return call.u64(0)


def copy_to_heap(machine, data):
    """Copies the data to memory that the program frees."""
    address = yield Invoke(machine.symbol("_malloc"), len(data))
    machine.memory.write(address, data)
    return address


@function("_realpath$DARWIN_EXTSN")
@sets_errno(0)
def realpath(call):
    """realpath(3): refuses an input of more than PATH_MAX bytes, and a result that does not fit."""
    given = call.text(0)
    if len(given) > PATH_MAX:
        return fail(call, "ENAMETOOLONG", 0)
    if not given:
        return fail(call, "ENOENT", 0)
    path = os.path.realpath(given, strict=True) + b"\0"
    if len(path) > PATH_MAX:
        return fail(call, "ENAMETOOLONG", 0)
    if call.u64(1) == 0:
        return copy_to_heap(call.machine, path)
    call.store(1, path)
    return call.u64(1)


@function("_mkdtemp")
@sets_errno(0)
def mkdtemp(call):
    """mkdtemp(3)."""
    name = unique(call, lambda path: os.mkdir(path, 0o700))
    call.store(0, name)
    return call.u64(0)


@function("_mkstemp")
@sets_errno()
def mkstemp(call):
    """mkstemp(3)."""
    found = []
    flags = os.O_RDWR | os.O_CREAT | os.O_EXCL
    name = unique(call, lambda path: found.append(os.open(path, flags, 0o600)))
    os.set_inheritable(found[0], True)
    call.store(0, name)
    return found[0]


def unique(call, create):
    """The template with its X replaced, after `create` has made it."""
    template = call.text(0)
    stem = template.rstrip(b"X")
    while True:
        digits = os.urandom(len(template)).hex().encode()
        name = stem + digits[: len(template) - len(stem)]
        try:
            create(name)
            return name
        except FileExistsError:
            pass


# directory(3)

DIRECTORIES = {}  # address: the remaining entries
TYPES = {
    stat.S_IFDIR: "DT_DIR",
    stat.S_IFREG: "DT_REG",
    stat.S_IFLNK: "DT_LNK",
    stat.S_IFIFO: "DT_FIFO",
}


class Directory:
    def __init__(self, machine, descriptor, owned):
        self.descriptor = descriptor
        self.owned = owned
        self.entry = machine.memory.new(values.LAYOUTS["dirent"])
        self.names = [b".", b".."] + [os.fsencode(name) for name in os.listdir(descriptor)]


def new_directory(machine, descriptor):
    directory = Directory(machine, descriptor, True)
    address = machine.memory.new(16)
    DIRECTORIES[address] = directory
    return address


@function("_opendir", "_opendir$INODE64")
@sets_errno(0)
def opendir(call):
    """directory(3)."""
    flags = os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC
    return new_directory(call.machine, os.open(call.path(0), flags))


@function("_fdopendir", "_fdopendir$INODE64")
@sets_errno(0)
def fdopendir(call):
    """directory(3)."""
    return new_directory(call.machine, call.i32(0))


@function("_readdir", "_readdir$INODE64")
def readdir(call):
    """directory(3): every entry once, in any order."""
    directory = DIRECTORIES[call.u64(0)]
    if not directory.names:
        return 0
    name = directory.names.pop(0)
    try:
        found = os.stat(name, dir_fd=directory.descriptor, follow_symlinks=False)
        inode, kind = found.st_ino, TYPES.get(stat.S_IFMT(found.st_mode), "DT_UNKNOWN")
    except OSError:
        inode, kind = 1, "DT_UNKNOWN"
    size = (21 + len(name) + 8) & ~7
    head = struct.pack("<QQHHB", inode, 0, size, len(name), values.OTHERS[kind])
    call.machine.memory.write(directory.entry, head + name + b"\0")
    return directory.entry


@function("_closedir")
@sets_errno()
def closedir(call):
    """directory(3)."""
    os.close(DIRECTORIES.pop(call.u64(0)).descriptor)
    return 0
