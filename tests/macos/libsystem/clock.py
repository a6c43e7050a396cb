"""The clock and the calendar: clock_gettime(3), nanosleep(2), ctime(3)."""

import datetime
import re
import time

import processor
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
    moments = call.machine.moments
    now = time.clock_gettime_ns(CLOCKS[call.u32(0)]) if moments is None else moments.time()
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
    yield Wait(lambda: False, deadline=time.monotonic() + seconds, what=("time",))
    return 0


@function("_nanosleep")
def nanosleep(call):
    """nanosleep(2). A signal handler runs during the sleep and does not shorten it."""
    seconds, nanoseconds = values.TIMESPEC.unpack(call.data(0, values.TIMESPEC.size))
    return sleep(seconds + nanoseconds / 1e9)


@function("_usleep")
def usleep(call):
    """usleep(3)."""
    return sleep(call.u32(0) / 1e6)


DAYS_OF_400_YEARS = 146097


def date_of_day(days):
    """Year, month, day, weekday and day of the year, for days since 1970, in any year."""
    eras, days = divmod(days + datetime.date(1970, 1, 1).toordinal() - 1, DAYS_OF_400_YEARS)
    date = datetime.date.fromordinal(days + 1)
    first = datetime.date(date.year, 1, 1)
    weekday = (date.weekday() + 1) % 7
    return date.year + 400 * eras, date.month, date.day, weekday, (date - first).days


def day_of_date(year, month, day):
    eras, year = divmod(year - 1, 400)
    ordinal = datetime.date(year + 1, month, 1).toordinal() + day - 1
    return eras * DAYS_OF_400_YEARS + ordinal - datetime.date(1970, 1, 1).toordinal()


def store_tm(call, index, seconds):
    days, second = divmod(seconds, 86400)
    year, month, day, weekday, yearday = date_of_day(days)
    clock = (second % 60, second // 60 % 60, second // 3600)
    machine = call.machine
    if "UTC" not in machine.system:
        machine.system["UTC"] = machine.memory.new_text(b"UTC")
    zone = machine.system["UTC"]
    call.store(
        index, values.TM.pack(*clock, day, month - 1, year - 1900, weekday, yearday, 0, 0, zone)
    )
    return call.u64(index)


@function("_gmtime_r", "_localtime_r")
def gmtime_r(call):
    """ctime(3). The local time is UTC."""
    return store_tm(call, 1, processor.signed(call.machine.memory.u64(call.u64(0)), 64))


@function("_timegm")
def timegm(call):
    """ctime(3): the seconds since 1970 of a tm in UTC."""
    second, minute, hour, day, month, year = values.TM.unpack(call.data(0, values.TM.size))[:6]
    days = day_of_date(year + 1900 + month // 12, month % 12 + 1, day)
    return ((days * 24 + hour) * 60 + minute) * 60 + second


FIELDS = {"Y": r"(\d{4})", "m": r"(\d\d?)", "d": r"(\d\d?)", "H": r"(\d\d?)", "M": r"(\d\d?)",
          "S": r"(\d\d?)"}  # fmt: skip


@function("_strptime")
def strptime(call):
    """strptime(3), for the numbers of a date; returns where the remaining text begins."""
    text, template = call.text(0).decode(), call.text(1).decode()
    kinds = re.findall("%(.)", template)
    pattern = re.sub("%(.)", lambda field: FIELDS[field[1]], template)
    match = re.match(pattern, text)
    if match is None:
        return 0
    found = dict(zip(kinds, map(int, match.groups())))
    days = day_of_date(found.get("Y", 1900), found.get("m", 1), found.get("d", 1))
    clock = (found.get("H", 0) * 60 + found.get("M", 0)) * 60 + found.get("S", 0)
    store_tm(call, 2, days * 86400 + clock)
    return call.u64(0) + match.end()
