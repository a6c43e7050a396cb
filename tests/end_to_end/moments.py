"""Sends SIGTERM at every library call of the launcher, on every thread.

KESTRANE_MOMENTS holds the arguments (scripts/check/moments.sh). A plan describes a run
(tests/moments/moments.cpp); on the command line it follows the number of items. docs/faults.md
describes the outcomes.
"""

import collections
import concurrent.futures
import ctypes
import json
import mmap
import os
import signal
import struct
import subprocess
import sys
import time

import namespace
from launcher import APPLICATION, LAUNCHER, WORK, LauncherTest, item, numbered
from log import parse_record, read_lines
from moments_report import Table, document, plan_of, show_run
from namespace import HELPERS
from outcomes import (
    ABORTED,
    ABORTED_LEFT,
    CHILD_ENDED,
    CRASHED,
    CRASHED_LEFT,
    GROUP_KILLED,
    HUNG,
    LEFT,
    LOST,
    NO_EFFECT,
    STOPPED,
    TERMINATED,
    UNKILLED,
)
from processes import processes, read_status

LIBRARY = HELPERS + "/moments.so"
RECORD = WORK + "/record"
RECORD_SIZE = 1 << 20
LIST = WORK + "/list.json"
# The seconds after which an alarm ends a run that neither ends nor waits in a library call. Such a
# run fails the sweep.
WATCHDOG = 20
ADDR_NO_RANDOMIZE = 0x0040000

NAMESPACES_AT_ONCE = 2


class Run(LauncherTest):
    """Runs the plans from standard input one after another and prints the results."""

    def test_plans(self):
        self.prepare()
        job = json.load(sys.stdin)
        self.items = job["items"]
        self.write(
            LIST,
            json.dumps(numbered(*(item(str(i), "/bin/sleep", "1000") for i in range(self.items)))),
        )
        for plan in job["plans"]:
            print(json.dumps(self.run_plan(plan, job.get("trace", False))), flush=True)

    def prepare(self):
        # Each run gets the same addresses, because the effect of a crash depends on them.
        ctypes.CDLL(None).personality(ADDR_NO_RANDOMIZE)
        self.set_level("[LOG]\nLEVEL=DEBUG\n")
        # Otherwise only the first run would create it, with calls that the others do not make.
        os.makedirs(os.path.dirname(self.log_path()))
        with open(RECORD, "wb") as file:
            file.truncate(RECORD_SIZE)
        with open(RECORD, "r+b") as file:
            self.record = mmap.mmap(file.fileno(), RECORD_SIZE)

    watchdog = WATCHDOG

    def counting(self):
        """The variables that make the launcher count its calls."""
        return {"LD_PRELOAD": LIBRARY}

    def run_plan(self, plan, trace):
        self.record[:4] = bytes(4)
        if os.path.exists(self.log_path()):
            os.remove(self.log_path())
        pid = os.posix_spawn(
            LAUNCHER,
            [LAUNCHER, APPLICATION, LIST],
            {
                **self.counting(),
                "KESTRANE_PLAN": plan + (" trace yes" if trace else ""),
                "KESTRANE_RECORD": RECORD,
                "KESTRANE_TEST_STARTS": self.starts_path,
            },
            setpgroup=0,
        )
        signal.alarm(self.watchdog)
        self.stuck = False
        signal.signal(signal.SIGALRM, lambda *_: self.end_stuck(pid))
        _, status = os.waitpid(pid, 0)
        signal.alarm(0)
        code = os.waitstatus_to_exitcode(status)
        left = self.left_behind(code)
        size = struct.unpack("<I", self.record[:4])[0]
        lines = self.record[4 : 4 + size].decode().splitlines()
        if self.stuck:
            code = None
        return {"plan": plan, "code": code, "left": left, "lines": lines, "log": self.log()}

    def log(self):
        return [
            (record.level, record.text) for record in map(parse_record, read_lines(self.log_path()))
        ]

    def end_stuck(self, pid):
        self.stuck = True
        os.kill(pid, signal.SIGKILL)

    def left_behind(self, code):
        """Waits until killed processes are gone; kills and returns those that remain."""
        left = []
        end = time.monotonic() + 5
        while True:
            try:
                pid, _ = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return left
            if pid == 0:
                alive = [process.pid for process in processes() if self.stays(process.pid)]
                if len(alive) == len(processes()) or time.monotonic() > end:
                    left = alive
                    self.kill_all()
                    return left
                time.sleep(0.0005)

    def stays(self, pid):
        try:
            status = read_status(f"/proc/{pid}/status")
        except (FileNotFoundError, ProcessLookupError):
            return False
        pending = int(status.get("SigPnd", "0"), 16) | int(status.get("ShdPnd", "0"), 16)
        return status["State"].startswith("S") and not pending & 1 << (signal.SIGKILL - 1)


def run_plans(items, plans, trace=False, program=__file__):
    """Runs plans in a namespace with the class Run of a file; returns the result of Run.run_plan for
    each."""
    done = namespace.run_in_namespace(
        [os.path.abspath(program), "Run.test_plans"],
        input=json.dumps({"items": items, "plans": plans, "trace": trace}),
        stdout=subprocess.PIPE,
        text=True,
    )
    lines = done.stdout.splitlines()
    if done.returncode != 0 or len(lines) != len(plans):
        raise RuntimeError("a namespace failed: " + done.stdout[-3000:])
    return [json.loads(line) for line in lines]


# The permitted outcomes, by phase and threads: those of one item, and those that more items add. A
# sweep fails if it finds any other outcome or does not find all of these.

PERMITTED = {
    ("no-handler", "main"): ({TERMINATED}, set()),
    # No item exists, so the handler only notifies, and no thread waits yet.
    ("start", "main"): ({LOST}, set()),
    ("start", "main and supervisor"): ({ABORTED, GROUP_KILLED, LOST}, set()),
    ("launching", "main"): ({GROUP_KILLED, HUNG, LOST, STOPPED}, set()),
    ("launching", "supervisor"): ({ABORTED, GROUP_KILLED, LOST}, {ABORTED_LEFT, HUNG, LEFT}),
    ("launching", "main and supervisor"): (
        {ABORTED, CRASHED, GROUP_KILLED, HUNG, LOST, STOPPED},
        {CRASHED_LEFT},
    ),
    # The item is not in the child's copy of the map yet.
    ("launching", "child"): ({NO_EFFECT}, set()),
    ("steady", "main"): ({STOPPED}, set()),
    ("steady", "supervisor"): ({ABORTED}, {ABORTED_LEFT}),
    # The second SIGTERM stays pending until the handler has returned.
    ("steady", "main and main"): ({STOPPED}, set()),
    ("steady", "main and supervisor"): ({CRASHED, HUNG}, {ABORTED, ABORTED_LEFT, CRASHED_LEFT}),
    ("restart", "main"): ({STOPPED, UNKILLED}, set()),
    ("restart", "supervisor"): ({ABORTED, ABORTED_LEFT, HUNG}, set()),
    ("restart", "main and supervisor"): ({CRASHED, HUNG}, {CRASHED_LEFT}),
    # Until the child has stored the 0 that fork returns, it has the previous child's id.
    ("restart", "child"): ({CHILD_ENDED, GROUP_KILLED}, set()),
}


def permitted(items):
    """The permitted outcomes, by phase and threads."""
    return {
        place: with_one | with_more if items > 1 else with_one
        for place, (with_one, with_more) in PERMITTED.items()
    }


# The coordinates of a sweep.

ALLOCATIONS = ("malloc", "calloc", "realloc", "free")


def traced(items, plan):
    """Runs the plan; returns the moments of each thread as (number, call), and all lines."""
    lines = run_plans(items, [plan], trace=True)[0]["lines"]
    moments = collections.defaultdict(list)
    for line in lines:
        if line.startswith("at "):
            _, thread, number, call = line.split(" ", 3)
            moments[thread].append((int(number), call))
    return moments, lines


def before(lines, stop):
    """The moments before the first line that begins with `stop`."""
    found = []
    for line in lines:
        if line.startswith(stop):
            break
        if line.startswith("at "):
            _, thread, number, call = line.split(" ", 3)
            found.append((thread, int(number), call))
    return found


def thinned(moments):
    """Omits the moments in the middle of a series of allocations: for other threads, they are the
    same as their neighbours."""
    calls = [call in ALLOCATIONS for _, call in moments]
    return [
        moment
        for i, moment in enumerate(moments)
        if not all(calls[max(i - 2, 0) : i + 3]) or i < 2 or i + 2 >= len(calls)
    ]


def sampled(moments):
    """The thinned moments, and every fifth of the others."""
    kept = thinned(moments)
    return [moment for i, moment in enumerate(moments) if moment in kept or i % 5 == 0]


def numbers(moments):
    return [number for number, _ in moments]


class Sweep:
    """All plans for a number of items."""

    def __init__(self, items):
        self.items = items
        moments, lines = traced(items, "")
        planned = before(lines, "ordinary")
        self.all = [(thread, number) for thread, number, _ in planned]
        # Names of the first start's moments, and of a restart's.
        self.supervisors = [f"s{i}" for i in range(items)]
        self.waits = {
            thread: next(n for n, call in moments[thread] if call == "waitpid, waiting")
            for thread in self.supervisors
        }
        self.first = {
            thread: [m for m in moments[thread] if m[0] <= self.waits[thread]]
            for thread in self.supervisors
        }
        again = [
            (number, call)
            for thread, number, call in planned
            if thread == "s0" and number > self.waits["s0"]
        ]
        self.restart = [m for m in again if m[1] != "waitpid, waiting"]
        self.condition = next(
            number for number, call in moments["main"] if call == "pthread_cond_wait, waiting"
        )
        creations = [n for n, call in moments["main"] if call == "pthread_create"]
        self.created = dict(zip(self.supervisors, creations))
        # main's moments once a supervisor exists.
        self.launching = {
            thread: [m for m in moments["main"] if creation < m[0] <= self.condition]
            for thread, creation in self.created.items()
        }

    def plans(self):
        # The most informative plans come first.
        yield from self.stop_held()
        yield from self.two_signals()
        yield from self.two_supervisors()
        yield from self.one_signal()
        yield from self.one_signal_one_held()

    def one_signal(self):
        for thread, number in self.all:
            yield f"signal {thread} {number}"

    def one_signal_one_held(self):
        # All pairs of moments with one item; more items add orders among the supervisors.
        moments = list if self.items == 1 else sampled
        for thread in self.supervisors:
            # main while it starts items, and a supervisor before its first child.
            for main in numbers(moments(self.launching[thread])):
                for held in numbers(thinned(self.first[thread])):
                    yield f"signal main {main} hold {thread} {held}"
            for main in numbers(thinned(self.launching[thread])):
                for number in numbers(moments(self.first[thread])):
                    plan = f"signal {thread} {number} hold {thread} {number} hold main {main}"
                    yield plan
                    if self.items > 1:
                        yield plan + " order main"
        # main waits, and a supervisor restarts its child.
        for number in numbers(self.restart):
            yield f"signal main {self.condition} hold s0 {number}"

    def two_supervisors(self):
        for other in self.supervisors[1:]:
            for number in numbers(self.restart):
                yield f"signal {other} {self.waits[other]} hold s0 {number}"

    def stop_held(self):
        """The handler is held at each call, so that the supervisors overtake it."""
        first = f"signal main {self.condition}"
        for main in self.handler(first):
            yield f"{first} hold main {main}"

    def handler(self, plan):
        """main's moments in its handler."""
        _, lines = traced(self.items, plan)
        start = next(i for i, line in enumerate(lines) if line.startswith("signal main"))
        handled = before(lines[start:], "handled main")
        return numbers(thinned([(n, call) for thread, n, call in handled if thread == "main"]))

    def after(self, plan):
        """Every moment after the first signal of a plan."""
        _, lines = traced(self.items, plan)
        start = next(i for i, line in enumerate(lines) if line.startswith("signal "))
        return [(thread, n) for thread, n, _ in before(lines[start:], "no line")]

    def two_signals(self):
        steady = f"signal main {self.condition}"
        # The second at each call of the stop.
        for thread, number in self.after(steady):
            yield f"{steady} signal {thread} {number}"
        # The second on a supervisor, with main's handler at each call.
        for main in self.handler(steady):
            for thread in self.supervisors:
                yield f"{steady} hold main {main} signal {thread} {self.waits[thread]}"
        # The first while items are restarted or started, the second on the supervisor that does this.
        for number in numbers(self.restart):
            yield f"{steady} hold s0 {number} signal s0 {number}"
        for thread in self.supervisors:
            for main in numbers(thinned(self.launching[thread])):
                plan = f"signal main {main}"
                for number in numbers(thinned(self.first[thread])):
                    if number != self.waits[thread]:
                        yield f"{plan} hold {thread} {number} signal {thread} {number}"
                yield f"{plan} signal {thread} {self.waits[thread]}"


# The sweep.

PLANS_PER_NAMESPACE = 150


def sweep(items, plans=None):
    """The results of all plans, in no particular order."""
    plans = list(dict.fromkeys(plans or Sweep(items).plans()))
    chunks = [plans[i : i + PLANS_PER_NAMESPACE] for i in range(0, len(plans), PLANS_PER_NAMESPACE)]
    with concurrent.futures.ThreadPoolExecutor(NAMESPACES_AT_ONCE) as pool:
        try:
            for results in pool.map(lambda chunk: run_plans(items, chunk), chunks):
                yield from results
        finally:
            pool.shutdown(cancel_futures=True)


BEGIN = "<!-- The table is written by scripts/check/moments.sh --document. -->"


def main():
    arguments = os.environ.get("KESTRANE_MOMENTS", "").split()
    if arguments and arguments[0].isdigit():
        plan = plan_of(arguments[1:])
        sys.exit(show_run(run_plans(int(arguments[0]), [plan])[0]))
    items = [int(word) for word in arguments if word.isdigit()] or [1, 2]
    tables = {count: Table(count, permitted(count)) for count in items}
    for table in tables.values():
        began = time.monotonic()
        table.fill(sweep(table.items), until_failure="--until-failure" in arguments)
        table.show()
        print(f"{table.runs} runs in {time.monotonic() - began:.0f} s", flush=True)
    complete = "--until-failure" not in arguments or not any(
        table.not_permitted() for table in tables.values()
    )
    failures = [text for table in tables.values() for text in table.failures(complete)]
    for failure in failures:
        print(f"FAILED: {failure}")
    if "--document" in arguments and not failures:
        document(tables, BEGIN)
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    if os.getpid() == 1:
        sys.exit(namespace.run_here(sys.argv[1]))
    main()
