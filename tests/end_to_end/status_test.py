"""Compares the output of `launchlist status` with running launchers whose state the test knows."""

import json
import os
import re
import shutil
import signal
import subprocess
import time
import unittest

import namespace
from launcher import (
    END,
    LAUNCHER,
    MANY,
    SANITIZE,
    STAY,
    WORK,
    LauncherTest,
    item,
    nameless,
    numbered,
)
from launchlist_test import LAUNCHLIST
from processes import processes

LIST = WORK + "/list.json"

RUNNING, SOME_DO_NOT, NO_LAUNCHER = 0, 1, 3


def by_name(launcher):
    return {entry["name"]: entry for entry in launcher["items"]}


class StatusTest(LauncherTest):
    def status(self, *arguments, expected=None):
        """The parsed output."""
        run = subprocess.run(
            [LAUNCHLIST, "status", "--json", *arguments], capture_output=True, check=False
        )
        self.assertEqual(b"", run.stderr)
        self.assertIn(run.returncode, (RUNNING, SOME_DO_NOT, NO_LAUNCHER))
        if expected is not None:
            self.assertEqual(expected, run.returncode, run.stdout.decode())
        return json.loads(run.stdout)

    def text(self, *arguments):
        """The output for people, which must be printable whatever the names are."""
        text = subprocess.run(
            [LAUNCHLIST, "status", *arguments], stdout=subprocess.PIPE, check=False
        ).stdout.decode()
        self.assertRegex(text, r"\A[^\x00-\x09\x0b-\x1f\x7f-\x9f\u202a-\u202e]*\Z")
        return text

    def items(self, *arguments, expected=None):
        """The items of the only launcher, by name."""
        (launcher,) = self.status(*arguments, expected=expected)["launchers"]
        return by_name(launcher)

    def wait_for_states(self, **states):
        """Waits until the items have these states."""

        def has_states():
            # There is none until the process that becomes the launcher has executed its program.
            launchers = self.status()["launchers"]
            items = by_name(launchers[0]) if launchers else {}
            return items and {name: items[name]["state"] for name in states} == states and items

        return self.wait_for(has_states, f"the states {states}")

    def assert_process(self, entry, start):
        """Asserts that an item's process is the one that noted its start."""
        self.assertEqual("running", entry["state"])
        self.assertIsNone(entry["reason"])
        self.assertEqual(start.pid, entry["process"]["pid"])
        began = time.strptime(entry["process"]["start"][:19] + "Z", "%Y-%m-%dT%H:%M:%SZ")
        monotonic = time.clock_gettime(time.CLOCK_MONOTONIC)
        expected = time.time() - monotonic + start.nanoseconds / 1e9
        self.assertLess(abs(time.mktime(began) - time.timezone - expected), 3)
        with open(f"/proc/{start.pid}/statm", encoding="ascii") as file:
            pages = int(file.read().split()[1])
        self.assertLess(abs(entry["process"]["memory_bytes"] - pages * 4096), 1 << 20)


class Running(StatusTest):
    def test_no_launcher(self):
        status = self.status(expected=NO_LAUNCHER)
        self.assertEqual([], status["launchers"])
        self.assertEqual("No launcher of this user is running.\n", self.text())

    def test_every_item_runs(self):
        launcher = self.start(numbered(item("a", STAY, "a"), item("b", STAY, "b b", "")))
        starts = {start.arguments[1].decode(): start for start in self.wait_for_starts(2)}
        status = self.status(expected=RUNNING)
        (entry,) = status["launchers"]
        self.assertEqual(launcher.pid, entry["pid"])
        self.assertEqual(LIST, entry["list"])
        self.assertEqual("Kestrane Test", entry["application"])
        self.assertEqual(self.log_path(), entry["log"])
        self.assertEqual(LAUNCHER, entry["executable"])
        self.assertFalse(entry["list_may_have_changed"])
        self.assertEqual((2, 2), (entry["running"], entry["expected"]))
        self.assertEqual([], status["leftovers"])
        items = self.items()
        self.assert_process(items["a"], starts["a"])
        self.assert_process(items["b"], starts["b b"])
        self.assertEqual(0, items["a"]["restarts"])
        text = self.text()
        self.assertIn(f"launcher {launcher.pid}: 2 of 2 items run", text)
        self.assertRegex(text, rf"(?m)^a +running +{starts['a'].pid} ")
        self.assertEqual(1, launcher.stop())
        self.status(expected=NO_LAUNCHER)

    def test_restarts_are_counted(self):
        for level in ("[LOG]\nLEVEL=DEBUG\n", None):
            with self.subTest(level):
                launcher = self.start(numbered(item("a")), level_file=level)
                for count in (1, 2, 3):
                    start = self.wait_for_starts(count)[-1]
                    launcher.settle()
                    if count < 3:
                        os.kill(start.pid, signal.SIGTERM)
                entry = self.items(expected=RUNNING)["a"]
                self.assertEqual(2, entry["restarts"])
                self.assertEqual(2, entry["restarts_last_hour"])
                self.assert_process(entry, start)
                self.assertEqual(1, launcher.stop())

    def test_restarts_are_unknown_without_a_log(self):
        launcher = self.start(numbered(item("a")), level_file="[LOG]\nLEVEL=CRITICAL\n")
        self.wait_for_starts(1)
        self.assertIsNone(self.items()["a"]["restarts"])
        self.assertRegex(self.text(), r"(?m)^a +running .* \? ")
        self.assertEqual(1, launcher.stop())
        launcher = self.start(numbered(item("a")))
        self.wait_for_starts(1)
        os.remove(self.log_path())
        self.assertIsNone(self.items()["a"]["restarts"])
        self.assertIn("The log cannot be read: No such file or directory", self.text())
        self.assertEqual(1, launcher.stop())

    def test_an_item_that_keeps_ending(self):
        launcher = self.start(numbered(item("ends", END, "exit", "3"), item("stays")))
        self.wait_for_starts(5, "exit")
        entry = self.wait_for_states(ends="between-runs", stays="running")["ends"]
        self.assertRegex(entry["reason"], r"^exit status 3, 0\.\d+ s ago$")
        self.assertIsNone(entry["process"])
        ends = sum(" is killed. " in record.text for record in launcher.records())
        self.assertLess(abs(entry["restarts"] - ends), 20)
        self.assertGreaterEqual(entry["restarts"], 3)
        launcher.kill()

    def test_two_launchers(self):
        first = self.start(numbered(item("a", STAY, "a")))
        self.wait_for_starts(1)
        other = self.write(WORK + "/other.json", json.dumps(numbered(item("a", STAY, "other"))))
        second = self.spawn([LAUNCHER, "Other", other])
        self.wait_for_starts(1, "other")
        self.wait_for(lambda: len(self.status()["launchers"]) == 2, "two launchers")
        self.assertEqual(
            [first.pid, second], [entry["pid"] for entry in self.status()["launchers"]]
        )
        for path, pid in ((LIST, first.pid), ("other.json", second), ("./other.json", second)):
            (entry,) = self.status(path, expected=RUNNING)["launchers"]
            self.assertEqual(pid, entry["pid"])
        self.status("third.json", expected=NO_LAUNCHER)
        self.assertIn("with the list third.json", self.text("third.json"))
        self.assertEqual([], self.status()["leftovers"])
        os.kill(second, signal.SIGKILL)
        self.assertEqual(1, first.stop())
        self.kill_all()

    def test_a_relative_list(self):
        self.write(WORK + "/deep/list.json", json.dumps(numbered(item("a"))))
        launcher = self.start_with(["name", "./deep//list.json"], before=lambda: os.chdir(WORK))
        self.wait_for_starts(1)
        os.chdir("/")
        (entry,) = self.status(WORK + "/deep/list.json", expected=RUNNING)["launchers"]
        self.assertEqual(WORK + "/deep/list.json", entry["list"])
        os.chdir(WORK)
        self.assertEqual(1, launcher.stop())

    def test_a_launcher_whose_file_is_replaced_or_removed(self):
        contents = self.copy_bundle(WORK + "/copy")
        path = self.write(LIST, json.dumps(numbered(item("a"))))
        launcher = self.start_with(["name", path], program=contents + "/MacOS/launcher")
        self.wait_for_starts(1)
        # An upgrade renames the new file over the old one.
        shutil.copy(contents + "/MacOS/launcher", contents + "/MacOS/new")
        os.rename(contents + "/MacOS/new", contents + "/MacOS/launcher")
        (entry,) = self.status(expected=RUNNING)["launchers"]
        self.assertTrue(entry["executable_is_deleted"])
        self.assertEqual(contents + "/MacOS/launcher", entry["executable"])
        shutil.rmtree(WORK + "/copy")
        (entry,) = self.status(expected=RUNNING)["launchers"]
        self.assertTrue(entry["executable_is_deleted"])
        self.assertIn("has been removed or replaced", self.text())
        self.assertEqual(1, launcher.stop())

    @unittest.skipIf(
        "address" in SANITIZE, "of so many children, one always waits for the allocator"
    )
    def test_a_thousand_items(self):
        count = 1000
        launcher = self.start(numbered(*(item(f"n{i}", STAY, f"n{i}") for i in range(count))))
        starts = {start.arguments[1].decode(): start for start in self.wait_for_starts(count)}
        launcher.settle()
        items = self.items(expected=RUNNING)
        self.assertEqual(
            {name: start.pid for name, start in starts.items()},
            {name: entry["process"]["pid"] for name, entry in items.items()},
        )
        self.assertIn(f"{count} of {count} items run", self.text())
        # A stop takes 50 seconds. Examined meanwhile, no item has another one's process.
        launcher.send(signal.SIGTERM)
        self.wait_for(lambda: len(self.items()) and self.items()["n999"], "a status")
        for name, entry in self.items(expected=SOME_DO_NOT).items():
            if entry["process"] is not None:
                self.assertEqual(starts[name].pid, entry["process"]["pid"])
        launcher.kill()
        self.kill_all()


class NotRunning(StatusTest):
    def test_a_program_that_cannot_be_executed(self):
        for level in ("[LOG]\nLEVEL=DEBUG\n", None):
            with self.subTest(level):
                launcher = self.start(
                    numbered(item("bad", WORK + "/missing"), item("good", STAY, "good")),
                    level_file=level,
                )
                (good,) = self.wait_for_starts(1, "good")
                items = self.wait_for_states(bad="failing-to-start", good="running")
                self.assertEqual(good.pid, items["good"]["process"]["pid"])
                self.wait_for(
                    lambda: self.items(expected=SOME_DO_NOT)["bad"]["further_supervisors"] >= 3,
                    "further supervisors",
                )
                (entry,) = self.status()["launchers"]
                known = {process.pid for process in processes() if process.name == "launcher"}
                found = {process["pid"] for process in entry["further_supervisors"]}
                self.assertTrue(found < known, (found, known))
                self.assertEqual({0}, {child["item"] for child in entry["further_supervisors"]})
                self.assertRegex(
                    self.text(), r'(?m)^\d+ further supervisors, left behind .*: \d+ of "bad"\.'
                )
                self.kill_all()
                launcher.wait()

    def test_a_failing_item_is_named_only_if_it_is_known(self):
        launch_list = numbered(
            item("bad", WORK + "/missing"), item("worse", WORK + "/absent"), item("good")
        )
        launcher = self.start(launch_list)
        self.wait_for_states(bad="failing-to-start", worse="failing-to-start", good="running")

        def is_known():
            (entry,) = self.status()["launchers"]
            return {child["item"] for child in entry["further_supervisors"]} == {0, 1}

        # At DEBUG the log says which supervisor belongs to which item.
        self.wait_for(is_known, "the items of all supervisors")
        self.kill_all()
        launcher.wait()
        launcher = self.start(launch_list, level_file=None)
        self.wait_for_states(bad="failing-to-start", worse="failing-to-start", good="running")
        (entry,) = self.status()["launchers"]
        self.assertEqual({None}, {child["item"] for child in entry["further_supervisors"]})
        self.kill_all()
        launcher.wait()

    def test_a_program_that_appears_later(self):
        path = WORK + "/late"
        launcher = self.start(numbered(item("late", path)))
        self.wait_for_states(late="failing-to-start")
        shutil.copy(STAY, WORK + "/late.new")
        os.rename(WORK + "/late.new", path)
        (start,) = self.wait_for_starts(1)
        entry = self.wait_for_states(late="running")["late"]
        self.assertEqual(start.pid, entry["process"]["pid"])
        self.assertNotEqual(launcher.pid, entry["process"]["parent"])
        self.assertGreater(entry["further_supervisors"], 0)
        self.assertIn("runs under a further supervisor", self.text())
        self.kill_all()
        launcher.wait()

    def test_items_that_are_never_started(self):
        launcher = self.start(numbered({"program": STAY}, item("a")))
        self.wait_for_starts(1)
        (entry,) = self.status(expected=SOME_DO_NOT)["launchers"]
        self.assertEqual(
            [(None, "never-started"), ("a", "running")],
            [(part["name"], part["state"]) for part in entry["items"]],
        )
        self.assertEqual((1, 2), (entry["running"], entry["expected"]))
        self.assertEqual(1, launcher.stop())

    def test_an_item_that_was_replaced(self):
        entries = [item("same", STAY, "old")] + nameless(MANY) + [item("same", STAY, "new")]
        launcher = self.start(numbered(*entries), level_file=None)
        (new,) = self.wait_for_starts(1, "new")
        launcher.settle()
        (entry,) = self.status(expected=SOME_DO_NOT)["launchers"]
        self.assertEqual("replaced", entry["items"][0]["state"])
        self.assert_process(entry["items"][MANY + 1], new)
        self.assertIsNone(entry["items"][MANY + 1]["restarts"], "the log has one name for both")
        self.assertEqual(1, launcher.stop())

    def test_an_item_whose_arguments_cannot_be_converted(self):
        launcher = self.start(numbered({"name": "a", "program": STAY, "argc": "1"}))
        self.wait_for(lambda: len(launcher.log()) >= 3, "a restart")
        entry = self.items(expected=SOME_DO_NOT)["a"]
        self.assertIn(entry["state"], ("failing-to-start", "between-runs", "starting"))
        self.assertIsNone(entry["process"])
        launcher.kill()

    def test_a_list_that_changed(self):
        launcher = self.start(numbered(item("a", STAY, "a")))
        self.wait_for_starts(1)
        self.holds_for(0.2, launcher.running, "the launcher ended")
        self.write(LIST, json.dumps(numbered(item("a", STAY, "a"), item("b", STAY, "b"))))
        items = self.items(expected=SOME_DO_NOT)
        self.assertEqual("running", items["a"]["state"])
        self.assertEqual("never-started", items["b"]["state"])
        self.assertIn("The list may have changed", self.text())
        os.remove(LIST)
        (entry,) = self.status(expected=SOME_DO_NOT)["launchers"]
        self.assertEqual("No such file or directory", entry["list_error"])
        self.assertEqual([f"{STAY} a"], [other["command"] for other in entry["other_children"]])
        self.assertEqual(1, launcher.stop())


class Watch(StatusTest):
    def test_it_redraws_until_it_is_interrupted(self):
        launcher = self.start(numbered(item("a")))
        (first,) = self.wait_for_starts(1)
        output = WORK + "/output"
        with open(output, "wb") as file:
            watch = subprocess.Popen([LAUNCHLIST, "status", "--watch", "0.1", LIST], stdout=file)

        def blocks():
            with open(output, encoding="utf-8") as text:
                return text.read().split("\nlauncher ")

        self.wait_for(lambda: len(blocks()) >= 3, "three blocks")
        self.assertTrue(all(f" {first.pid} " in block for block in blocks()[:2]))
        launcher.settle()
        os.kill(first.pid, signal.SIGTERM)
        second = self.wait_for_starts(2)[1]
        self.wait_for(lambda: f" {second.pid} " in blocks()[-2], "the new process")
        self.assertRegex(blocks()[-2], rf"(?m)^a +running +{second.pid} +\S+ +1 +1 ")
        self.assertIsNone(watch.poll())
        watch.send_signal(signal.SIGINT)
        self.assertEqual(-signal.SIGINT, watch.wait())
        self.assertEqual(1, launcher.stop())

    def test_it_prints_every_ten_seconds_while_nothing_changes(self):
        launcher = self.start(numbered(item("a")))
        self.wait_for_starts(1)
        output = WORK + "/output"
        with open(output, "wb") as file:
            watch = subprocess.Popen([LAUNCHLIST, "status", "--watch", LIST], stdout=file)

        def statuses():
            with open(output, encoding="utf-8") as text:
                return len(re.findall(r"(?m)^launcher \d+", text.read()))

        # After the first two, the logs and lists are known.
        self.wait_for(lambda: statuses() >= 3, "three statuses")
        time.sleep(5)
        self.assertEqual(3, statuses())
        self.wait_for(lambda: statuses() >= 4, "the status after ten seconds")
        began = time.monotonic()
        os.utime(self.log_path())
        self.wait_for(lambda: statuses() >= 5, "the status after a change of the log")
        self.assertLess(time.monotonic() - began, 8)
        watch.kill()
        watch.wait()
        self.assertEqual(1, launcher.stop())

    def test_it_clears_a_terminal(self):
        controller, terminal = os.openpty()
        environment = {**self.sanitizer_options, "TERM": "xterm"}
        watch = subprocess.Popen(
            [LAUNCHLIST, "status", "--watch", "0.1"], stdout=terminal, env=environment
        )
        output = b""
        while output.count(b"No launcher") < 3:
            output += os.read(controller, 4096)
        watch.kill()
        watch.wait()
        os.close(terminal)
        os.close(controller)
        line = b"No launcher of this user is running.\r\n"
        self.assertTrue(output.startswith(line + b"\x1b[H\x1b[2J" + line + b"\x1b[H\x1b[2J"))

    def test_it_waits_for_a_launcher(self):
        watch = subprocess.Popen(
            [LAUNCHLIST, "status", "--watch", LIST, "--json"], stdout=subprocess.PIPE
        )
        decoder = json.JSONDecoder()
        text = ""
        while "}\n" not in text:
            text += os.read(watch.stdout.fileno(), 1 << 16).decode()
        self.assertEqual([], decoder.decode(text)["launchers"])
        launcher = self.start(numbered(item("a")))
        self.wait_for_starts(1)
        text = ""
        while '"running"' not in text:
            text += os.read(watch.stdout.fileno(), 1 << 16).decode()
        watch.kill()
        watch.wait()
        watch.stdout.close()
        self.assertEqual(1, launcher.stop())


if __name__ == "__main__":
    namespace.main()
