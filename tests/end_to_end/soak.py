"""A hundred items that end every 50 to 500 ms, for KESTRANE_SECONDS. Prints what the launcher uses
at the start, in the middle and at the end."""

import collections
import os
import re
import signal
import time

import harness
from harness import HELPERS
from harness import item, numbered

COUNT = 100
SECONDS = int(os.environ.get("KESTRANE_SECONDS", "600"))

# What the launcher's memory may grow by: a few pages of stacks and heaps that are touched rarely.
GROWTH = 128  # KiB

Use = collections.namedtuple("Use", "memory descriptors threads")
End = collections.namedtuple("End", "pid wait_status")


class LogFollower:
    """Reads a log from its first record on, across the renaming of full ones."""

    def __init__(self, path):
        self._path = path
        self._files = [open(path, encoding="utf-8")]
        self._line = ""

    def lines(self):
        """The complete lines since the last time; called more often than a log gets full."""
        if os.stat(self._path).st_ino != os.fstat(self._files[-1].fileno()).st_ino:
            self._files.append(open(self._path, encoding="utf-8"))
        # The last but one may still get a record from a thread that was about to write.
        if len(self._files) > 2:
            self._files.pop(0).close()
        *lines, self._line = (self._line + "".join(f.read() for f in self._files)).split("\n")
        return lines


class Soak(harness.LauncherTest):
    def use(self, launcher):
        # Stacks and heaps, whether a child between fork and exec shares them at the moment or not.
        with open(f"/proc/{launcher.pid}/smaps_rollup", encoding="utf-8") as file:
            (memory,) = [line.split()[1] for line in file if line.startswith("Anonymous:")]
        return Use(
            int(memory),
            len(os.listdir(f"/proc/{launcher.pid}/fd")),
            len(os.listdir(f"/proc/{launcher.pid}/task")),
        )

    def tell(self, when, use):
        print(
            f"{when:14} {use.memory:6} KiB, {use.descriptors} descriptors, {use.threads} threads",
            flush=True,
        )

    def collect_ends(self):
        """Takes the ends of children from the log, by item."""
        for line in self.follower.lines():
            text = harness.parse_record(line).text
            match = re.fullmatch(
                r"\[LAUNCHER  \] (\S+) (\d+) is killed\. ret = (\d+), status = (\d+)", text
            )
            if match:
                name, pid, result, wait_status = match.groups()
                self.assertEqual(pid, result)
                self.ends[name].append(End(int(pid), int(wait_status)))

    def check_zombies(self):
        """That no child stays a zombie; each is one until its supervisor gets the processor."""
        now = time.monotonic()
        zombies = [p.pid for p in harness.processes() if p.state == "Z"]
        self.zombies = {pid: self.zombies.get(pid, now) for pid in zombies}
        stuck = [pid for pid, since in self.zombies.items() if now - since > 5]
        self.assertEqual([], stuck, "zombies for more than five seconds")

    def watch(self, until):
        """Until that time: takes the log in, and looks for zombies."""
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
        self.wait_for(lambda: os.path.exists(launcher.log_path), "the log")
        self.follower = LogFollower(launcher.log_path)
        # Until each thread has done everything a few times.
        while self.fewest_ends() < 4:
            self.watch(time.monotonic() + 1)

        began = time.monotonic()
        uses = [self.use(launcher)]
        self.tell("at the start", uses[0])
        for part, when in ((0.5, "in the middle"), (1, "at the end")):
            self.watch(began + part * SECONDS)
            uses.append(self.use(launcher))
            self.tell(when, uses[-1])

        self.write(harness.WORK + "/enough", "")
        self.wait_for(self.all_stay, "all helpers stay")
        launcher.settle()
        launcher.send(signal.SIGTERM)
        self.wait_for(lambda: not launcher.running(), "the end of the launcher", 120)
        self.assertEqual(1, launcher.wait())
        self.collect_ends()
        self.check_ends(names)
        self.check_use(uses)

    def fewest_ends(self):
        """So many ends has each item had at least."""
        return min(map(len, self.ends.values())) if len(self.ends) == COUNT else 0

    def announced_ends(self):
        """What each helper said about its end, by item."""
        found = collections.defaultdict(list)
        for start in self.starts():
            name, wait_status = (argument.decode() for argument in start.arguments[1:])
            found[name].append(End(start.pid, int(wait_status)))
        return found

    def all_stay(self):
        # Only those that stay end by signal 9.
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
    harness.main()
