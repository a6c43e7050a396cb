"""The launcher behaves the same whether or not a fork copies the stacks of its threads (Linux)."""

import os
import platform
import re
import resource
import signal
import unittest

import namespace
from launcher import ABORTED, MANY, SANITIZE, STAY, WORK, LauncherTest, item, nameless, numbered
from log import end_text, start_text
from processes import processes

# Limits that leave room for any launcher, but under which the launcher does not reserve memory.
ROOM = 16 << 30
SETTINGS = {
    "one range for all stacks": None,
    "limited address space": resource.RLIMIT_AS,
    "limited data segment": resource.RLIMIT_DATA,
}
# With this many items, some fork while others are still being created.
MANY_ITEMS = 30


def glibc_copies_stacks():
    """Whether this glibc needs the descriptors of all threads in a forked child."""
    name, version = platform.libc_ver()
    return name != "glibc" or tuple(map(int, version.split("."))) > (2, 38)


@unittest.skipIf(
    SANITIZE not in ("", "undefined"),
    "the other sanitizers keep the stacks of threads their own way",
)
class ThreadStacks(LauncherTest):
    def start_in(self, setting, launch_list):
        limited = SETTINGS[setting]

        def limit():
            if limited is not None:
                resource.setrlimit(limited, (ROOM, ROOM))

        return self.start(launch_list, before=limit)

    def wiped_kibibytes(self, launcher):
        """How much of the launcher's address space a fork does not copy, whether in use or not."""
        size = wiped = 0
        with open(f"/proc/{launcher.pid}/smaps", encoding="utf-8") as smaps:
            for line in smaps:
                if line.startswith("Size:"):
                    size = int(line.split()[1])
                elif line.startswith("VmFlags:") and "wf" in line.split():
                    wiped += size
        return wiped

    def test_the_setting(self):
        for setting, limited in SETTINGS.items():
            with self.subTest(setting):
                launcher = self.start_in(setting, numbered(item("a"), item("b")))
                self.wait_for_starts(2)
                launcher.settle()
                expected = limited is None and not glibc_copies_stacks()
                # At least the stacks of a thousand items.
                self.assertEqual(expected, self.wiped_kibibytes(launcher) > 1000 * 512)
                self.assertEqual(1, launcher.stop())

    def test_items_start_restart_and_stop(self):
        names = [str(i) for i in range(MANY_ITEMS)]
        for setting in SETTINGS:
            with self.subTest(setting):
                launcher = self.start_in(setting, numbered(*(item(n, STAY, n) for n in names)))
                first = {s.arguments[1].decode(): s.pid for s in self.wait_for_starts(MANY_ITEMS)}
                for pid in first.values():
                    os.kill(pid, signal.SIGTERM)
                starts = self.wait_for_starts(2 * MANY_ITEMS)[MANY_ITEMS:]
                second = {start.arguments[1].decode(): start.pid for start in starts}
                self.assertEqual(1, launcher.stop())
                expected = [("DEBUG", start_text(name)) for name in 2 * names]
                expected += [("ERROR", end_text(name, first[name], 15)) for name in names]
                expected += [("ERROR", end_text(name, second[name], 9)) for name in names]
                self.assertEqual(sorted(expected), sorted(launcher.log()))

    def test_a_child_that_leaves_through_the_destructors(self):
        """It kills and joins items of its parent, whose threads it does not have, until its own item
        ends its process group. The name of that item decides how many come before."""
        # The others have forked by then: an item that has not would end the group before any join.
        others = [*(item(str(i)) for i in range(MANY_ITEMS)), *nameless(MANY)]
        for setting in SETTINGS:
            for name in ("empty 2", "empty 3"):
                with self.subTest(setting, name=name):
                    launcher = self.start_in(setting, numbered(*others, {"name": name}))
                    self.assertEqual(-signal.SIGKILL, launcher.wait())
                    log = launcher.log()
                    self.assertIn(("ERROR", f"[LAUNCHER  ] program path of {name} is empty"), log)
                    # No child of it has ended in another way, like a crash.
                    ends = [text for _, text in log if re.search(rf"\] {name} \d+ is killed", text)]
                    self.assertEqual([], [text for text in ends if not text.endswith("= 0")])
                    self.kill_all()

    def test_sigterm_to_a_child_that_supervises(self):
        """Its handler joins the parent's threads, and then its own thread, which ends by abort."""
        stay = [item(str(i)) for i in range(MANY_ITEMS)]
        for setting in SETTINGS:
            with self.subTest(setting):
                launcher = self.start_in(setting, numbered(*stay, item("a", WORK + "/missing")))
                self.wait_for_starts(MANY_ITEMS)

                def supervisor(parent):
                    found = processes()
                    return [p.pid for p in found if p.parent == parent and p.name == "launcher"]

                # The first child may lack its own item: main adds it once the thread exists.
                (first,) = self.wait_for(lambda: supervisor(launcher.pid), "a child")
                os.kill(first, signal.SIGKILL)
                (child,) = self.wait_for(
                    lambda: set(supervisor(launcher.pid)) - {first}, "another child"
                )
                # From then on, its process id is not 0, which would be its process group.
                self.wait_for(lambda: supervisor(child), "a child of the child")
                os.kill(child, signal.SIGTERM)
                ends = [("ERROR", end_text("a", child, status)) for status in ABORTED]
                self.wait_for(lambda: set(ends) & set(launcher.log()), "the child to end")
                launcher.kill()
                self.kill_all()


if __name__ == "__main__":
    namespace.main()
