"""Runs a hundred helpers that exit every 50 to 500 ms for KESTRANE_SECONDS. Prints the launcher's
memory, descriptors and threads at the start, in the middle and at the end."""

import collections
import os
import re
import signal
import time

import namespace
from launcher import WORK, LauncherTest, item, numbered
from log import parse_record
from namespace import HELPERS
from processes import processes

COUNT = 100
SECONDS = int(os.environ.get("KESTRANE_SECONDS", "600"))

# The launcher's memory may grow by a few stack and heap pages that are used rarely.
GROWTH = 128  # KiB

Use = collections.namedtuple("Use", "memory descriptors threads")
End = collections.namedtuple("End", "pid wait_status")


class LogFollower:
    """Reads a log from its first record, across rotations."""

    def __init__(self, path):
        self._path = path
        self._files = [open(path, encoding="utf-8")]
        self._line = ""

    def lines(self):
        """The complete lines since the previous call. Must be called at least once per rotation."""
        if os.stat(self._path).st_ino != os.fstat(self._files[-1].fileno()).st_ino:
            self._files.append(open(self._path, encoding="utf-8"))
        # A thread may still write one more record to the file that was just rotated.
        if len(self._files) > 2:
            self._files.pop(0).close()
        *lines, self._line = (self._line + "".join(f.read() for f in self._files)).split("\n")
        return lines


class Soak(LauncherTest):
    def use(self, launcher):
        # Anonymous memory counts pages also while a child between fork and exec shares them.
        with open(f"/proc/{launcher.pid}/smaps_rollup", encoding="utf-8") as file:
            (memory,) = [line.split()[1] for line in file if line.startswith("Anonymous:")]
        return Use(
            int(memory),
            len(os.listdir(f"/proc/{launcher.pid}/fd")),
            len(os.listdir(f"/proc/{launcher.pid}/task")),
        )

    def print_use(self, when, use):
        print(
            f"{when:14} {use.memory:6} KiB, {use.descriptors} descriptors, {use.threads} threads",
            flush=True,
        )

    def collect_ends(self):
        """Reads new ends of children from the log, by item."""
        for line in self.follower.lines():
            text = parse_record(line).text
            match = re.fullmatch(
                r"\[LAUNCHER  \] (\S+) (\d+) is killed\. ret = (\d+), status = (\d+)", text
            )
            if match:
                name, pid, result, wait_status = match.groups()
                self.assertEqual(pid, result)
                self.ends[name].append(End(int(pid), int(wait_status)))

    def check_zombies(self):
        """Asserts that no child stays a zombie; each is one briefly, until its supervisor runs."""
        now = time.monotonic()
        zombies = [p.pid for p in processes() if p.state == "Z"]
        self.zombies = {pid: self.zombies.get(pid, now) for pid in zombies}
        stuck = [pid for pid, since in self.zombies.items() if now - since > 5]
        self.assertEqual([], stuck, "zombies for more than five seconds")

    def watch(self, until):
        """Reads the log and checks for zombies until that time."""
        while time.monotonic() < until:
            time.sleep(min(1, max(until - time.monotonic(), 0)))
            self.collect_ends()
            self.check_zombies()

    def test_soak(self):
        self.ends = collections.defaultdict(list)
        self.zombies = {}
        names = [f"item{i}" for i in range(COUNT)]
        launcher = self.start(
            numbered(*(item(name, HELPERS + "/short_life", name) for name in names))
        )
        self.wait_for(lambda: os.path.exists(launcher.log_path), "the log to appear")
        self.follower = LogFollower(launcher.log_path)
        # Warm-up: each supervisor has restarted its helper a few times.
        while self.fewest_ends() < 4:
            self.watch(time.monotonic() + 1)

        began = time.monotonic()
        uses = [self.use(launcher)]
        self.print_use("at the start", uses[0])
        for part, when in ((0.5, "in the middle"), (1, "at the end")):
            self.watch(began + part * SECONDS)
            uses.append(self.use(launcher))
            self.print_use(when, uses[-1])

        self.write(WORK + "/enough", "")
        self.wait_for(self.all_stay, "all helpers to stay")
        launcher.settle()
        launcher.send(signal.SIGTERM)
        self.wait_for(lambda: not launcher.running(), "the launcher to end", 120)
        self.assertEqual(1, launcher.wait())
        self.collect_ends()
        self.check_ends(names)
        self.check_use(uses)

    def fewest_ends(self):
        """The smallest number of ends of any item."""
        return min(map(len, self.ends.values())) if len(self.ends) == COUNT else 0

    def announced_ends(self):
        """The ends that the helpers announced, by item."""
        found = collections.defaultdict(list)
        for start in self.starts():
            name, wait_status = (argument.decode() for argument in start.arguments[1:])
            found[name].append(End(start.pid, int(wait_status)))
        return found

    def all_stay(self):
        # A helper that announces signal 9 stays until it is killed.
        last = [ends[-1].wait_status for ends in self.announced_ends().values()]
        return last == [signal.SIGKILL] * COUNT

    def check_ends(self, names):
        announced = self.announced_ends()
        for name in names:
            self.assertEqual(announced[name], self.ends[name], f"the ends of {name}")
        print(f"{sum(map(len, self.ends.values()))} ends, each logged once, with its wait status")

    def check_use(self, uses):
        self.assertEqual({COUNT + 1}, {use.threads for use in uses}, uses)
        self.assertEqual(1, len({use.descriptors for use in uses}), uses)
        for use in uses[1:]:
            self.assertLessEqual(use.memory, uses[0].memory + GROWTH, uses)


if __name__ == "__main__":
    namespace.main()
