"""Sends SIGTERM at random moments between the launcher's exec and its steady state, for lists of 1,
10 and 100 items; also sends two SIGTERMs in quick succession.

KESTRANE_MOMENTS is the number of moments for each list size; two SIGTERMs are sent at a fifth as
many further moments. KESTRANE_SEED repeats the random choices, though not the system's scheduling.
docs/faults.md lists the permitted outcomes and their reasons. They are counted; any other outcome
is a failure.
"""

import collections
import concurrent.futures
import contextlib
import json
import os
import random
import signal
import subprocess
import sys
import time

import namespace
from launcher import STAY, LauncherTest, item, numbered
from log import end_text, start_text
from outcomes import (
    ABORTED,
    CRASHED,
    GROUP_KILLED,
    HUNG,
    LEFT,
    LOST,
    OUTCOME_BY_STATUS,
    STOPPED,
    TERMINATED,
    UNKILLED,
    UNKILLED_AND_LOST,
)
from processes import processes, read_status

ITEMS = (1, 10, 100)
NAMESPACES_AT_ONCE = 4
MOMENTS_PER_NAMESPACE = 10

# If no thread of the launcher has run for this many seconds, it is blocked until something outside
# changes: a supervisor sleeps at most 50 ms.
QUIET = 0.5
# How long the handler may take on a busy machine to notice that a child has ended.
PATIENCE = 3
# A launcher that is neither quiet nor ended after this time is a failure. A hundred items take five
# seconds.
TOO_LONG = 120

# The state of the launcher when SIGTERM was sent.
NO_HANDLER = "no handler"
STARTING = "starting"
STEADY = "steady"
RESTARTING = "restarting"
REACHED = (NO_HANDLER, STARTING, STEADY, RESTARTING)

# The permitted outcomes by state and number of SIGTERMs.
LAUNCHING = {GROUP_KILLED, ABORTED, CRASHED, HUNG, LOST, UNKILLED, UNKILLED_AND_LOST, LEFT, STOPPED}
PERMITTED = {
    (NO_HANDLER, 1): LAUNCHING | {TERMINATED},
    (NO_HANDLER, 2): LAUNCHING | {TERMINATED},
    (STARTING, 1): LAUNCHING,
    (STARTING, 2): LAUNCHING,
    (STEADY, 1): {STOPPED},
    (STEADY, 2): {STOPPED, ABORTED, CRASHED, HUNG},
    (RESTARTING, 1): {STOPPED, ABORTED, HUNG, UNKILLED},
    (RESTARTING, 2): {STOPPED, ABORTED, CRASHED, HUNG, UNKILLED},
}

SIGTERM_BIT = 1 << (signal.SIGTERM - 1)


def has_handler(pid):
    status = read_status(f"/proc/{pid}/status")
    return int(status["SigCgt"], 16) & SIGTERM_BIT != 0


ThreadState = collections.namedtuple("ThreadState", "asleep in_handler switches")


def threads(pid):
    """The state of each thread. A thread in the handler has SIGTERM blocked."""
    found = {}
    try:
        for thread in os.listdir(f"/proc/{pid}/task"):
            status = read_status(f"/proc/{pid}/task/{thread}/status")
            found[thread] = ThreadState(
                status["State"].startswith("S"),
                int(status["SigBlk"], 16) & SIGTERM_BIT != 0,
                (status["voluntary_ctxt_switches"], status["nonvoluntary_ctxt_switches"]),
            )
    except (FileNotFoundError, ProcessLookupError, KeyError):
        return {}  # a thread or the launcher is just ending
    return found


class Batch(LauncherTest):
    """Stops launchers one after another. KESTRANE_BATCH: items, SIGTERMs, moments, seed."""

    def test_moments(self):
        self.items, self.signals, moments, seed = map(int, os.environ["KESTRANE_BATCH"].split())
        self.random = random.Random(seed)
        self.list = numbered(*(item(str(i), STAY, str(i)) for i in range(self.items)))
        duration = self.measure()
        for _ in range(moments):
            # Up to 1.2 times what the first start took, since a later one may take longer.
            self.note(*self.stop_after(self.random.uniform(0, 1.2 * duration)))
            self.kill_all()

    def start_and_exec(self):
        """Starts a launcher; returns it and the time just after its exec."""
        reader, writer = os.pipe()  # closed by the exec
        launcher = self.start(self.list)
        os.close(writer)
        self.assertEqual(b"", os.read(reader, 1))
        os.close(reader)
        return launcher, time.monotonic()

    def measure(self):
        """Returns how many seconds a launcher takes to start all items."""
        launcher, began = self.start_and_exec()
        starts = self.wait_for_starts(self.items)
        launcher.kill()
        self.kill_all()
        return max(start.nanoseconds for start in starts) / 1e9 - began

    def stop_after(self, seconds):
        """Sends SIGTERM this many seconds after the exec, or in a chosen state. Returns the state
        that was reached, the outcome and the launcher."""
        launcher, began = self.start_and_exec()
        reached = self.random.choices([None, STEADY, RESTARTING], [8, 1, 1])[0]
        if reached is None:
            time.sleep(max(began + seconds - time.monotonic() - 0.002, 0))
            while time.monotonic() < began + seconds:
                pass
            reached = STARTING if has_handler(launcher.pid) else NO_HANDLER
        else:
            self.wait_for_starts(self.items)
            launcher.settle()
        if reached == RESTARTING:
            os.kill(self.random.choice(self.starts()).pid, signal.SIGKILL)
            # Near the end of the restart pause.
            time.sleep(0.050 + self.random.uniform(-0.001, 0.003))
        for _ in range(self.signals):
            launcher.send(signal.SIGTERM)
            # Two signals too close together are delivered as one.
            time.sleep(self.random.choice([0, 0.001, 0.050]) * self.random.random())
        return reached, self.outcome(launcher), launcher

    def outcome(self, launcher):
        """Waits for the launcher to end; kills its children or repeats SIGTERM if it waits for
        either."""
        waited_for = set()
        while True:
            handlers = self.wait_for_quiet(launcher)
            if handlers is None:
                return self.outcome_of_end(launcher, waited_for)
            if handlers:
                if not self.end_children(launcher, handlers):
                    return HUNG
                waited_for.add(UNKILLED)
            elif LOST in waited_for:
                return "ignored a second SIGTERM"
            else:
                # Every thread waits and none is in the handler, so the first SIGTERM was lost.
                waited_for.add(LOST)
                launcher.send(signal.SIGTERM)

    def outcome_of_end(self, launcher, waited_for):
        code = self.ended[launcher.pid]
        outcome = OUTCOME_BY_STATUS.get(code, f"ended with {code}")
        left = self.left_behind() if outcome in (STOPPED, GROUP_KILLED) else set()
        if outcome == STOPPED:
            return self.outcome_of_stop(launcher, waited_for, left)
        if left:
            return f"{outcome}, but left processes behind"
        if LOST in waited_for:
            return f"waited for a second SIGTERM, then {outcome}"
        return outcome

    def outcome_of_stop(self, launcher, waited_for, left):
        ends = collections.Counter(text for level, text in launcher.log() if level == "ERROR")
        expected = {
            end_text(start.arguments[1].decode(), start.pid, 9)
            for start in self.starts()
            if start.pid not in left
        }
        # A child may have been killed before it noted its start.
        if not expected <= set(ends) or any(count > 1 for count in ends.values()):
            return "status 1, but not each end was logged once"
        if left:
            return LEFT
        return UNKILLED_AND_LOST if len(waited_for) == 2 else "".join(waited_for) or STOPPED

    def wait_for_quiet(self, launcher):
        """Waits until no thread has run for a while; returns the threads in the handler.

        None if the launcher has ended."""
        give_up = time.monotonic() + TOO_LONG
        before, since = None, time.monotonic()
        while launcher.running():
            now = threads(launcher.pid)
            if not now or now != before or not all(state.asleep for state in now.values()):
                before, since = now, time.monotonic()
            elif time.monotonic() - since > QUIET and self.children_sleep(launcher):
                return {thread: state for thread, state in now.items() if state.in_handler}
            self.assertLess(
                time.monotonic(), give_up, "the launcher neither ended nor became quiet"
            )
            time.sleep(0.01)
        return None

    def children(self, launcher):
        return [p for p in processes() if p.parent == launcher.pid]

    def children_sleep(self, launcher):
        """Whether every child sleeps; one that was killed but not yet scheduled does not."""
        return all(child.state == "S" for child in self.children(launcher))

    def end_children(self, launcher, handlers):
        """Kills the launcher's children; returns whether the handler then continues."""
        children = self.children(launcher)
        for child in children:
            with contextlib.suppress(ProcessLookupError):  # The launcher continued by itself.
                os.kill(child.pid, signal.SIGKILL)

        def continued():
            now = threads(launcher.pid)
            return not launcher.running() or any(
                thread not in now or now[thread].switches != state.switches
                for thread, state in handlers.items()
                if now
            )

        end = time.monotonic() + PATIENCE
        while children and time.monotonic() < end:
            if continued():
                return True
            time.sleep(0.01)
        return False

    def left_behind(self):
        """The processes that are left after a moment for killed ones to disappear."""
        end = time.monotonic() + 5
        left = True
        while left and time.monotonic() < end:
            time.sleep(0.005)
            self.reap()
            left = {process.pid for process in processes()}
        return left

    def note(self, reached, outcome, launcher):
        permitted = outcome in PERMITTED[reached, self.signals]
        if reached == STEADY and outcome == STOPPED:
            # The log must hold exactly one start and one end by signal 9 for each item.
            permitted = sorted(launcher.log()) == sorted(
                [("DEBUG", start_text(str(i))) for i in range(self.items)]
                + [
                    ("ERROR", end_text(start.arguments[1].decode(), start.pid, 9))
                    for start in self.starts()
                ]
            )
        line = {"reached": reached, "outcome": outcome, "permitted": permitted}
        if not permitted:
            line["log"] = launcher.log()
        print(json.dumps(line), flush=True)


def run_batch(items, signals, moments, seed):
    """Runs a batch in a new namespace; returns one result for each moment."""
    environment = {**os.environ, "KESTRANE_BATCH": f"{items} {signals} {moments} {seed}"}
    done = namespace.run_in_namespace(
        [os.path.abspath(__file__), "Batch.test_moments"],
        env=environment,
        stdout=subprocess.PIPE,
        text=True,
    )
    lines = done.stdout.splitlines()
    if done.returncode != 0 or len(lines) != moments:
        print(f"{items} items, {signals} SIGTERM, seed {seed}:\n{done.stdout}", flush=True)
        return items, signals, None
    return items, signals, [json.loads(line) for line in lines]


def batches(moments, seed):
    """The arguments of run_batch for all batches."""
    seeds = random.Random(seed)
    for items in reversed(ITEMS):
        for signals, left in ((1, moments), (2, moments // 5)):
            while left > 0:
                count = min(left, MOMENTS_PER_NAMESPACE)
                yield items, signals, count, seeds.randrange(2**32)
                left -= count


def print_table(counts):
    columns = [(items, signals) for signals in (1, 2) for items in ITEMS]
    rows = sorted({row for row, _ in counts}, key=lambda row: (REACHED.index(row[0]), row[1]))
    print(f"{'':80}{'one SIGTERM':>21}{'two SIGTERMs':>21}")
    print(f"{'items':80}" + "".join(f"{items:7}" for items, _ in columns))
    for row in rows:
        numbers = "".join(f"{counts[row, column]:7}" for column in columns)
        print(f"{': '.join(row):80}{numbers}")


def main():
    moments = int(os.environ.get("KESTRANE_MOMENTS", 500))
    seed = int(os.environ.get("KESTRANE_SEED", random.randrange(2**32)))
    print(f"seed {seed}", flush=True)
    counts = collections.Counter()
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(NAMESPACES_AT_ONCE) as pool:
        for items, signals, lines in pool.map(lambda job: run_batch(*job), batches(moments, seed)):
            failed += lines is None
            for line in lines or []:
                counts[(line["reached"], line["outcome"]), (items, signals)] += 1
                if not line["permitted"]:
                    failed += 1
                    print(f"NOT PERMITTED: {items} items, {signals} SIGTERM: {line}", flush=True)
    print_table(counts)
    print(f"{sum(counts.values())} moments, {failed} failed")
    sys.exit(1 if failed or not counts else 0)


if __name__ == "__main__":
    if os.getpid() == 1:
        sys.exit(namespace.run_here(sys.argv[1]))
    main()
