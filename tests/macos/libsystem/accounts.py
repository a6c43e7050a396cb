"""Users: getuid(2), getpwent(3). The password database is that of this machine."""

import os
import pwd

import values
from libsystem.errors import sets_errno
from libsystem.registry import function


@function("_getuid")
def getuid(_call):
    """getuid(2)."""
    return os.getuid()


@function("_geteuid")
def geteuid(_call):
    """getuid(2)."""
    return os.geteuid()


@function("_setuid")
@sets_errno()
def setuid(call):
    """setuid(2)."""
    os.setuid(call.u32(0))
    return 0


@function("_getpwuid")
def getpwuid(call):
    """getpwent(3): valid until the next call; a null pointer if there is no such user."""
    machine = call.machine
    try:
        entry = pwd.getpwuid(call.u32(0))
    except KeyError:
        return 0
    texts = (entry.pw_name, entry.pw_passwd, "", entry.pw_gecos, entry.pw_dir, entry.pw_shell)
    name, password, class_, gecos, home, shell = (
        machine.memory.new_text(os.fsencode(text)) for text in texts
    )
    packed = values.PASSWD.pack(
        name, password, entry.pw_uid, entry.pw_gid, 0, class_, gecos, home, shell, 0
    )
    return machine.memory.new(packed)
