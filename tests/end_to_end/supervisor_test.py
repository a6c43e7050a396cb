"""How one item is kept running, and what happens if it cannot be."""

import os
import signal
import unittest

import namespace
from launcher import (
    ABORTED,
    END,
    MACOS,
    MANY,
    SANITIZE,
    STAY,
    WITHOUT_LEAKS,
    WORK,
    LauncherTest,
    LimitedUserTest,
    counts_threads,
    item,
    nameless,
    numbered,
    process_limit,
)
from log import NO_NAME, PARSE_ERROR, end_text, start_text
from namespace import HELPERS
from processes import processes

PAUSE = 50_000_000  # nanoseconds


class Restart(LauncherTest):
    def test_each_end_is_logged_with_its_raw_wait_status(self):
        wait_statuses = {
            ("exit", "0"): 0,
            ("exit", "1"): 256,
            ("exit", "3"): 768,
            ("exit", "255"): 65280,
            ("signal", "1"): 1,
            ("signal", "9"): 9,
            ("signal", "14"): 14,
            ("signal", "13"): 13,
            ("signal", "15"): 15,
        }
        ways = {f"<{' '.join(way)}>": way for way in wait_statuses}
        launcher = self.start(numbered(*(item(name, END, *way) for name, way in ways.items())))
        for way in ways.values():
            self.wait_for_starts(2, *way)
        launcher.kill()
        for name, way in ways.items():
            with self.subTest(name):
                log = [entry for entry in launcher.log() if name in entry[1]]
                first = self.starts(*way)[0]
                self.assertEqual(
                    [
                        ("DEBUG", start_text(name)),
                        ("ERROR", end_text(name, first.pid, wait_statuses[way])),
                        ("DEBUG", start_text(name)),
                    ],
                    log[:3],
                )

    def test_the_pause_is_at_least_50_ms(self):
        launcher = self.start(numbered(item("a", END, "exit", "0")))
        starts = self.wait_for_starts(10)
        launcher.kill()
        pauses = [
            after.nanoseconds - before.nanoseconds for before, after in zip(starts, starts[1:])
        ]
        self.assertGreaterEqual(min(pauses), PAUSE)
        self.assertLess(min(pauses), 2 * PAUSE, "even the shortest pause was too long")
        self.assertEqual(len(starts), len({start.pid for start in starts}))

    def test_a_child_killed_from_outside_is_restarted(self):
        launcher = self.start(numbered(item("a")))
        expected = [("DEBUG", start_text("a"))]
        for count, number in enumerate((signal.SIGKILL, signal.SIGTERM, signal.SIGINT), 1):
            child = self.wait_for_starts(count)[-1]
            os.kill(child.pid, number)
            again = self.wait_for_starts(count + 1)[-1]
            self.assertGreaterEqual(again.nanoseconds - child.nanoseconds, PAUSE)
            expected += [
                ("ERROR", end_text("a", child.pid, int(number))),
                ("DEBUG", start_text("a")),
            ]
        self.assertEqual(expected, launcher.log())
        self.assertEqual(1, launcher.stop())

    def test_items_do_not_wait_for_each_other(self):
        launcher = self.start(numbered(item("stays"), item("ends", END, "exit", "0")))
        self.wait_for_starts(5, "exit")
        self.assertEqual(1, len([start for start in self.starts() if len(start.arguments) == 1]))
        launcher.kill()


class UnrunnableProgram(LauncherTest):
    """A child whose execv fails becomes a supervisor itself, so every 50 ms one more process waits
    for the next. The end of the namespace ends them all."""

    def check(self, program, **options):
        launcher = self.start(numbered(item("a", program)), **options)
        # Each process of the chain logs the next start; the first one is the launcher.
        links = self.wait_for(
            lambda: len(launcher.records()) >= 5 and launcher.records(), "a chain of processes"
        )
        self.assertEqual(
            [("DEBUG", start_text("a"))] * len(links), [(link.level, link.text) for link in links]
        )
        pids = [link.pid for link in links]
        self.assertEqual(launcher.pid, pids[0])
        self.assertEqual(len(pids), len(set(pids)))
        parents = {process.pid: process.parent for process in processes()}
        self.assertEqual(pids[:-1], [parents[pid] for pid in pids[1:]])

        # SIGTERM kills the first child only; the others continue.
        self.assertEqual(1, launcher.stop())
        ends = [record for record in launcher.records() if record.level == "ERROR"]
        self.assertEqual(
            [(launcher.pid, end_text("a", pids[1], 9))],
            [(record.pid, record.text) for record in ends],
        )
        grown = len(launcher.records())
        self.wait_for(lambda: len(launcher.records()) > grown, "further processes")
        self.reap()
        left = processes()
        self.assertEqual({"launcher"}, {process.name for process in left})
        self.assertNotIn(pids[1], [process.pid for process in left])
        self.assertGreaterEqual(len(left), len(pids) - 1)
        self.kill_all()

    def test_missing_file(self):
        self.check(WORK + "/missing")

    def test_directory(self):
        self.check(WORK)

    def test_not_executable_file(self):
        self.check(self.write(WORK + "/text", "#!/bin/sh\n"))

    def test_path_is_not_searched(self):
        self.check("stay", environment={"PATH": HELPERS})

    def test_the_chain_grows_no_faster_than_the_pause(self):
        launcher = self.start(numbered(item("a", WORK + "/missing")))
        self.wait_for(lambda: len(launcher.records()) >= 8, "a chain of processes")
        seconds = [
            int(record.time[17:19]) + int(record.time[20:23]) / 1000
            for record in launcher.records()
        ]
        for before, after in zip(seconds, seconds[1:]):
            self.assertGreaterEqual(round((after - before) % 60, 3), 0.050)
        self.kill_all()


@unittest.skipIf(SANITIZE == "thread", "ThreadSanitizer crashes when a forked child's thread ends")
class EmptyProgram(LauncherTest):
    """The child exits through the exit-time destructors, which signal its process group."""

    # In the child, which has no main thread, memory that only main's stack refers to looks leaked.
    sanitizer_options = WITHOUT_LEAKS

    def test_alone(self):
        # Repeated, so that some children are forked while main is already waiting.
        for _ in range(20):
            launcher = self.start(numbered({"name": "a"}))
            self.assertEqual(-signal.SIGKILL, launcher.wait())
            self.assertEqual(
                [
                    ("DEBUG", start_text("a")),
                    ("ERROR", "[LAUNCHER  ] program path of a is empty"),
                ],
                launcher.log()[:2],
            )

    @unittest.skipIf(MACOS, "on macOS the order of the map decides")
    def test_the_whole_process_group_is_killed(self):
        outsider = self.spawn(["/bin/sleep", "1000"])
        for what, entry in {
            "absent": {},
            "empty": {"program": ""},
            "null": {"program": None},
        }.items():
            with self.subTest(what):
                launcher = self.start(numbered(item("b"), *nameless(MANY), {"name": "a", **entry}))
                self.assertEqual(-signal.SIGKILL, launcher.wait())
                bystander = self.starts()[-1]
                self.wait_for(
                    lambda pid=bystander.pid: self.reap() or pid not in map(pid_of, processes()),
                    "the other item to end",
                )
                log = [record for record in launcher.records() if record.text != NO_NAME]
                self.assertEqual(
                    [
                        ("DEBUG", start_text("b")),
                        ("DEBUG", start_text("a")),
                        ("ERROR", "[LAUNCHER  ] program path of a is empty"),
                    ],
                    [(record.level, record.text) for record in log[:3]],
                )
                # The child wrote the last record.
                self.assertEqual(launcher.pid, log[1].pid)
                self.assertNotEqual(launcher.pid, log[2].pid)
        self.reap()
        self.assertNotIn(outsider, self.ended)
        self.assert_left_behind(["sleep"])

    @unittest.skipUnless(MACOS, "on Linux the whole process group is killed")
    def test_the_order_of_the_map_decides(self):
        ends = {name: self.end_with_other_items(name) for name in "aefghi"}
        self.assertEqual({"killed", "aborted"}, set(ends.values()), ends)

    def end_with_other_items(self, name):
        """What happens if the item of this name has no program and others run already."""
        others = {other: item(other, STAY, other) for other in "bcd"}
        launcher = self.start(numbered(*others.values(), *nameless(MANY), {"name": name}))

        def first_end(item_name, statuses):
            found = [
                record.text for record in launcher.records() if f"] {item_name} " in record.text
            ]
            return [
                text for text in found if text.endswith(tuple(f"status = {n}" for n in statuses))
            ]

        self.wait_for(lambda: not launcher.running() or first_end(name, ABORTED), "an end")
        if not launcher.running():
            self.assertEqual(-signal.SIGKILL, launcher.wait())
            return "killed"

        # The child has killed one other helper before it aborted, and both are started again.
        def killed():
            return [other for other in others if first_end(other, [9])]

        (bystander,) = self.wait_for(killed, "the end of another helper")
        first = self.starts(bystander)[0]
        self.assertEqual(end_text(bystander, first.pid, 9), first_end(bystander, [9])[0])
        self.wait_for(lambda: len(first_end(name, ABORTED)) > 1, "the same end again")
        self.wait_for_starts(2, bystander)
        self.assertEqual([bystander], killed())
        launcher.kill()
        return "aborted"


@counts_threads
class ProcessLimit(LimitedUserTest):
    def test_a_failed_fork_ends_the_supervision(self):
        # Room for the launcher and the supervisor, none for a child.
        launcher = self.start_limited(numbered(item("a")), process_limit(1, threads=1))
        expected = [
            ("DEBUG", start_text("a")),
            ("ERROR", "[LAUNCHER  ] Failed to fork a"),
        ]
        self.wait_for(lambda: len(launcher.log()) >= 2, "a failed fork")
        self.holds_for(0.3, lambda: expected == launcher.log(), "fork was tried again")

        # SIGTERM makes the launcher kill every process that its user may signal, and no other.
        same_user = self.spawn(["/bin/sleep", "1000"], before=lambda: self.become_limited(9))
        other_user = self.spawn(["/bin/sleep", "1000"])
        self.assertEqual(1, launcher.stop())
        self.wait_for(
            lambda: self.reap() or same_user in self.ended,
            "the process of the same user to be killed",
        )
        self.assertEqual(-signal.SIGKILL, self.ended[same_user])
        self.assertNotIn(other_user, self.ended)
        self.assertEqual(expected, launcher.log())
        self.assert_left_behind(["sleep"])

    def test_a_supervisor_that_cannot_be_started_ends_the_launcher(self):
        launcher = self.start_limited(numbered(item("a")), 1)
        self.assertEqual(0, launcher.wait())
        self.assertEqual([("ERROR", PARSE_ERROR)], launcher.log())


def pid_of(process):
    return process.pid


if __name__ == "__main__":
    namespace.main()
