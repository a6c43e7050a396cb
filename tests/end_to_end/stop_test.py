"""The stop on SIGTERM."""

import ctypes
import os
import signal
import time

import harness
from harness import MANY, NO_NAME
from harness import end_text, item, nameless, numbered, start_text, without_nameless


class Stop(harness.LauncherTest):
    def test_three_items_are_ended_one_after_another(self):
        names = ["a", "b", "c"]
        launcher = self.start(numbered(*(item(name, harness.STAY, name) for name in names)))
        self.wait_for_starts(3)
        launcher.settle()
        began = time.monotonic()
        launcher.send(signal.SIGTERM)
        self.assertEqual(1, launcher.wait())
        self.assertGreaterEqual(time.monotonic() - began, 0.150)

        pids = {name: self.starts(name)[0].pid for name in names}
        log = launcher.log()
        self.assertEqual(sorted(("DEBUG", start_text(name)) for name in names), sorted(log[:3]))
        self.assertEqual(
            sorted(("ERROR", end_text(name, pids[name], 9)) for name in names), sorted(log[3:])
        )
        self.assertEqual({launcher.pid}, {record.pid for record in launcher.records()})

    def test_an_empty_list_stops_at_once(self):
        # Less than the one pause that a single item takes; the machine may be busy now and then.
        self.assertLess(min(self.seconds_to_stop_nothing() for _ in range(5)), 0.050)

    def seconds_to_stop_nothing(self):
        launcher = self.start({})
        launcher.settle()
        began = time.monotonic()
        launcher.send(signal.SIGTERM)
        self.assertEqual(1, launcher.wait())
        self.assertEqual([], launcher.log())
        return time.monotonic() - began

    def test_on_a_supervisor_thread_it_aborts(self):
        # There the handler joins the very thread that it runs on.
        launcher = self.start(numbered(item("a")))
        self.wait_for_starts(1)
        launcher.settle()
        supervisor = max(int(thread) for thread in os.listdir(f"/proc/{launcher.pid}/task"))
        ctypes.CDLL(None).tgkill(launcher.pid, supervisor, signal.SIGTERM)
        self.assertEqual(-signal.SIGABRT, launcher.wait())
        self.assertEqual([("DEBUG", start_text("a"))], launcher.log())

    def test_during_the_restart_pause_nothing_is_started_again(self):
        hit = next(filter(None, (self.stop_in_the_pause() for _ in range(10))), None)
        self.assertIsNotNone(hit, "never hit the pause")
        child, launcher = hit
        self.assertEqual(1, launcher.wait())
        self.assertEqual(
            [("DEBUG", start_text("a")), ("ERROR", end_text("a", child.pid, 15))], launcher.log()
        )

    def stop_in_the_pause(self):
        """A child that ended and its launcher, which got SIGTERM in the pause; None when the pause
        was missed: the next child may then be left alone and keep the launcher waiting."""
        launcher = self.start(numbered(item("a")))
        (child,) = self.wait_for_starts(1)
        launcher.settle()
        os.kill(child.pid, signal.SIGTERM)
        self.wait_for(lambda: len(launcher.log()) >= 2, "the end of the child")
        launcher.send(signal.SIGTERM)
        self.wait_for(lambda: not launcher.running() or len(launcher.log()) > 2, "the stop")
        if len(launcher.log()) == 2:
            return child, launcher
        self.kill_all()
        return None

    def test_a_request_during_the_walk_is_lost_and_the_next_one_counts(self):
        launcher = self.start(numbered(*nameless(MANY)))
        self.wait_for(launcher.log, "the walk")
        launcher.send(signal.SIGTERM)
        self.assertLess(len(launcher.log()), MANY, "the walk was over before the signal")
        self.wait_for(lambda: len(launcher.log()) == MANY, "the end of the walk")
        launcher.settle()
        self.assertTrue(launcher.running())
        launcher.send(signal.SIGTERM)
        self.assertEqual(1, launcher.wait())
        self.assertEqual([("ERROR", NO_NAME)] * MANY, launcher.log())

    def test_a_request_during_the_walk_ends_only_what_is_there(self):
        # The handler may not meet the walk just anywhere, since it allocates like the walk. So the
        # signal is sent while the walk waits 50 ms for the end of a replaced item.
        launcher = next(filter(None, (self.stop_in_the_walk() for _ in range(10))), None)
        self.assertIsNotNone(launcher, "never hit the replacement")
        (third,) = self.wait_for_starts(1, "3")
        launcher.settle()
        self.assertTrue(launcher.running())
        self.assertNotIn(("ERROR", end_text("b", third.pid, 9)), launcher.log())

        launcher.send(signal.SIGTERM)
        self.assertEqual(1, launcher.wait())
        (first,), (second,) = self.starts("1"), self.starts("2")
        log = without_nameless(launcher.log())
        self.assertEqual(
            [
                ("ERROR", end_text("a", first.pid, 9)),
                ("ERROR", end_text("a", second.pid, 9)),
                ("DEBUG", start_text("b")),
                ("ERROR", end_text("b", third.pid, 9)),
            ],
            [entry for entry in log if entry != ("DEBUG", start_text("a"))],
        )

    def stop_in_the_walk(self):
        """A launcher that got SIGTERM while it replaced "a"; None when the time was missed."""
        launcher = self.start(
            numbered(
                item("a", harness.STAY, "1"),
                *nameless(MANY),
                item("a", harness.STAY, "2"),
                *nameless(MANY),
                item("b", harness.STAY, "3"),
            )
        )
        self.wait_for_starts(1, "2")
        (first,) = self.starts("1")
        self.wait_for(lambda: not os.path.exists(f"/proc/{first.pid}"), "the end of the first")
        self.wait_for(launcher.switches, "every thread sleeps")
        launcher.send(signal.SIGTERM)
        if launcher.log().count(("ERROR", NO_NAME)) == MANY:
            return launcher
        self.kill_all()
        return None

    def test_other_signals_end_the_launcher_alone(self):
        for number in (signal.SIGHUP, signal.SIGINT, signal.SIGUSR1):
            with self.subTest(number):
                launcher = self.start(numbered(item("a")))
                self.wait_for_starts(1)
                launcher.send(number)
                self.assertEqual(-number, launcher.wait())
                self.assertEqual([("DEBUG", start_text("a"))], launcher.log())
                self.assert_left_behind(["stay"])


if __name__ == "__main__":
    harness.main()
