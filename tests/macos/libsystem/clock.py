"""The clock and the calendar: clock_gettime(3), nanosleep(2), ctime(3)."""

import calendar
import time

import values
from libsystem.errors import fail
from libsystem.registry import function
from scheduling import Wait

CLOCKS = {
    values.OTHERS["CLOCK_REALTIME"]: time.CLOCK_REALTIME,
    values.OTHERS["CLOCK_MONOTONIC"]: time.CLOCK_MONOTONIC,
    values.OTHERS["CLOCK_MONOTONIC_RAW"]: time.CLOCK_MONOTONIC,
}


@function("_clock_gettime")
def clock_gettime(call):
    """clock_gettime(3)."""
    if call.u32(0) not in CLOCKS:
        return fail(call, "EINVAL")
    now = time.clock_gettime_ns(CLOCKS[call.u32(0)])
    call.store(1, values.TIMESPEC.pack(*divmod(now, 10**9)))
    return 0


@function("_time")
def time_(call):
    """time(3)."""
    now = int(time.time())
    if call.u64(0):
        call.machine.memory.set_u64(call.u64(0), now)
    return now


def sleep(seconds):
    yield Wait(lambda: False, deadline=time.monotonic() + seconds)
    return 0


@function("_nanosleep")
def nanosleep(call):
    """nanosleep(2). A signal's handler runs in between, and the sleep is not cut short by it."""
    seconds, nanoseconds = values.TIMESPEC.unpack(call.data(0, values.TIMESPEC.size))
    return sleep(seconds + nanoseconds / 1e9)


@function("_usleep")
def usleep(call):
    """usleep(3)."""
    return sleep(call.u32(0) / 1e6)


def store_tm(call, found, index):
    zone = call.machine.system.setdefault("UTC", call.machine.memory.new_text(b"UTC"))
    packed = values.TM.pack(
        found.tm_sec, found.tm_min, found.tm_hour, found.tm_mday, found.tm_mon - 1,
        found.tm_year - 1900, (found.tm_wday + 1) % 7, found.tm_yday - 1, 0, 0, zone,
    )  # fmt: skip
    call.store(index, packed)
    return call.u64(index)


@function("_gmtime_r", "_localtime_r")
def gmtime_r(call):
    """ctime(3). The local time is UTC."""
    return store_tm(call, time.gmtime(call.machine.memory.u64(call.u64(0))), 1)


@function("_timegm")
def timegm(call):
    """ctime(3): a tm of UTC as seconds."""
    tm = values.TM.unpack(call.data(0, values.TM.size))
    return calendar.timegm((tm[5] + 1900, tm[4] + 1, tm[3], tm[2], tm[1], tm[0]))


@function("_strptime")
def strptime(call):
    """strptime(3), of a whole text."""
    try:
        found = time.strptime(call.text(0).decode(), call.text(1).decode())
    except ValueError:
        return 0
    store_tm(call, found, 2)
    return call.u64(0) + len(call.text(0))
