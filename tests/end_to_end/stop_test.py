"""Stopping the launcher with SIGTERM."""

import os
import signal
import time

import namespace
from launcher import MANY, STAY, LauncherTest, item, nameless, numbered
from log import NO_NAME, end_text, start_text, without_nameless


class Stop(LauncherTest):
    def test_three_items_are_killed_one_after_another(self):
        names = ["a", "b", "c"]
        launcher = self.start(numbered(*(item(name, STAY, name) for name in names)))
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
        # Less than the restart pause of one item, at least once: the machine may be busy.
        self.assertTrue(any(self.seconds_to_stop_nothing() < 0.050 for _ in range(100)))

    def seconds_to_stop_nothing(self):
        launcher = self.start({})
        launcher.settle()
        began = time.monotonic()
        launcher.send(signal.SIGTERM)
        self.assertEqual(1, launcher.wait())
        self.assertEqual([], launcher.log())
        return time.monotonic() - began

    def test_a_handler_on_a_supervisor_thread_aborts(self):
        # The handler joins the thread that it runs on.
        launcher = self.start(numbered(item("a")))
        self.wait_for_starts(1)
        launcher.settle()
        supervisor = max(int(thread) for thread in os.listdir(f"/proc/{launcher.pid}/task"))
        launcher.send_to_thread(supervisor, signal.SIGTERM)
        self.assertEqual(-signal.SIGABRT, launcher.wait())
        self.assertEqual([("DEBUG", start_text("a"))], launcher.log())

    def test_sigterm_in_the_restart_pause_prevents_the_restart(self):
        hit = next(filter(None, (self.stop_in_the_pause() for _ in range(10))), None)
        self.assertIsNotNone(hit, "SIGTERM never arrived in the pause")
        child, launcher = hit
        self.assertEqual(1, launcher.wait())
        self.assertEqual(
            [("DEBUG", start_text("a")), ("ERROR", end_text("a", child.pid, 15))], launcher.log()
        )

    def stop_in_the_pause(self):
        """Sends SIGTERM in the pause after a child ended; returns the child and the launcher.

        None if the pause was missed: the launcher may then wait for the next child forever."""
        launcher = self.start(numbered(item("a")))
        (child,) = self.wait_for_starts(1)
        launcher.settle()
        os.kill(child.pid, signal.SIGTERM)
        self.wait_for(lambda: len(launcher.log()) >= 2, "the child to end")
        launcher.send(signal.SIGTERM)
        self.wait_for(
            lambda: not launcher.running() or len(launcher.log()) > 2, "the launcher to stop"
        )
        if len(launcher.log()) == 2:
            return child, launcher
        self.kill_all()
        return None

    def test_sigterm_while_the_list_is_read_is_lost(self):
        launcher = self.start(numbered(*nameless(MANY)))
        self.wait_for(launcher.log, "the first item")
        launcher.send(signal.SIGTERM)
        self.assertLess(len(launcher.log()), MANY, "the list was finished before the signal")
        self.wait_for(lambda: len(launcher.log()) == MANY, "the last item")
        launcher.settle()
        self.assertTrue(launcher.running())
        launcher.send(signal.SIGTERM)
        self.assertEqual(1, launcher.wait())
        self.assertEqual([("ERROR", NO_NAME)] * MANY, launcher.log())

    def test_sigterm_while_the_list_is_read_kills_only_the_items_so_far(self):
        # The handler allocates memory, so it would deadlock if it interrupted an allocation of the
        # main thread. The signal is therefore sent while main waits 50 ms for a replaced item.
        launcher = next(filter(None, (self.stop_during_the_replacement() for _ in range(10))), None)
        self.assertIsNotNone(launcher, "SIGTERM never arrived during the replacement")
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

    def stop_during_the_replacement(self):
        """Sends SIGTERM while the launcher replaces "a"; None if that was too late."""
        launcher = self.start(
            numbered(
                item("a", STAY, "1"),
                *nameless(MANY),
                item("a", STAY, "2"),
                *nameless(MANY),
                item("b", STAY, "3"),
            )
        )
        self.wait_for_starts(1, "2")
        (first,) = self.starts("1")
        self.wait_for(lambda: not os.path.exists(f"/proc/{first.pid}"), "the first child to end")
        self.wait_for(launcher.switches, "every thread to sleep")
        launcher.send(signal.SIGTERM)
        if launcher.log().count(("ERROR", NO_NAME)) == MANY:
            return launcher
        self.kill_all()
        return None

    def test_other_signals_end_only_the_launcher(self):
        for number in (signal.SIGHUP, signal.SIGINT, signal.SIGUSR1):
            with self.subTest(number):
                launcher = self.start(numbered(item("a")))
                self.wait_for_starts(1)
                launcher.send(number)
                self.assertEqual(-number, launcher.wait())
                self.assertEqual([("DEBUG", start_text("a"))], launcher.log())
                self.assert_left_behind(["stay"])


if __name__ == "__main__":
    namespace.main()
