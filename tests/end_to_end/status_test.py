"""Compares the output of `launchlist status` with running launchers whose state the test knows."""

import json
import os
import shutil
import signal
import subprocess
import time

import namespace
from launcher import (
    END,
    LAUNCHER,
    STAY,
    WORK,
    LauncherTest,
    LimitedUserTest,
    counts_threads,
    item,
    numbered,
)
from launchlist_test import LAUNCHLIST
from namespace import HELPERS
from processes import processes

LIST = WORK + "/list.json"
TITLE = HELPERS + "/title"
MISBEHAVE = HELPERS + "/misbehave"

RUNNING, SOME_DO_NOT, NO_LAUNCHER = 0, 1, 3


def by_name(launcher):
    return {entry["name"]: entry for entry in launcher["items"]}


class StatusTest(LauncherTest):
    def status(self, *arguments, expected=None):
        """The parsed output. Every text is also printed once, which must not fail."""
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

    def test_which_of_several_fail_is_said_only_if_it_is_known(self):
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
        entries = [item("same", STAY, "old")] + [{}] * 20000 + [item("same", STAY, "new")]
        launcher = self.start(numbered(*entries), level_file=None)
        (new,) = self.wait_for_starts(1, "new")
        launcher.settle()
        (entry,) = self.status(expected=SOME_DO_NOT)["launchers"]
        self.assertEqual("replaced", entry["items"][0]["state"])
        self.assert_process(entry["items"][20001], new)
        self.assertIsNone(entry["items"][20001]["restarts"], "the log has one name for both")
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


class Hostile(StatusTest):
    def test_names_and_arguments(self):
        names = ["\x1b[2J", "a\nb", "\u202e", "", "x" * 5000, "é€😀", '"', "\\", "%s%n", "\x7f"]
        launcher = self.start(
            numbered(*(item(name, STAY, f"{i}", name) for i, name in enumerate(names)))
        )
        self.wait_for_starts(len(names))
        items = self.items(expected=RUNNING)
        self.assertEqual(set(names), set(items))
        self.text()
        self.assertEqual(1, launcher.stop())

    def test_process_titles(self):
        """A process may write any command line, also that of another item."""
        path = WORK + "/victim"
        shutil.copy(STAY, path)
        launcher = self.start(
            numbered(
                item("liar", TITLE, path),
                item("victim", path),
                item("hostile", TITLE, "\x1b[2J\u202e" + "x" * 30),
                item("empty", TITLE, ""),
                item("stays", STAY, "stays"),
            )
        )
        pids = {start.arguments[0]: start.pid for start in self.wait_for_starts(5)}
        items = self.items()
        self.assertEqual(pids[STAY.encode()], items["stays"]["process"]["pid"])
        self.assertEqual(pids[path.encode()], items["victim"]["process"]["pid"])
        self.assertEqual("arguments", items["victim"]["matched_by"])
        # These three run the same program, and none has the command line of its item.
        self.status(expected=RUNNING)
        for name in ("liar", "hostile", "empty"):
            self.assertEqual("executable", items[name]["matched_by"])
            self.assertIsNotNone(items[name]["group"])
        self.text()
        self.assertEqual(1, launcher.stop())

    def test_two_items_of_one_command_line(self):
        launcher = self.start(numbered(item("a"), item("b"), item("c", STAY, "c")))
        self.wait_for_starts(3)
        (entry,) = self.status(expected=RUNNING)["launchers"]
        self.assertEqual([{"running": 2, "items": [0, 1]}], entry["groups"])
        pids = {part["process"]["pid"] for part in entry["items"]}
        self.assertEqual({start.pid for start in self.starts()}, pids)
        self.assertIn("which process belongs to which item is unknown", self.text())
        self.assertEqual(1, launcher.stop())

    def test_a_script(self):
        path = self.write(WORK + "/script", f"#!/bin/sh -e\n{STAY} of-script; :\n")
        os.chmod(path, 0o755)
        launcher = self.start(numbered(item("script", path, "x", "y z")))
        self.wait_for_starts(1)
        entry = self.items(expected=RUNNING)["script"]
        self.assertEqual("interpreter", entry["matched_by"])
        launcher.stop()
        self.kill_all()

    def test_programs_that_only_look_like_launchers(self):
        launcher = self.start(numbered(item("a", STAY, "a")))
        self.wait_for_starts(1)
        # Another program with the launcher's command line, and one with its name.
        shutil.copy(STAY, WORK + "/launcher")
        imitation = os.fork()
        if imitation == 0:
            environment = {"KESTRANE_TEST_STARTS": self.starts_path}
            os.execve(STAY, [LAUNCHER, "Kestrane Test", LIST], environment)
        named = self.spawn([WORK + "/launcher", "Kestrane Test", LIST])
        self.wait_for_starts(3)
        (entry,) = self.status(expected=RUNNING)["launchers"]
        self.assertEqual(launcher.pid, entry["pid"])
        os.kill(imitation, signal.SIGKILL)
        os.kill(named, signal.SIGKILL)
        self.assertEqual(1, launcher.stop())

    def test_launchers_that_end_while_they_are_examined(self):
        self.write(LIST, json.dumps(numbered(*(item(str(i), STAY, str(i)) for i in range(20)))))
        for number in range(30):
            launcher = self.start_with(["name", LIST])
            running = subprocess.Popen(
                [LAUNCHLIST, "status", "--json"], stdout=subprocess.PIPE, stderr=subprocess.PIPE
            )
            time.sleep(0.002 * (number % 15))  # another moment each time
            launcher.send(signal.SIGKILL)  # It may have no process group yet.
            output, errors = running.communicate()
            self.assertEqual(b"", errors)
            status = json.loads(output)
            self.assertIn(running.returncode, (RUNNING, SOME_DO_NOT, NO_LAUNCHER))
            for entry in status["launchers"]:
                self.assertEqual(launcher.pid, entry["pid"])
            launcher.wait()
            self.kill_all()


class Leftovers(StatusTest):
    def test_helpers_whose_launcher_was_killed(self):
        launcher = self.start(numbered(item("a", STAY, "a"), item("b", MISBEHAVE, "close")))
        self.wait_for_starts(2)
        launcher.send(signal.SIGKILL)
        launcher.wait()
        pids = {start.arguments[1].decode(): start.pid for start in self.starts()}
        status = self.status(expected=NO_LAUNCHER)
        # Without a list, only the log that a helper inherited shows where it comes from.
        self.assertEqual(
            [("has-log", pids["a"])],
            [(left["kind"], left["pid"]) for left in status["leftovers"]],
        )
        status = self.status(LIST, expected=NO_LAUNCHER)
        self.assertEqual(
            {("helper", pids["a"], "a"), ("same-command", pids["close"], "b")},
            {(left["kind"], left["pid"], left["items"][0]["name"]) for left in status["leftovers"]},
        )
        self.assertIn("is a helper whose launcher or supervisor has ended", self.text(LIST))
        # The next launcher starts them a second time.
        second = self.spawn([LAUNCHER, "name", LIST])
        self.wait_for_starts(4)
        self.wait_for_states(a="running", b="running")
        status = self.status(expected=RUNNING)
        self.assertEqual({pids["a"], pids["close"]}, {left["pid"] for left in status["leftovers"]})
        self.assertEqual(second, status["launchers"][0]["pid"])
        self.kill_all()

    def test_supervisors_whose_launcher_was_killed(self):
        launcher = self.start(numbered(item("bad", WORK + "/missing")))
        self.wait_for(lambda: len(processes()) > 4, "a chain of processes")
        launcher.send(signal.SIGKILL)
        launcher.wait()
        status = self.status(expected=NO_LAUNCHER)
        self.assertEqual({"supervisor"}, {left["kind"] for left in status["leftovers"]})
        self.assertEqual({LIST}, {left["list"] for left in status["leftovers"]})
        self.assertGreater(len(status["leftovers"]), 2)
        self.assertIn("left behind by failed starts", self.text())
        self.kill_all()

    def test_children_of_helpers_are_none(self):
        launcher = self.start(numbered(item("a", MISBEHAVE, "leave")))
        self.wait_for_starts(1)
        self.wait_for_states(a="running")
        self.assertEqual([], self.status()["leftovers"])
        launcher.stop()
        self.kill_all()

    def test_programs_that_read_the_log_are_none(self):
        launcher = self.start(numbered(item("a")))
        self.wait_for_starts(1)
        with open(self.log_path(), "rb") as log:
            reader = subprocess.Popen(
                [STAY, "reader"], stdin=log, env={"KESTRANE_TEST_STARTS": self.starts_path}
            )
        self.wait_for_starts(1, "reader")
        self.assertEqual([], self.status()["leftovers"])
        reader.kill()
        reader.wait()
        self.assertEqual(1, launcher.stop())


class Permissions(LimitedUserTest, StatusTest):
    def become_other(self):
        os.setgroups([])
        os.setgid(65534)
        os.setuid(65534)

    def run_as(self, become, *arguments):
        return subprocess.run(
            [LAUNCHLIST, "status", *arguments],
            capture_output=True,
            check=False,
            preexec_fn=become,
            env={"HOME": self.home, **self.sanitizer_options},
        )

    @counts_threads
    def test_a_fork_that_fails_abandons_the_item(self):
        # The launcher, its two supervisors and one child; the second fork fails.
        launcher = self.start_limited(numbered(item("a", STAY, "a"), item("b", STAY, "b")), 4)
        self.wait_for(
            lambda: any("Failed to fork" in record.text for record in launcher.records()),
            "a failed fork",
        )
        (start,) = self.wait_for_starts(1)

        def become():
            os.setgroups([])
            os.setgid(os.stat(f"/proc/{launcher.pid}").st_gid)
            os.setuid(os.stat(f"/proc/{launcher.pid}").st_uid)

        run = self.run_as(become, "--json")
        self.assertEqual(SOME_DO_NOT, run.returncode, run.stderr)
        (entry,) = json.loads(run.stdout)["launchers"]
        states = sorted(part["state"] for part in entry["items"])
        self.assertEqual(["abandoned", "running"], states)
        for part in entry["items"]:
            if part["state"] == "running":
                self.assertEqual(start.pid, part["process"]["pid"])
            else:
                self.assertRegex(part["reason"], "^the launcher could not fork at ")
        self.kill_all()
        launcher.wait()

    def test_another_users_launcher(self):
        launcher = self.start(numbered(item("a")))
        self.wait_for_starts(1)
        run = self.run_as(self.become_other)
        self.assertEqual(NO_LAUNCHER, run.returncode)
        self.assertEqual(b"No launcher of this user is running.\n", run.stdout)
        self.assertEqual(1, launcher.stop())

    def test_a_launcher_that_may_not_be_examined(self):
        """The system protects the processes of a program that its user may not read."""
        contents = self.copy_bundle(WORK + "/copy")
        program = contents + "/MacOS/launcher"
        os.chmod(program, 0o711)
        os.chmod(WORK, 0o755)
        self.write(self.level_path(), "[LOG]\nLEVEL=DEBUG\n")
        path = self.write(LIST, json.dumps(numbered(item("a"))))
        launcher = self.start_with(
            ["name", path],
            program=program,
            before=lambda: self.become_limited(100),
            environment={"HOME": self.home},
        )
        self.wait_for_starts(1)
        run = self.run_as(lambda: self.become_limited(100))
        self.assertEqual(NO_LAUNCHER, run.returncode, run.stderr)
        self.assertIn(f"Process {launcher.pid} may be a launcher".encode(), run.stdout)
        self.assertEqual(1, launcher.stop())

    def test_a_list_and_a_log_that_may_not_be_read(self):
        launcher = self.start_limited(numbered(item("a")), 100)
        self.wait_for_starts(1)
        os.chmod(LIST, 0)
        os.chown(self.log_path(), 0, 0)
        os.chmod(self.log_path(), 0o600)
        run = self.run_as(lambda: self.become_limited(100), "--json")
        self.assertEqual(SOME_DO_NOT, run.returncode, run.stderr)
        (entry,) = json.loads(run.stdout)["launchers"]
        self.assertEqual("Permission denied", entry["list_error"])
        self.assertEqual("Permission denied", entry["log_error"])
        self.assertEqual(1, len(entry["other_children"]))
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
