"""The system log: syslog(3). Messages go to the socket /dev/log, as glibc sends them."""

import os
import socket
import time

from libsystem.formats import format_text
from libsystem.registry import function

USER_FACILITY = 8


@function("_syslog$DARWIN_EXTSN")
def syslog(call):
    """syslog(3)."""
    text = format_text(call.machine.memory, call.text(1), call.variadic(2))
    name = os.path.basename(call.machine.path).encode()
    priority = USER_FACILITY | call.u32(0) & 7
    stamp = time.strftime("%b %e %H:%M:%S").encode()
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as log:
        try:
            log.connect("/dev/log")
            log.send(b"<%d>%s %s: %s" % (priority, stamp, name, text))
        except OSError:
            pass  # nothing reads the socket
