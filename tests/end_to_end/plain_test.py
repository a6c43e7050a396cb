"""The end-to-end tests that are harmless outside a namespace; macOS has none and runs only these.

No list here makes the launcher signal a process group or every process: all names differ, every
program can be executed, and SIGTERM is sent only once every item is running. The bundle is a copy
with its own product name, so that the user's log and settings are not touched.
"""

import json
import os
import pwd
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import namespace
from launcher import DEADLINE, SANITIZER_OPTIONS, item, numbered
from log import NO_NAME, PARSE_ERROR, end_text, parse_record, parse_start, read_lines, start_text
from namespace import HELPERS, HOME, STAGE
from processes import read_status, switches_of_threads

ON_LINUX = sys.platform == "linux"
STAGE = STAGE if ON_LINUX else os.environ["KESTRANE_STAGE"]
HELPERS = HELPERS if ON_LINUX else os.environ["KESTRANE_HELPERS"]
STAY = HELPERS + "/stay"
END = HELPERS + "/end"


class Plain(unittest.TestCase):
    # Used by namespace.py on Linux.
    home = HOME
    disk_size = None

    def setUp(self):
        self.work = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.work)
        self.contents = self.work + "/Kestrane.app/Contents"
        shutil.copytree(STAGE + "/Kestrane.app/Contents", self.contents)
        name = f"Kestrane Test {os.path.basename(self.work)}"
        self.write(self.contents + "/Frameworks/qv7api.ini", f"[SDK]\nNAME={name}\n")
        library = pwd.getpwuid(os.getuid()).pw_dir + "/Library"
        for directory in (f"{library}/Logs/{name}", f"{library}/Application Support/{name}"):
            self.addCleanup(shutil.rmtree, directory, ignore_errors=True)
        self.write(f"{library}/Application Support/{name}/log.ini", "[LOG]\nLEVEL=DEBUG\n")
        self.log_path = f"{library}/Logs/{name}/qv7log"
        self.starts_path = self.work + "/starts"

    def write(self, path, text):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def start(self, *arguments):
        launcher = subprocess.Popen(
            [self.contents + "/MacOS/launcher", *arguments],
            env={"KESTRANE_TEST_STARTS": self.starts_path, **SANITIZER_OPTIONS},
            cwd=self.work,
            start_new_session=True,
        )
        self.addCleanup(self.end, launcher)
        return launcher

    def start_on(self, launch_list):
        text = launch_list if isinstance(launch_list, str) else json.dumps(launch_list)
        return self.start("Kestrane Test", self.write(self.work + "/list.json", text))

    def end(self, launcher):
        """Kills a launcher that a failed test left running, with its helpers."""
        if launcher.poll() is None:
            os.killpg(launcher.pid, signal.SIGKILL)
            launcher.wait()

    def wait_for(self, condition, what):
        end = time.monotonic() + DEADLINE
        while not condition():
            if time.monotonic() > end:
                self.fail(f"timed out waiting for {what}")
            time.sleep(0.01)

    def starts(self):
        return [parse_start(line) for line in read_lines(self.starts_path)]

    def wait_for_starts(self, count):
        self.wait_for(lambda: len(self.starts()) >= count, f"{count} starts of helpers")
        return self.starts()

    def log(self):
        records = map(parse_record, read_lines(self.log_path))
        return [(record.level, record.text) for record in records]

    def stop(self, launcher):
        # On Linux, /proc shows when the handler is installed and when every thread sleeps. Elsewhere
        # nothing shows that main waits and that every supervisor has stored its child's process id;
        # one second is long enough.
        if ON_LINUX:
            self.wait_for(lambda: self.catches_sigterm(launcher), "the launcher's handler")
            self.wait_for(lambda: self.sleeps(launcher), "every thread to sleep")
        time.sleep(1)
        launcher.send_signal(signal.SIGTERM)
        return launcher.wait(DEADLINE)

    def catches_sigterm(self, launcher):
        caught = int(read_status(f"/proc/{launcher.pid}/status")["SigCgt"], 16)
        return caught >> (signal.SIGTERM - 1) & 1 != 0

    def sleeps(self, launcher):
        before = switches_of_threads(launcher.pid)
        time.sleep(0.01)
        return before is not None and before == switches_of_threads(launcher.pid)

    def is_gone(self, pid):
        try:
            os.kill(pid, 0)
        except ProcessLookupError:
            return True
        return False

    def test_too_few_arguments_exit_with_status_0(self):
        self.assertEqual(0, self.start().wait(DEADLINE))
        self.assertEqual(0, self.start("Kestrane Test").wait(DEADLINE))
        self.assertFalse(os.path.exists(self.log_path))

    def test_a_missing_list_exits_without_a_record(self):
        launcher = self.start("Kestrane Test", self.work + "/missing.json")
        self.assertEqual(0, launcher.wait(DEADLINE))
        self.assertFalse(os.path.exists(self.log_path))

    def test_an_invalid_list_exits_with_a_record(self):
        self.assertEqual(0, self.start_on("{").wait(DEADLINE))
        self.assertEqual([("ERROR", PARSE_ERROR)], self.log())

    def test_an_empty_list_waits_for_sigterm(self):
        self.assertEqual(1, self.stop(self.start_on({})))
        self.assertEqual([], self.log())

    def test_items_run_with_their_arguments_until_sigterm(self):
        launcher = self.start_on(numbered(item("a", STAY, "--mode", "é x"), {}, item("b", STAY)))
        starts = {len(start.arguments): start for start in self.wait_for_starts(2)}
        self.assertEqual([STAY.encode(), b"--mode", "é x".encode()], starts[3].arguments)
        self.assertEqual([STAY.encode()], starts[1].arguments)
        self.assertEqual(1, self.stop(launcher))
        for start in starts.values():
            self.assertTrue(self.is_gone(start.pid))
        expected = [
            ("DEBUG", start_text("a")),
            ("ERROR", NO_NAME),
            ("DEBUG", start_text("b")),
            ("ERROR", end_text("a", starts[3].pid, signal.SIGKILL)),
            ("ERROR", end_text("b", starts[1].pid, signal.SIGKILL)),
        ]
        self.assertEqual(sorted(expected), sorted(self.log()))

    def test_a_killed_helper_is_restarted(self):
        launcher = self.start_on(numbered(item("a", STAY)))
        (first,) = self.wait_for_starts(1)
        os.kill(first.pid, signal.SIGTERM)
        second = self.wait_for_starts(2)[1]
        self.assertIn(("ERROR", end_text("a", first.pid, signal.SIGTERM)), self.log())
        self.assertEqual(1, self.stop(launcher))
        self.assertTrue(self.is_gone(second.pid))

    def test_an_exited_helper_is_restarted_after_the_pause(self):
        launcher = self.start_on(numbered(item("a", END, "exit", "3")))
        starts = self.wait_for_starts(4)
        # No SIGTERM: its handler may run on a supervisor that is about to fork.
        self.end(launcher)
        for earlier, later in zip(starts, starts[1:]):
            self.assertGreaterEqual(later.nanoseconds - earlier.nanoseconds, 50_000_000)
            self.assertIn(("ERROR", end_text("a", earlier.pid, 3 * 256)), self.log())

    def test_a_helper_inherits_the_log_as_its_only_descriptor(self):
        launcher = self.start_on(numbered(item("a", HELPERS + "/inherit")))
        self.wait_for_starts(1)
        lines = read_lines(self.work + "/inherited")
        inode = os.stat(self.log_path).st_ino
        # The process that runs the tests may ignore signals, and the helper inherits that.
        found = [line for line in lines if not line.startswith(("environment ", "signal "))]
        self.assertEqual(f"descriptor 0: inode {inode} write-only append", found[0])
        self.assertEqual(f"group {launcher.pid}", found[1])
        self.assertTrue(found[2].startswith("mask "))
        self.assertEqual(3, len(found), found)
        self.assertIn(f"environment KESTRANE_TEST_STARTS={self.starts_path}", lines)
        self.assertEqual(1, self.stop(launcher))

    def test_a_program_of_the_bundle_finds_the_product(self):
        program = shutil.copy(HELPERS + "/locations", self.contents + "/MacOS/locations")
        launcher = self.start_on(numbered(item("a", program)))
        self.wait_for_starts(1)
        found = dict(line.split("=", 1) for line in read_lines(self.work + "/locations"))
        user = pwd.getpwuid(os.getuid())
        self.assertEqual(os.path.realpath(self.contents + "/Frameworks"), found["GetAppPath"])
        self.assertEqual(f"Kestrane Test {os.path.basename(self.work)}", found["GetSDKName"])
        self.assertEqual(user.pw_dir, found["GetHomePath"])
        self.assertEqual(user.pw_name, found["GetUserName"])
        self.assertEqual("false", found["IsFinderSync"])
        self.assertEqual(1, self.stop(launcher))


if __name__ == "__main__":
    if ON_LINUX:
        namespace.main()
    else:
        unittest.main()
