"""The processes of the namespace, read from /proc."""

import collections
import os

Process = collections.namedtuple("Process", "pid parent group state name")


def processes():
    """Every process of the namespace except this one."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as file:
                head, tail = file.read().rsplit(")", 1)
        except (FileNotFoundError, ProcessLookupError):
            continue
        state, parent, group = tail.split()[:3]
        name = head.split("(", 1)[1]
        found.append(Process(int(pid), int(parent), int(group), state, name))
    return [process for process in found if process.pid != os.getpid()]


def read_status(path):
    """The fields of a "status" file of /proc."""
    with open(path, encoding="utf-8", errors="replace") as file:
        return dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)


def context_switches(status):
    """The voluntary and involuntary context switches in the fields of a thread."""
    return int(status["voluntary_ctxt_switches"]), int(status["nonvoluntary_ctxt_switches"])


def switches_of_threads(pid):
    """The context switches of each thread; None if any thread is not asleep."""
    threads = {}
    for thread in os.listdir(f"/proc/{pid}/task"):
        status = read_status(f"/proc/{pid}/task/{thread}/status")
        if not status["State"].startswith("S"):
            return None
        threads[thread] = context_switches(status)
    return threads


def waits_for_lock(pid):
    with open(f"/proc/{pid}/wchan", encoding="utf-8") as file:
        return file.read().startswith("futex_")
