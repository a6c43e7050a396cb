"""Makes one measurement as process 1 of a PID namespace, which run.py creates.

    inside.py SCENARIO CONTENDER OPTION=NUMBER...

Prints the result as JSON. Any remaining processes end with the namespace.
"""

import json
import os
import struct
import sys
import time

import contenders
from contenders import BLINK, END, STAY, WORK

STARTS = WORK + "/starts"
RECORD = struct.Struct("=iiqq")  # helper.cpp
DEADLINE = 300.0
TICK = os.sysconf("SC_CLK_TCK")
LIFE_MS = {STAY: -1, END: 0, BLINK: 20, contenders.SECOND: 1050}


def wait_for(condition, pause=0.002):
    deadline = time.monotonic() + DEADLINE
    while not condition():
        if time.monotonic() > deadline:
            sys.exit("timed out")
        time.sleep(pause)


def spawn(contender, helpers):
    """Starts the contender in a new session; returns its process id and the time."""
    os.makedirs(WORK)
    open(STARTS, "x", encoding="utf-8").close()
    command = contender.prepare(helpers)
    null = [
        (os.POSIX_SPAWN_OPEN, 0, "/dev/null", os.O_RDONLY, 0),
        (os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0),
        (os.POSIX_SPAWN_OPEN, 2, WORK + "/stderr", os.O_WRONLY | os.O_CREAT, 0o600),
    ]
    moment = time.monotonic_ns()
    pid = os.posix_spawnp(command[0], command, os.environ, file_actions=null, setsid=True)
    return pid, moment


def record_count():
    return os.path.getsize(STARTS) // RECORD.size


def records(helper=None):
    """The helpers' records: (parent, start, end), in nanoseconds, in the order of writing."""
    with open(STARTS, "rb") as file:
        content = file.read()
    content = content[: len(content) // RECORD.size * RECORD.size]
    wanted = LIFE_MS.get(helper)
    return [
        (parent, start, end)
        for life, parent, start, end in RECORD.iter_unpack(content)
        if wanted is None or life == wanted
    ]


def supervising():
    """The processes of the contender: all except this one and the helpers."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            program = os.path.basename(os.readlink(f"/proc/{pid}/exe"))
        except OSError:
            continue  # It has ended, or is a zombie.
        if int(pid) != os.getpid() and not program.startswith("helper_"):
            found.append(int(pid))
    return found


def read(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def pss_kib(pids):
    total = 0
    for pid in pids:
        for line in read(f"/proc/{pid}/smaps_rollup").splitlines():
            if line.startswith("Pss:"):
                total += int(line.split()[1])
    return total


def cpu_and_switches(pids):
    """The CPU time in nanoseconds and the context switches of all their threads."""
    nanoseconds = switches = 0
    for pid in pids:
        for thread in os.listdir(f"/proc/{pid}/task"):
            task = f"/proc/{pid}/task/{thread}"
            nanoseconds += int(read(task + "/schedstat").split()[0])
            for line in read(task + "/status").splitlines():
                if "ctxt_switches" in line:
                    switches += int(line.split()[1])
    return nanoseconds, switches


def idle_seconds():
    """The total idle time of all processors."""
    fields = read("/proc/stat").split("\n", 1)[0].split()
    return (int(fields[4]) + int(fields[5])) / TICK


def settle():
    """Waits until the contender sleeps: no context switch within 50 ms."""
    before = [None]

    def unchanged():
        last, before[0] = before[0], cpu_and_switches(supervising())[1]
        return last == before[0]

    wait_for(unchanged, pause=0.05)


def percentile(values, share):
    """The smallest value that at least this share of all values does not exceed."""
    values = sorted(values)
    return values[max(0, -(-len(values) * share // 100) - 1)]


def latencies(helper):
    """The milliseconds from a helper's exit to its next start, with the time of the start."""
    last_end = {}
    found = []
    for parent, start, end in records(helper):
        if parent in last_end:
            found.append((start, (start - last_end[parent]) / 1e6))
        last_end[parent] = end
    return found


def start_all(contender, count):
    """Starts `count` helpers that stay; returns the contender's process id and the milliseconds."""
    pid, moment = spawn(contender, [STAY] * count)
    # Polled rarely, because polling takes CPU time from the contender. The records have the times.
    wait_for(lambda: record_count() >= count, pause=0.02)
    last = max(begin for _, begin, _ in records())
    settle()
    return pid, (last - moment) / 1e6


def start(contender, options):
    """The time until N helpers run, and the memory in use then."""
    _, taken = start_all(contender, options["n"])
    return {"start_ms": taken, "pss_kib": pss_kib(supervising())}


def stop(contender, options):
    """The time from the stop request until the last process has ended."""
    pid, _ = spawn(contender, [STAY] * options["n"])
    wait_for(lambda: record_count() >= options["n"])
    settle()
    time.sleep(1.1)  # Some contenders pause if a helper ran for less than a second.
    begin = time.monotonic_ns()
    contender.stop(pid)
    try:
        while True:
            os.waitpid(-1, 0)
    except ChildProcessError:
        return {"stop_ms": (time.monotonic_ns() - begin) / 1e6}


def restart(contender, options):
    """Restarts of one helper while others sleep."""
    helper = contender.restarting
    spawn(contender, [STAY] * options["neighbours"] + [helper])
    wait_for(lambda: record_count() >= options["neighbours"])
    settled = time.monotonic_ns()

    # The first restarts are not counted, because the neighbours are still starting then.
    def done():
        return [ms for moment, ms in latencies(helper) if moment > settled + 2e8]

    wait_for(lambda: len(done()) >= options["restarts"], pause=0.25)
    return {"latencies_ms": done()[: options["restarts"]]}


def idle(contender, options):
    """The cost of a contender while all helpers sleep."""
    spawn(contender, [STAY] * options["n"])
    wait_for(lambda: record_count() >= options["n"])
    time.sleep(3)  # Some contenders pause for a second after a start.
    windows = []
    for _ in range(options["windows"]):
        pids = supervising()
        before = cpu_and_switches(pids)
        time.sleep(options["seconds"])
        after = cpu_and_switches(pids)
        windows.append({"cpu_ms": (after[0] - before[0]) / 1e6, "switches": after[1] - before[1]})
    return {"windows": windows}


def storm(contender, options):
    """Many helpers that exit at once, and one further helper that is timed."""
    watched = contender.watched
    spawn(contender, [watched] + [END] * options["n"])
    wait_for(lambda: record_count() >= options["n"])
    time.sleep(1)
    # Measures the CPU time of the whole machine: that of a process is counted in hundredths of a
    # second, and some of these processes use less.
    begin, idle_before, starts = time.monotonic_ns(), idle_seconds(), record_count()
    time.sleep(options["seconds"])
    seconds = (time.monotonic_ns() - begin) / 1e9
    busy = os.cpu_count() * seconds - (idle_seconds() - idle_before)
    rate = (record_count() - starts) / seconds
    return {
        "starts_per_s": rate,
        "cpu_share": busy / seconds,
        "cpu_ms_per_start": 1000 * busy / seconds / rate,
        "latencies_ms": [ms for moment, ms in latencies(watched) if moment > begin],
    }


def main():
    scenario, name, *pairs = sys.argv[1:]
    if os.getpid() != 1:
        sys.exit("must run as process 1 of a PID namespace, see run.py")
    options = {key: int(value) for key, value in (pair.split("=") for pair in pairs)}
    scenarios = (start, stop, restart, idle, storm)
    measure = {function.__name__: function for function in scenarios}[scenario]
    print(json.dumps(measure(contenders.ALL[name], options)))


if __name__ == "__main__":
    main()
