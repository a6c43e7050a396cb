"""What the launcher does when system calls fail and when helpers misbehave."""

import ctypes
import errno
import os
import re
import resource
import shutil
import signal
import unittest

import namespace
from launcher import (
    ABORTED,
    APPLICATION,
    END,
    MANY,
    SANITIZE,
    STAY,
    UNIQUE_USER,
    WORK,
    LauncherTest,
    LimitedUserTest,
    counts_threads,
    item,
    nameless,
    numbered,
    process_limit,
)
from log import PARSE_ERROR, end_text, parse_record, read_lines, start_text, without_nameless
from namespace import HELPERS
from processes import processes

MISBEHAVE = HELPERS + "/misbehave"

# More processes than a limited user needs in any of these cases.
ENOUGH = 9

# The start of a record. No record's text can contain a timestamp (docs/log-format.md).
TIME = re.compile(r"(?=\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z )")


def log_of(path):
    """The records of a log that helpers write to as well. What they write contains no line end, so
    the next record follows on the same line."""
    records = [parse_record(TIME.split(line)[-1]) for line in read_lines(path)]
    return [(record.level, record.text) for record in records]


@counts_threads
class Fork(LimitedUserTest):
    def test_the_first_one_of_a_later_item_fails(self):
        # Enough for the launcher, both supervisors and one child.
        launcher = self.start_limited(
            numbered(item("a"), *nameless(MANY), item("b")), process_limit(2, threads=2)
        )
        (first,) = self.wait_for_starts(1)
        self.wait_for(
            lambda: ("ERROR", "[LAUNCHER  ] Failed to fork b") in launcher.log(),
            "the failed fork of b",
        )
        # The other item keeps being restarted.
        os.kill(first.pid, signal.SIGKILL)
        second = self.wait_for_starts(2)[1]
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [
                ("DEBUG", start_text("a")),
                ("DEBUG", start_text("b")),
                ("ERROR", "[LAUNCHER  ] Failed to fork b"),
                ("ERROR", end_text("a", first.pid, 9)),
                ("DEBUG", start_text("a")),
                ("ERROR", end_text("a", second.pid, 9)),
            ],
            without_nameless(launcher.log()),
        )

    def set_limit(self, launcher, count):
        """Changes the number of processes that a running launcher's user may have."""
        pid = os.fork()
        if pid == 0:
            try:
                self.become_limited(ENOUGH)
                resource.prlimit(launcher.pid, resource.RLIMIT_NPROC, (count, ENOUGH))
                os._exit(0)
            finally:
                os._exit(1)
        self.wait_for(lambda: self.reap() or pid in self.ended, "the new limit")
        self.assertEqual(0, self.ended[pid])

    def test_a_later_one_fails(self):
        launcher = self.start_limited(numbered(item("a", STAY, "a"), item("b", STAY, "b")), ENOUGH)
        self.wait_for_starts(2)
        (a,), (b,) = self.starts("a"), self.starts("b")
        self.set_limit(launcher, 1)
        os.kill(a.pid, signal.SIGKILL)
        expected = [
            ("DEBUG", start_text("a")),
            ("ERROR", end_text("a", a.pid, 9)),
            ("DEBUG", start_text("a")),
            ("ERROR", "[LAUNCHER  ] Failed to fork a"),
        ]

        def log_of_a():
            return [entry for entry in launcher.log() if re.search(r"\] a |fork a$", entry[1])]

        self.wait_for(lambda: expected == log_of_a(), "a failed fork")

        # The item is abandoned even if a fork would succeed again. The other one is not.
        self.set_limit(launcher, ENOUGH)
        os.kill(b.pid, signal.SIGKILL)
        self.wait_for_starts(2, "b")
        self.holds_for(0.3, lambda: expected == log_of_a(), "fork was tried again")

        # SIGTERM makes the launcher kill every process that its user may signal.
        same_user = self.spawn(["/bin/sleep", "1000"], before=lambda: self.become_limited(ENOUGH))
        other_user = self.spawn(["/bin/sleep", "1000"])
        self.assertEqual(1, launcher.stop())
        self.wait_for(
            lambda: self.reap() or same_user in self.ended,
            "the process of the same user to be killed",
        )
        self.assertEqual(-signal.SIGKILL, self.ended[same_user])
        self.assertNotIn(other_user, self.ended)
        self.assert_left_behind(["sleep"])

    def test_in_the_chain_of_a_program_that_cannot_be_executed_kills_every_process(self):
        same_user = self.spawn(["/bin/sleep", "1000"], before=lambda: self.become_limited(ENOUGH))
        other_user = self.spawn(["/bin/sleep", "1000"])
        # The program is removed only once the launcher's map has the item. A child forked earlier
        # has a copy of the map without the item, and signals no process.
        program = shutil.copy(STAY, WORK + "/program")
        launcher = self.start_limited(numbered(item("a", program)), ENOUGH)
        (first,) = self.wait_for_starts(1)
        launcher.settle()
        os.remove(program)
        os.kill(first.pid, signal.SIGKILL)
        # Each child becomes a supervisor and forks another one, until the limit. The test does not
        # stop the launcher; the child that cannot fork exits and signals every process of its user.
        self.assertEqual(-signal.SIGKILL, launcher.wait())
        self.wait_for(lambda: self.reap() or same_user in self.ended, "the signal to every process")
        self.assertEqual(-signal.SIGKILL, self.ended[same_user])
        self.assertNotIn(other_user, self.ended)
        log = [text for _, text in launcher.log()]
        self.assertEqual("[LAUNCHER  ] Failed to fork a", log.pop())
        # The launcher, its supervisor and the other process leave room for this many.
        began = [start_text("a"), end_text("a", first.pid, 9)]
        room = ENOUGH + 1 - process_limit(2, threads=1)
        self.assertEqual(began + [start_text("a")] * room, log)
        self.assert_left_behind(["sleep"])


@counts_threads
class Thread(LimitedUserTest):
    def test_a_supervisor_that_cannot_be_started_kills_the_earlier_children(self):
        # Enough for the main thread, one supervisor and its child.
        launcher = self.start_limited(numbered(item("a"), *nameless(MANY), item("b")), 3)
        self.assertEqual(0, launcher.wait())
        (start,) = self.starts()
        self.assertEqual(
            [
                ("DEBUG", start_text("a")),
                ("ERROR", PARSE_ERROR),
                ("ERROR", end_text("a", start.pid, 9)),
            ],
            without_nameless(launcher.log()),
        )


@unittest.skipIf(SANITIZE, "sanitizers need unlimited memory")
class Memory(LauncherTest):
    # Almost as long as Linux permits for one argument.
    ARGUMENT = "x" * 130_000

    def test_a_child_aborts_until_memory_is_available_again(self):
        # malloc keeps no reserve, so the copy in the child needs memory from the system.
        launcher = self.start(
            numbered(item("a", STAY, self.ARGUMENT)),
            environment={"MALLOC_MMAP_THRESHOLD_": "65536", "MALLOC_TOP_PAD_": "0"},
        )
        (first,) = self.wait_for_starts(1)
        launcher.settle()
        _, most = resource.prlimit(launcher.pid, resource.RLIMIT_DATA)
        # Linux treats 0 as no limit.
        resource.prlimit(launcher.pid, resource.RLIMIT_DATA, (4096, most))
        os.kill(first.pid, signal.SIGKILL)
        self.wait_for(lambda: len(launcher.log()) >= 8, "three ends without memory")
        resource.prlimit(launcher.pid, resource.RLIMIT_DATA, (most, most))

        second = self.wait_for_starts(2)[1]
        self.assertEqual([STAY.encode(), self.ARGUMENT.encode()], second.arguments)
        self.assertEqual(1, launcher.stop())
        log = launcher.log()
        self.assertEqual(("ERROR", end_text("a", first.pid, 9)), log[1])
        self.assertEqual([("DEBUG", start_text("a"))] * (len(log) // 2), log[::2])
        self.assertEqual(("ERROR", end_text("a", second.pid, 9)), log[-1])
        for _, text in log[3:-1:2]:
            pid = int(re.search(r"a (\d+) is killed", text)[1])
            self.assertIn(text, [end_text("a", pid, status) for status in ABORTED])


class LogDirectory(LimitedUserTest):
    def test_an_unwritable_one_causes_a_system_event(self):
        logs = os.path.dirname(self.log_path())
        os.makedirs(logs, mode=0o555)
        launcher = self.start_limited(numbered(item("a")), ENOUGH)
        (first,) = self.wait_for_starts(1)
        self.assertEqual(
            [f"Morvel Launcher for {APPLICATION} : Failed to initialize logger"],
            [event.text for event in self.events()],
        )
        # Items are restarted nevertheless.
        os.kill(first.pid, signal.SIGKILL)
        self.wait_for_starts(2)
        self.assertEqual(1, launcher.stop())
        self.assertEqual([], os.listdir(logs))

    def test_records_are_counted_as_lost_while_it_is_unwritable(self):
        launcher = self.start_limited(numbered(item("a")), ENOUGH)
        (first,) = self.wait_for_starts(1)
        launcher.settle()
        logs = os.path.dirname(self.log_path())
        os.rename(logs, logs + " moved")
        os.remove(logs + " moved/qv7log")
        os.mkdir(logs, 0o755)
        os.kill(first.pid, signal.SIGKILL)
        second = self.wait_for_starts(2)[1]
        launcher.settle()
        self.assertEqual([], os.listdir(logs))

        os.chown(logs, UNIQUE_USER, UNIQUE_USER)
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [
                ("ERROR", "[QV7LOG    ] 2 records were lost"),
                ("ERROR", end_text("a", second.pid, 9)),
            ],
            launcher.log(),
        )


class Log(LauncherTest):
    def test_a_removed_one_is_created_again(self):
        launcher = self.start(numbered(item("a")))
        (first,) = self.wait_for_starts(1)
        launcher.settle()
        os.remove(launcher.log_path)
        os.kill(first.pid, signal.SIGTERM)
        second = self.wait_for_starts(2)[1]
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [
                ("ERROR", end_text("a", first.pid, 15)),
                ("DEBUG", start_text("a")),
                ("ERROR", end_text("a", second.pid, 9)),
            ],
            launcher.log(),
        )

    def test_no_record_is_lost_while_helpers_fill_the_file(self):
        # Helpers inherit the log as their standard input, open for writing.
        size = 10 * 1024 * 1024
        launcher = self.start(numbered(item("a", MISBEHAVE, "fill", str(size))))
        (first,) = self.wait_for_starts(1)
        os.kill(first.pid, signal.SIGTERM)
        second = self.wait_for_starts(2)[1]
        self.assertEqual(1, launcher.stop())
        self.assertGreater(os.path.getsize(launcher.log_path + ".2"), size)
        self.assertGreater(os.path.getsize(launcher.log_path + ".1"), size)
        self.assertEqual(
            [
                ("DEBUG", start_text("a")),
                ("ERROR", end_text("a", first.pid, 15)),
                ("DEBUG", start_text("a")),
                ("ERROR", end_text("a", second.pid, 9)),
            ],
            log_of(launcher.log_path + ".2") + log_of(launcher.log_path + ".1"),
        )
        self.assertEqual(0, os.path.getsize(launcher.log_path))


class FullDisk(LauncherTest):
    disk_size = 256 * 1024

    def fill_disk(self, path):
        with open(path, "wb", buffering=0) as file:
            try:
                while True:
                    file.write(bytes(4096))
            except OSError as error:
                self.assertEqual(errno.ENOSPC, error.errno)

    def test_lost_records_are_counted_and_items_still_run(self):
        launcher = self.start(numbered(item("a", END, "exit", "3")))
        self.wait_for_starts(2)
        ballast = self.home + "/ballast"
        self.fill_disk(ballast)

        # The last page of the log still has space.
        def starts_without_a_record():
            size, count = os.path.getsize(launcher.log_path), len(self.starts())
            self.wait_for_starts(count + 3)
            return size == os.path.getsize(launcher.log_path)

        self.wait_for(starts_without_a_record, "the log to stop growing")
        os.remove(ballast)
        lost = re.compile(r"\[QV7LOG    \] (\d+) records were lost")

        def notices():
            found = [lost.fullmatch(text) for _, text in log_of(launcher.log_path)]
            return [index for index, match in enumerate(found) if match]

        (notice,) = self.wait_for(notices, "the notice about lost records")
        self.wait_for_starts(len(self.starts()) + 3)
        launcher.kill()

        every = []
        for start in self.starts():
            every += [("DEBUG", start_text("a")), ("ERROR", end_text("a", start.pid, 3 * 256))]
        log = log_of(launcher.log_path)
        count = int(lost.fullmatch(log[notice][1])[1])
        self.assertGreaterEqual(count, 6)
        self.assertEqual(every[:notice], log[:notice])
        again = log[notice + 1 :]
        self.assertGreaterEqual(len(again), 5)
        # The last child may have been killed before it noted its start.
        every.append(("DEBUG", start_text("a")))
        self.assertEqual(every[notice + count :][: len(again)], again)


class SystemLog(LauncherTest):
    def test_too_few_arguments_exit_without_one(self):
        os.remove("/dev/log")
        self.assertEqual(0, self.start_with([]).wait())

    def test_items_run_without_one_and_without_a_log(self):
        os.remove("/dev/log")
        self.write(self.home + "/Library/Logs", "not a directory")
        launcher = self.start(numbered(item("a")), level_file=None)
        self.wait_for_starts(1)
        self.assertEqual(1, launcher.stop())


class Signals(LauncherTest):
    def test_sigkill_leaves_the_helpers_running_unsupervised(self):
        launcher = self.start(numbered(item("a", STAY, "a"), item("b", STAY, "b")))
        self.wait_for_starts(2)
        launcher.settle()
        launcher.send(signal.SIGKILL)
        self.assertEqual(-signal.SIGKILL, launcher.wait())
        self.assertEqual([1, 1], [process.parent for process in processes()])
        os.kill(self.starts("a")[0].pid, signal.SIGKILL)
        # Several times the restart pause.
        self.holds_for(0.3, lambda: len(self.starts()) == 2, "a helper was restarted")
        self.assertEqual([start_text("a"), start_text("b")], sorted(t for _, t in launcher.log()))
        self.assert_left_behind(["stay"])

    @unittest.skipIf(SANITIZE == "thread", "ThreadSanitizer has a thread of its own")
    def test_sigterm_on_a_supervisor_thread_aborts(self):
        # The system prefers the main thread. Here a supervisor gets the signal and would have to
        # join itself.
        launcher = self.start(numbered(item("a")))
        (child,) = self.wait_for_starts(1)
        launcher.settle()
        (supervisor,) = set(map(int, launcher.switches())) - {launcher.pid}
        self.assertEqual(0, ctypes.CDLL(None).tgkill(launcher.pid, supervisor, signal.SIGTERM))
        self.assertEqual(-signal.SIGABRT, launcher.wait())
        # The handler killed the child before it aborted; no thread was left to log that.
        self.wait_for(lambda: self.reap() or child.pid in self.ended, "the child to end")
        self.assertEqual(-signal.SIGKILL, self.ended[child.pid])
        self.assertEqual([("DEBUG", start_text("a"))], launcher.log())


class Helpers(LauncherTest):
    def start_one(self, how):
        launcher = self.start(numbered(item("a", MISBEHAVE, how)))
        return launcher, self.wait_for_starts(1)[0]

    def test_one_that_ignores_signals_is_killed(self):
        launcher, helper = self.start_one("ignore")
        os.kill(helper.pid, signal.SIGTERM)
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [("DEBUG", start_text("a")), ("ERROR", end_text("a", helper.pid, 9))], launcher.log()
        )

    def test_a_stopped_one_is_not_restarted_and_is_killed_in_the_end(self):
        launcher = self.start(numbered(item("a")))
        (helper,) = self.wait_for_starts(1)
        os.kill(helper.pid, signal.SIGSTOP)

        def is_stopped():
            return [p.state for p in processes() if p.pid == helper.pid] == ["T"]

        self.wait_for(is_stopped, "the helper to be stopped")
        self.holds_for(0.3, lambda: len(launcher.log()) == 1, "an unexpected record")
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [("DEBUG", start_text("a")), ("ERROR", end_text("a", helper.pid, 9))], launcher.log()
        )

    def test_one_that_closes_every_descriptor_is_restarted_as_usual(self):
        launcher, first = self.start_one("close")
        self.assertEqual([], os.listdir(f"/proc/{first.pid}/fd"))
        os.kill(first.pid, signal.SIGTERM)
        second = self.wait_for_starts(2)[1]
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [
                ("DEBUG", start_text("a")),
                ("ERROR", end_text("a", first.pid, 15)),
                ("DEBUG", start_text("a")),
                ("ERROR", end_text("a", second.pid, 9)),
            ],
            launcher.log(),
        )

    def test_the_children_of_one_are_not_killed(self):
        launcher, detached = self.start_one("leave")
        (direct,) = [p.pid for p in processes() if p.parent == launcher.pid]
        self.assertNotEqual(direct, detached.pid)
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [("DEBUG", start_text("a")), ("ERROR", end_text("a", direct, 9))], launcher.log()
        )
        self.assert_left_behind(["misbehave"])

    def test_one_that_detaches_is_restarted(self):
        launcher, _ = self.start_one("detach")
        self.wait_for_starts(4)
        launcher.kill()
        log = launcher.log()
        self.assertEqual({("DEBUG", start_text("a"))}, set(log[::2]))
        for _, text in log[1::2]:
            pid = int(re.search(r"a (\d+) is killed", text)[1])
            self.assertEqual(end_text("a", pid, 0), text)
            self.assertNotIn(pid, [start.pid for start in self.starts()])
        # Every detached process is still running.
        left = [process.pid for process in processes()]
        self.assertEqual(sorted(start.pid for start in self.starts()), sorted(left))
        self.kill_all()


if __name__ == "__main__":
    namespace.main()
