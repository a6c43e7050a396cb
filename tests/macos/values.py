"""Numbers and layouts of macOS that the model needs; most differ from those of Linux.

Nothing here is trusted: target_values.c, built for the target with the compiler's headers, names the
same values, and values_test.py compares the two.
"""

import errno
import os
import signal
import struct

ERRNO = {
    "EPERM": 1, "ENOENT": 2, "ESRCH": 3, "EINTR": 4, "EIO": 5, "ENXIO": 6, "E2BIG": 7,
    "ENOEXEC": 8, "EBADF": 9, "ECHILD": 10, "EDEADLK": 11, "ENOMEM": 12, "EACCES": 13,
    "EFAULT": 14, "EBUSY": 16, "EEXIST": 17, "EXDEV": 18, "ENODEV": 19, "ENOTDIR": 20,
    "EISDIR": 21, "EINVAL": 22, "ENFILE": 23, "EMFILE": 24, "ENOTTY": 25, "ETXTBSY": 26,
    "EFBIG": 27, "ENOSPC": 28, "ESPIPE": 29, "EROFS": 30, "EMLINK": 31, "EPIPE": 32,
    "EDOM": 33, "ERANGE": 34, "EAGAIN": 35, "ENOTSUP": 45, "ELOOP": 62, "ENAMETOOLONG": 63,
    "ENOTEMPTY": 66, "EDQUOT": 69, "ENOLCK": 77, "ENOSYS": 78, "EOVERFLOW": 84, "EILSEQ": 92,
    "EOPNOTSUPP": 102,
}  # fmt: skip

# The texts of strerror: intro(2).
ERROR_TEXTS = {
    0: "Undefined error: 0",
    1: "Operation not permitted",
    2: "No such file or directory",
    3: "No such process",
    4: "Interrupted system call",
    5: "Input/output error",
    6: "Device not configured",
    7: "Argument list too long",
    8: "Exec format error",
    9: "Bad file descriptor",
    10: "No child processes",
    11: "Resource deadlock avoided",
    12: "Cannot allocate memory",
    13: "Permission denied",
    14: "Bad address",
    16: "Resource busy",
    17: "File exists",
    18: "Cross-device link",
    19: "Operation not supported by device",
    20: "Not a directory",
    21: "Is a directory",
    22: "Invalid argument",
    23: "Too many open files in system",
    24: "Too many open files",
    25: "Inappropriate ioctl for device",
    26: "Text file busy",
    27: "File too large",
    28: "No space left on device",
    29: "Illegal seek",
    30: "Read-only file system",
    31: "Too many links",
    32: "Broken pipe",
    33: "Numerical argument out of domain",
    34: "Result too large",
    35: "Resource temporarily unavailable",
    45: "Operation not supported",
    62: "Too many levels of symbolic links",
    63: "File name too long",
    66: "Directory not empty",
    69: "Disc quota exceeded",
    77: "No locks available",
    78: "Function not implemented",
    84: "Value too large to be stored in data type",
    92: "Illegal byte sequence",
    102: "Operation not supported on socket",
}

OPEN_FLAGS = {
    "O_NONBLOCK": 0x4, "O_APPEND": 0x8, "O_NOFOLLOW": 0x100, "O_CREAT": 0x200, "O_TRUNC": 0x400,
    "O_EXCL": 0x800, "O_NOCTTY": 0x20000, "O_DIRECTORY": 0x100000, "O_CLOEXEC": 0x1000000,
}  # fmt: skip

FCNTL = {
    "F_DUPFD": 0, "F_GETFD": 1, "F_SETFD": 2, "F_GETFL": 3, "F_SETFL": 4, "F_GETLK": 7,
    "F_SETLK": 8, "F_SETLKW": 9, "F_DUPFD_CLOEXEC": 67, "FD_CLOEXEC": 1,
    "F_RDLCK": 1, "F_UNLCK": 2, "F_WRLCK": 3,
}  # fmt: skip

AT = {"AT_FDCWD": -2, "AT_SYMLINK_NOFOLLOW": 0x20, "AT_REMOVEDIR": 0x80}

# Signals whose numbers differ on Linux.
SIGNALS = {
    "SIGHUP": 1, "SIGINT": 2, "SIGQUIT": 3, "SIGILL": 4, "SIGTRAP": 5, "SIGABRT": 6, "SIGFPE": 8,
    "SIGKILL": 9, "SIGBUS": 10, "SIGSEGV": 11, "SIGSYS": 12, "SIGPIPE": 13, "SIGALRM": 14,
    "SIGTERM": 15, "SIGURG": 16, "SIGSTOP": 17, "SIGTSTP": 18, "SIGCONT": 19, "SIGCHLD": 20,
    "SIGTTIN": 21, "SIGTTOU": 22, "SIGIO": 23, "SIGXCPU": 24, "SIGXFSZ": 25, "SIGVTALRM": 26,
    "SIGPROF": 27, "SIGWINCH": 28, "SIGUSR1": 30, "SIGUSR2": 31,
}  # fmt: skip

OTHERS = {
    "SIG_BLOCK": 1, "SIG_UNBLOCK": 2, "SIG_SETMASK": 3,
    "WNOHANG": 1,
    "CLOCK_REALTIME": 0, "CLOCK_MONOTONIC": 6, "CLOCK_MONOTONIC_RAW": 4,
    "PROT_READ": 1, "PROT_WRITE": 2, "PROT_EXEC": 4,
    "MAP_SHARED": 1, "MAP_PRIVATE": 2, "MAP_ANON": 0x1000,
    "RLIMIT_FSIZE": 1, "RLIMIT_STACK": 3, "RLIMIT_CORE": 4, "RLIMIT_NPROC": 7, "RLIMIT_NOFILE": 8,
    "RLIM_INFINITY": (1 << 63) - 1, "RENAME_EXCL": 4,
    "PTHREAD_CANCEL_ENABLE": 1, "PTHREAD_CANCEL_DISABLE": 0, "PTHREAD_CANCELED": 1,
    "PATH_MAX": 1024, "_SC_PAGESIZE": 29, "TIOCGWINSZ": 0x40087468,
    "LC_ALL": 0, "LC_CTYPE": 2, "BUFSIZ": 1024,
    "DT_UNKNOWN": 0, "DT_FIFO": 1, "DT_DIR": 4, "DT_REG": 8, "DT_LNK": 10,
    "_CTYPE_A": 0x100, "_CTYPE_C": 0x200, "_CTYPE_D": 0x400, "_CTYPE_G": 0x800,
    "_CTYPE_L": 0x1000, "_CTYPE_P": 0x2000, "_CTYPE_S": 0x4000, "_CTYPE_U": 0x8000,
    "_CTYPE_X": 0x10000, "_CTYPE_B": 0x20000, "_CTYPE_R": 0x40000,
    "_PTHREAD_MUTEX_SIG_init": 0x32AAABA7, "_PTHREAD_COND_SIG_init": 0x3CB0B1BB,
    "PROC_RUID_ONLY": 5, "PROC_PIDTASKALLINFO": 2, "PROC_PIDVNODEPATHINFO": 9,
    "PROC_PIDFDVNODEPATHINFO": 2, "PROC_FLAG_LP64": 0x10, "PROC_FLAG_EXEC": 0x4000,
    "SRUN": 2, "SSLEEP": 3, "SSTOP": 4, "CTL_KERN": 1, "KERN_PROCARGS2": 49,
}  # fmt: skip

# Sizes of structures and offsets of their members.
LAYOUTS = {
    "stat": 144, "stat.st_dev": 0, "stat.st_mode": 4, "stat.st_nlink": 6, "stat.st_ino": 8,
    "stat.st_uid": 16, "stat.st_gid": 20, "stat.st_rdev": 24, "stat.st_atimespec": 32,
    "stat.st_mtimespec": 48, "stat.st_ctimespec": 64, "stat.st_birthtimespec": 80,
    "stat.st_size": 96, "stat.st_blocks": 104, "stat.st_blksize": 112,
    "passwd": 72, "passwd.pw_name": 0, "passwd.pw_passwd": 8, "passwd.pw_uid": 16,
    "passwd.pw_gid": 20, "passwd.pw_change": 24, "passwd.pw_class": 32, "passwd.pw_gecos": 40,
    "passwd.pw_dir": 48, "passwd.pw_shell": 56, "passwd.pw_expire": 64,
    "flock": 24, "flock.l_start": 0, "flock.l_len": 8, "flock.l_pid": 16, "flock.l_type": 20,
    "flock.l_whence": 22,
    "dirent": 1048, "dirent.d_ino": 0, "dirent.d_seekoff": 8, "dirent.d_reclen": 16,
    "dirent.d_namlen": 18, "dirent.d_type": 20, "dirent.d_name": 21,
    "tm": 56, "tm.tm_sec": 0, "tm.tm_isdst": 32, "tm.tm_gmtoff": 40, "tm.tm_zone": 48,
    "sigaction": 16, "sigaction.sa_handler": 0, "sigaction.sa_mask": 8, "sigaction.sa_flags": 12,
    "timespec": 16, "rlimit": 16, "winsize": 8, "sigset_t": 4,
    "_RuneLocale.__runetype": 60, "_RuneLocale.__maplower": 1084, "_RuneLocale.__mapupper": 2108,
    "pthread_mutex_t": 64, "pthread_cond_t": 48, "pthread_attr_t": 64,
    "mbstate_t": 128, "mach_timebase_info": 8,
    "proc_bsdinfo": 136, "proc_bsdinfo.pbi_flags": 0, "proc_bsdinfo.pbi_status": 4,
    "proc_bsdinfo.pbi_pid": 12, "proc_bsdinfo.pbi_ppid": 16, "proc_bsdinfo.pbi_uid": 20,
    "proc_bsdinfo.pbi_ruid": 28, "proc_bsdinfo.pbi_svgid": 40, "proc_bsdinfo.pbi_comm": 48,
    "proc_bsdinfo.pbi_name": 64, "proc_bsdinfo.pbi_pgid": 100, "proc_bsdinfo.pbi_nice": 116,
    "proc_bsdinfo.pbi_start_tvsec": 120, "proc_bsdinfo.pbi_start_tvusec": 128,
    "proc_taskinfo": 96, "proc_taskinfo.pti_resident_size": 8, "proc_taskinfo.pti_total_user": 16,
    "proc_taskinfo.pti_total_system": 24, "proc_taskinfo.pti_threadnum": 84,
    "proc_taskallinfo": 232, "proc_taskallinfo.ptinfo": 136,
    "proc_fileinfo": 24, "proc_fileinfo.fi_openflags": 0, "proc_fileinfo.fi_offset": 8,
    "vnode_info_path": 1176, "vnode_info_path.vip_path": 152,
    "proc_vnodepathinfo": 2352, "proc_vnodepathinfo.pvi_cdir": 0,
    "proc_vnodepathinfo.pvi_rdir": 1176,
    "vnode_fdinfowithpath": 1200, "vnode_fdinfowithpath.pvip": 24,
}  # fmt: skip

# struct stat from st_dev to st_flags.
STAT = struct.Struct("<iHHQIIi4xqqqqqqqqqqiII")
FLOCK = struct.Struct("<qqihh")
PASSWD = struct.Struct("<QQIIqQQQQq")
TIMESPEC = struct.Struct("<qq")
TM = struct.Struct("<9i4xqQ")
SIGACTION = struct.Struct("<QIi")
# Of proc_bsdinfo without reserved members, open files and the terminal.
PROC_BSDINFO = struct.Struct("<11I4x16s32s4xI12xiQQ")
# Of proc_taskinfo the sizes, the times of all threads and the number of threads.
PROC_TASKINFO = struct.Struct("<4Q52xi8x")
PROC_FILEINFO = struct.Struct("<IIqiI")

_TO_MACOS = {getattr(errno, name): number for name, number in ERRNO.items()}
_SIGNAL_TO_MACOS = {int(getattr(signal, name)): number for name, number in SIGNALS.items()}
_SIGNAL_TO_LINUX = {number: int(getattr(signal, name)) for name, number in SIGNALS.items()}
LINUX_SIGNALS = frozenset(_SIGNAL_TO_MACOS)


def errno_of(error):
    """The macOS error number for an OSError."""
    return _TO_MACOS[error.errno]


def signal_to_macos(number):
    return _SIGNAL_TO_MACOS[number]


def signal_to_linux(number):
    """0 stays 0; a signal that Linux does not have is a ValueError."""
    if number == 0:
        return 0
    if number not in _SIGNAL_TO_LINUX:
        raise ValueError(number)
    return _SIGNAL_TO_LINUX[number]


def open_flags_to_linux(flags):
    linux = flags & 3
    for name, number in OPEN_FLAGS.items():
        if flags & number:
            linux |= getattr(os, name)
            flags &= ~number
    if flags & ~3:
        raise NotImplementedError(f"open with flags {flags:#x}")
    return linux


def wait_status_to_macos(status):
    """Wait statuses differ only in the signal numbers."""
    if os.WIFSIGNALED(status):
        return status & ~0x7F | signal_to_macos(os.WTERMSIG(status))
    return status
