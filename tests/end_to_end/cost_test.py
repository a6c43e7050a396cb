"""Measures and prints what an idle launcher costs."""

import os
import time

import namespace
from launcher import STAY, LauncherTest, item, numbered
from processes import processes

COUNT = 100
SECONDS = 3


class Cost(LauncherTest):
    def measure(self, launcher):
        """Processor ticks, and the context switches of each thread."""
        with open(f"/proc/{launcher.pid}/stat", encoding="utf-8") as file:
            fields = file.read().rsplit(")", 1)[1].split()
        return int(fields[11]) + int(fields[12]), launcher.switches()

    def memory(self, launcher):
        """Private memory in KiB."""
        with open(f"/proc/{launcher.pid}/smaps_rollup", encoding="utf-8") as file:
            sizes = dict(line.split(":", 1) for line in file if line.startswith("Private_"))
        return sum(int(size.split()[0]) for size in sizes.values())

    def idle_launcher(self, count):
        launcher = self.start(numbered(*(item(str(i), STAY, str(i)) for i in range(count))))
        self.wait_for_starts(count)
        launcher.settle()
        return launcher

    def test_idle(self):
        alone = self.idle_launcher(0)
        memory_alone = self.memory(alone)
        self.assertEqual(1, alone.stop())

        launcher = self.idle_launcher(COUNT)
        ticks, switches = self.measure(launcher)
        time.sleep(SECONDS)
        ticks_after, switches_after = self.measure(launcher)
        per_item = (self.memory(launcher) - memory_alone) / COUNT
        print(
            f"{COUNT} items, idle for {SECONDS} s: {len(switches)} threads, "
            f"{ticks_after - ticks} ticks of processor time, "
            f"{total(switches_after) - total(switches)} wake-ups, "
            f"{per_item:.1f} KiB of memory for each item"
        )
        self.assertEqual(COUNT + 1, len(switches), "one thread for each item, and main")
        self.assertEqual(ticks, ticks_after)
        self.assertEqual(switches, switches_after)

        os.killpg(launcher.pid, 9)
        self.assertEqual(-9, launcher.wait())
        self.wait_for(lambda: self.reap() or not processes(), "the process group to end")


def total(switches):
    return sum(sum(counts) for counts in switches.values())


if __name__ == "__main__":
    namespace.main()
