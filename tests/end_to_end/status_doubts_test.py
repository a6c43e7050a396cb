"""What `launchlist status` makes of hostile processes, leftovers and missing permissions."""

import json
import os
import shutil
import signal
import subprocess
import time

import namespace
from launcher import (
    LAUNCHER,
    STAY,
    WORK,
    LimitedUserTest,
    counts_threads,
    item,
    numbered,
    process_limit,
)
from launchlist_test import LAUNCHLIST
from namespace import HELPERS
from processes import processes
from status_test import LIST, NO_LAUNCHER, RUNNING, SOME_DO_NOT, StatusTest

TITLE = HELPERS + "/title"
MISBEHAVE = HELPERS + "/misbehave"


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

    def test_children_of_helpers_are_not_leftovers(self):
        launcher = self.start(numbered(item("a", MISBEHAVE, "leave")))
        self.wait_for_starts(1)
        self.wait_for_states(a="running")
        self.assertEqual([], self.status()["leftovers"])
        launcher.stop()
        self.kill_all()

    def test_programs_that_read_the_log_are_not_leftovers(self):
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
        launcher = self.start_limited(
            numbered(item("a", STAY, "a"), item("b", STAY, "b")), process_limit(2, 2)
        )
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


if __name__ == "__main__":
    namespace.main()
