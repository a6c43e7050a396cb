"""What the launcher does when the system fails it, and when its helpers misbehave."""

import ctypes
import errno
import os
import re
import resource
import signal
import unittest

import harness
from harness import APPLICATION, END, HELPERS, MANY, PARSE_ERROR, STAY
from harness import end_text, item, nameless, numbered, start_text, without_nameless

MISBEHAVE = HELPERS + "/misbehave"

# More processes than any case of a limited user has.
ENOUGH = 9

# Where a record begins; a text cannot contain one (docs/log-format.md).
TIME = re.compile(r"(?=\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z )")


def log_of(path):
    """The records of a log in which other things may stand between them. What is not a record has
    no line end, so that the next record follows on its line."""
    records = [harness.parse_record(TIME.split(line)[-1]) for line in harness.read_lines(path)]
    return [(record.level, record.text) for record in records]


@harness.one_thread_more
class Fork(harness.LimitedUserTest):
    def test_the_first_of_a_later_item(self):
        # Room for the main thread, both supervisors, and one child.
        launcher = self.start_limited(numbered(item("a"), *nameless(MANY), item("b")), 4)
        (first,) = self.wait_for_starts(1)
        self.wait_for(lambda: ("ERROR", "[LAUNCHER  ] Failed to fork b") in launcher.log(), "b")
        # The other item is kept running.
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

    def test_a_later_one(self):
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

        # The item is given up, even when there is room again. The other one is not.
        self.set_limit(launcher, ENOUGH)
        os.kill(b.pid, signal.SIGKILL)
        self.wait_for_starts(2, "b")
        self.holds_for(0.3, lambda: expected == log_of_a(), "no second try")

        # The stop signals every process that the user may signal.
        same_user = self.spawn(["/bin/sleep", "1000"], before=lambda: self.become_limited(ENOUGH))
        other_user = self.spawn(["/bin/sleep", "1000"])
        self.assertEqual(1, launcher.stop())
        self.wait_for(lambda: self.reap() or same_user in self.ended, "the signal to every process")
        self.assertEqual(-signal.SIGKILL, self.ended[same_user])
        self.assertNotIn(other_user, self.ended)
        self.assert_left_behind(["sleep"])

    def test_in_the_chain_of_a_program_that_cannot_be_executed_kills_every_process(self):
        same_user = self.spawn(["/bin/sleep", "1000"], before=lambda: self.become_limited(ENOUGH))
        other_user = self.spawn(["/bin/sleep", "1000"])
        # Each child becomes a supervisor and forks another one, until the limit. Nobody stops the
        # launcher; the child that cannot fork ends, and signals all that its user may signal.
        launcher = self.start_limited(numbered(item("a", STAY + "-misspelt")), ENOUGH)
        self.assertEqual(-signal.SIGKILL, launcher.wait())
        self.wait_for(lambda: self.reap() or same_user in self.ended, "the signal to every process")
        self.assertEqual(-signal.SIGKILL, self.ended[same_user])
        self.assertNotIn(other_user, self.ended)
        log = [text for _, text in launcher.log()]
        self.assertEqual("[LAUNCHER  ] Failed to fork a", log.pop())
        # The launcher, its supervisor and the other process leave room for this many.
        self.assertEqual([start_text("a")] * (ENOUGH - 2), log)
        self.assert_left_behind(["sleep"])


@harness.one_thread_more
class Thread(harness.LimitedUserTest):
    def test_one_that_cannot_be_started_ends_the_children_before_it(self):
        # Room for the main thread, one supervisor and its child.
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


@unittest.skipIf(harness.SANITIZE, "sanitizers need memory without limits")
class Memory(harness.LauncherTest):
    # Nearly the longest that a program can be given.
    ARGUMENT = "x" * 130_000

    def test_a_child_without_ends_by_abort_until_there_is_some_again(self):
        # No memory in reserve: what the child copies has to be asked of the system.
        launcher = self.start(
            numbered(item("a", STAY, self.ARGUMENT)),
            environment={"MALLOC_MMAP_THRESHOLD_": "65536", "MALLOC_TOP_PAD_": "0"},
        )
        (first,) = self.wait_for_starts(1)
        launcher.settle()
        _, most = resource.prlimit(launcher.pid, resource.RLIMIT_DATA)
        # Not 0, which Linux takes as no limit.
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
            self.assertIn(text, [end_text("a", pid, status) for status in harness.ABORTED])


class LogFolder(harness.LimitedUserTest):
    def test_one_that_may_not_be_written(self):
        logs = os.path.dirname(self.log_path())
        os.makedirs(logs, mode=0o555)
        launcher = self.start_limited(numbered(item("a")), ENOUGH)
        (first,) = self.wait_for_starts(1)
        self.assertEqual(
            [f"Morvel Launcher for {APPLICATION} : Failed to initialize logger"],
            [event.text for event in self.events()],
        )
        # Items are kept running all the same.
        os.kill(first.pid, signal.SIGKILL)
        self.wait_for_starts(2)
        self.assertEqual(1, launcher.stop())
        self.assertEqual([], os.listdir(logs))

    def test_one_that_goes_away_and_may_not_be_written_for_a_while(self):
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

        os.chown(logs, harness.LONELY_USER, harness.LONELY_USER)
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [
                ("ERROR", "[QV7LOG    ] 2 records were lost"),
                ("ERROR", end_text("a", second.pid, 9)),
            ],
            launcher.log(),
        )


class Log(harness.LauncherTest):
    def test_one_that_is_removed_is_begun_anew(self):
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

    def test_one_that_its_helpers_fill_keeps_every_record(self):
        # The log is the helpers' standard input, and open for writing.
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


class FullDisk(harness.LauncherTest):
    disk_size = 256 * 1024

    def fill_disk(self, path):
        with open(path, "wb", buffering=0) as file:
            try:
                while True:
                    file.write(bytes(4096))
            except OSError as error:
                self.assertEqual(errno.ENOSPC, error.errno)

    def test_the_launcher_goes_on_and_tells_how_much_of_its_log_is_missing(self):
        launcher = self.start(numbered(item("a", END, "exit", "3")))
        self.wait_for_starts(2)
        ballast = self.home + "/ballast"
        self.fill_disk(ballast)

        # The log still has the rest of its last page.
        def starts_without_a_record():
            size, count = os.path.getsize(launcher.log_path), len(self.starts())
            self.wait_for_starts(count + 3)
            return size == os.path.getsize(launcher.log_path)

        self.wait_for(starts_without_a_record, "the log does not grow")
        os.remove(ballast)
        lost = re.compile(r"\[QV7LOG    \] (\d+) records were lost")

        def notices():
            found = [lost.fullmatch(text) for _, text in log_of(launcher.log_path)]
            return [index for index, match in enumerate(found) if match]

        (notice,) = self.wait_for(notices, "the word about lost records")
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
        # The last start may have had no time to be noted.
        every.append(("DEBUG", start_text("a")))
        self.assertEqual(every[notice + count :][: len(again)], again)


class SystemLog(harness.LauncherTest):
    def test_without_one_a_wrong_command_line_ends_as_ever(self):
        os.remove("/dev/log")
        self.assertEqual(0, self.start_with([]).wait())

    def test_without_one_and_without_a_log_the_launcher_goes_on(self):
        os.remove("/dev/log")
        self.write(self.home + "/Library/Logs", "not a folder")
        launcher = self.start(numbered(item("a")), level_file=None)
        self.wait_for_starts(1)
        self.assertEqual(1, launcher.stop())


class Signals(harness.LauncherTest):
    def test_sigkill_leaves_the_helpers_running_and_nobody_starts_them_again(self):
        launcher = self.start(numbered(item("a", STAY, "a"), item("b", STAY, "b")))
        self.wait_for_starts(2)
        launcher.settle()
        launcher.send(signal.SIGKILL)
        self.assertEqual(-signal.SIGKILL, launcher.wait())
        self.assertEqual([1, 1], [process.parent for process in harness.processes()])
        os.kill(self.starts("a")[0].pid, signal.SIGKILL)
        # Several times the pause.
        self.holds_for(0.3, lambda: len(self.starts()) == 2, "no further start")
        self.assertEqual([start_text("a"), start_text("b")], sorted(t for _, t in launcher.log()))
        self.assert_left_behind(["stay"])

    @unittest.skipIf(harness.SANITIZE == "thread", "ThreadSanitizer has a thread of its own")
    def test_sigterm_that_a_supervisor_takes_ends_by_abort(self):
        # The system gives it to the main thread, if it can. Here it is given to a supervisor, which
        # would have to wait for its own end.
        launcher = self.start(numbered(item("a")))
        (child,) = self.wait_for_starts(1)
        launcher.settle()
        (supervisor,) = set(map(int, launcher.switches())) - {launcher.pid}
        self.assertEqual(0, ctypes.CDLL(None).tgkill(launcher.pid, supervisor, signal.SIGTERM))
        self.assertEqual(-signal.SIGABRT, launcher.wait())
        # Its child was killed before; nobody was left to log that.
        self.wait_for(lambda: self.reap() or child.pid in self.ended, "the end of the child")
        self.assertEqual(-signal.SIGKILL, self.ended[child.pid])
        self.assertEqual([("DEBUG", start_text("a"))], launcher.log())


class Helpers(harness.LauncherTest):
    def start_one(self, how):
        launcher = self.start(numbered(item("a", MISBEHAVE, how)))
        return launcher, self.wait_for_starts(1)[0]

    def test_one_that_ignores_signals_is_ended(self):
        launcher, helper = self.start_one("ignore")
        os.kill(helper.pid, signal.SIGTERM)
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [("DEBUG", start_text("a")), ("ERROR", end_text("a", helper.pid, 9))], launcher.log()
        )

    def test_one_that_is_stopped_is_not_taken_for_ended_and_is_ended(self):
        launcher = self.start(numbered(item("a")))
        (helper,) = self.wait_for_starts(1)
        os.kill(helper.pid, signal.SIGSTOP)

        def is_stopped():
            return [p.state for p in harness.processes() if p.pid == helper.pid] == ["T"]

        self.wait_for(is_stopped, "the helper is stopped")
        self.holds_for(0.3, lambda: len(launcher.log()) == 1, "no further record")
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [("DEBUG", start_text("a")), ("ERROR", end_text("a", helper.pid, 9))], launcher.log()
        )

    def test_one_that_closes_every_descriptor_changes_nothing(self):
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

    def test_what_one_has_started_is_left_alone(self):
        launcher, detached = self.start_one("leave")
        (direct,) = [p.pid for p in harness.processes() if p.parent == launcher.pid]
        self.assertNotEqual(direct, detached.pid)
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [("DEBUG", start_text("a")), ("ERROR", end_text("a", direct, 9))], launcher.log()
        )
        self.assert_left_behind(["misbehave"])

    def test_one_that_detaches_counts_as_ended_and_is_started_again(self):
        launcher, _ = self.start_one("detach")
        self.wait_for_starts(4)
        launcher.kill()
        log = launcher.log()
        self.assertEqual({("DEBUG", start_text("a"))}, set(log[::2]))
        for _, text in log[1::2]:
            pid = int(re.search(r"a (\d+) is killed", text)[1])
            self.assertEqual(end_text("a", pid, 0), text)
            self.assertNotIn(pid, [start.pid for start in self.starts()])
        # All of them are running.
        left = [process.pid for process in harness.processes()]
        self.assertEqual(sorted(start.pid for start in self.starts()), sorted(left))
        self.kill_all()


if __name__ == "__main__":
    harness.main()
