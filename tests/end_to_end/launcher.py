"""Black-box tests of the launcher in its staged bundle.

A case starts the launcher on a list and examines its log records, its exit status and the processes
that are left. It runs as process 1 of its own PID namespace (namespace.py).
"""

import ctypes
import json
import os
import random
import resource
import shutil
import signal
import socket
import time
import unittest

from log import parse_event, parse_record, parse_start, read_lines
from namespace import DEADLOCKED, HELPERS, HOME, STAGE
from processes import processes, read_status, switches_of_threads, waits_for_lock

WORK = "/tmp/work"
BUNDLE = STAGE + "/Kestrane.app"
LAUNCHER = BUNDLE + "/Contents/MacOS/launcher"
STAY = HELPERS + "/stay"
END = HELPERS + "/end"
APPLICATION = "Kestrane Test"

# How long a condition may take to come true on a busy machine. An emulated launcher needs more.
DEADLINE = float(os.environ.get("KESTRANE_DEADLINE", "20"))

# Whether the launcher is a program for macOS, which runs on a model of the system
# (scripts/macos/test.sh). Files, processes and limits are those of Linux.
MACOS = os.environ.get("KESTRANE_SYSTEM") == "macOS"

# The sanitizers that the launcher is built with, and their options, which name their report files.
SANITIZE = os.environ.get("KESTRANE_SANITIZE", "")
SANITIZER_OPTIONS = {k: v for k, v in os.environ.items() if k.endswith("SAN_OPTIONS")}
# For processes in which leaks cannot be detected, or in which reachable memory looks leaked.
WITHOUT_LEAKS = {k: v + ":detect_leaks=0" for k, v in SANITIZER_OPTIONS.items()}
counts_threads = unittest.skipIf(
    SANITIZE == "thread", "ThreadSanitizer's own thread counts towards the limit"
)

# The wait statuses of a child that aborted, without and with a core file.
ABORTED = (6, 6 + 128)

# A user without any other process. The system counts a user's processes across namespaces, so a
# limit must not count those of another case that runs at the same time.
UNIQUE_USER = random.randrange(1_000_000, 2_000_000_000)

# This many nameless items keep main busy while an item before them starts. An emulated launcher
# needs fewer (scripts/macos/test.sh).
MANY = int(os.environ.get("KESTRANE_MANY", "20000"))


def process_limit(processes, threads):
    """The limit on a user's processes that leaves room for these processes and for this many
    further threads of the launcher, which only Linux counts."""
    return processes if MACOS else processes + threads


def item(name, program=STAY, *arguments):
    """One item of a launch list."""
    return {
        "name": name,
        "program": program,
        "argc": len(arguments),
        "args": {str(i): argument for i, argument in enumerate(arguments)},
    }


def numbered(*items):
    """A launch list of these items: "0", "1" and so on."""
    return {str(i): entry for i, entry in enumerate(items)}


def nameless(count):
    """Items that only take time: each is skipped, and the launcher logs a record for it."""
    return [{}] * count


def sanitizer_deadlocked():
    """Whether a forked child that has not yet executed its program waits for a lock, which can only
    be AddressSanitizer's."""
    launchers = {process.pid for process in processes() if process.name == "launcher"}
    children = [process.pid for process in processes() if process.parent in launchers]
    return "address" in SANITIZE and any(
        pid in launchers and waits_for_lock(pid) for pid in children
    )


class Launcher:
    """A launcher that was started in its own process group."""

    def __init__(self, test, pid, log_path):
        self._test = test
        self.pid = pid
        self.log_path = log_path

    def records(self):
        return [parse_record(line) for line in read_lines(self.log_path)]

    def log(self):
        """The level and the text of each record."""
        return [(record.level, record.text) for record in self.records()]

    def send(self, number):
        os.kill(self.pid, number)

    def send_to_thread(self, thread, number):
        self._test.assertEqual(0, ctypes.CDLL(None).tgkill(self.pid, thread, number))

    def catches(self, number):
        """Whether the launcher has a handler for a signal."""
        caught = int(read_status(f"/proc/{self.pid}/status")["SigCgt"], 16)
        return caught >> (number - 1) & 1 != 0

    def running(self):
        self._test.reap()
        return self.pid not in self._test.ended

    def settle(self):
        """Waits until the main thread and every supervisor are blocked in their waits.

        An earlier SIGTERM would be lost or would signal the whole process group: a start that a
        child reported does not prove that its supervisor has stored the process id."""

        def settled():
            before = self.switches()
            time.sleep(0.01)
            return before is not None and before == self.switches()

        self._test.wait_for(settled, "every thread of the launcher to sleep")

    def switches(self):
        return switches_of_threads(self.pid)

    def wait(self):
        """Waits for the launcher to end. Returns its exit status, or the negative signal number."""
        self._test.wait_for(lambda: not self.running(), "the launcher to end")
        return self._test.ended[self.pid]

    def kill(self):
        """Kills the launcher and its children.

        For lists whose items restart all the time. SIGTERM could be delivered to a supervisor that
        is inside fork(); the handler would then wait forever for threads that need fork's locks."""
        os.killpg(self.pid, signal.SIGKILL)
        self._test.assertEqual(-signal.SIGKILL, self.wait())

    def stop(self):
        """Sends SIGTERM to the main thread once every thread sleeps; returns what wait() returns.

        The system chooses the main thread, too, unless a supervisor that restarts an item takes the
        signal on its way out of fork()."""
        self.settle()
        self.send_to_thread(self.pid, signal.SIGTERM)
        return self.wait()


class LauncherTest(unittest.TestCase):
    """Gives each case an empty home directory and checks afterwards that no process is left."""

    # The launcher reads it from the password file.
    home = HOME
    sanitizer_options = SANITIZER_OPTIONS
    # The size in bytes of a separate file system for the home directory; None: it is part of /tmp.
    disk_size = None
    maxDiff = 4000

    def setUp(self):
        if os.getpid() != 1:
            self.fail("must run as process 1 of a PID namespace")
        self.ended = {}
        self._events = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._events.setblocking(False)
        self._events.bind("/dev/log")
        os.chmod("/dev/log", 0o666)  # for every user, as usual
        os.makedirs(self.home, exist_ok=True)
        os.makedirs(WORK)
        os.chdir(WORK)
        # Aborted children leave no core file, unless the system pipes core dumps to a program.
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

    def tearDown(self):
        self.assert_left_behind([])
        self.assertEqual([], self.events(), "unexpected system events")
        self._events.close()

    def assert_left_behind(self, expected_names):
        """Asserts the names of the processes that are left, and kills them all."""

        def names():
            self.reap()
            return sorted(process.name for process in processes())

        # A killed process takes a moment to disappear.
        end = time.monotonic() + 5
        while names() != sorted(expected_names) and time.monotonic() < end:
            time.sleep(0.005)
        left = processes()
        if left:
            self.kill_all()
        self.assertEqual(sorted(expected_names), sorted(process.name for process in left), left)

    # Paths in the home directory.

    def log_path(self, sdk_name="Kestrane"):
        return f"{self.home}/Library/Logs/{sdk_name}/qv7log"

    def level_path(self, sdk_name="Kestrane"):
        return f"{self.home}/Library/Application Support/{sdk_name}/log.ini"

    def write(self, path, text):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(text if isinstance(text, bytes) else text.encode())
        return path

    def set_level(self, text):
        """Writes the level file, or removes it if `text` is None."""
        if text is not None:
            self.write(self.level_path(), text)
        elif os.path.exists(self.level_path()):
            os.remove(self.level_path())

    # Starting programs.

    def start(self, launch_list, level_file="[LOG]\nLEVEL=DEBUG\n", **options):
        """Starts the launcher on a list: JSON text in bytes, or an object for json.dumps.
        Removes the log and the noted starts of an earlier launcher."""
        text = launch_list if isinstance(launch_list, bytes) else json.dumps(launch_list).encode()
        self.set_level(level_file)
        return self.start_with([APPLICATION, self.write(WORK + "/list.json", text)], **options)

    def start_with(self, arguments, program=LAUNCHER, environment=None, before=lambda: None):
        """Starts the launcher with these arguments. `before` runs in the new process."""
        for path in (self.log_path(), self.starts_path):
            if os.path.exists(path):
                os.remove(path)
        return Launcher(
            self, self.spawn([program] + arguments, environment, before), self.log_path()
        )

    def spawn(self, argv, environment=None, before=lambda: None):
        """Runs a program in a new process group and returns its process id."""
        variables = {
            "KESTRANE_TEST_STARTS": self.starts_path,
            **self.sanitizer_options,
            **(environment or {}),
        }
        pid = os.fork()
        if pid == 0:
            try:
                os.setpgid(0, 0)
                # An ignored signal stays ignored across exec, and Python ignores some.
                for number in signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP}:
                    signal.signal(number, signal.SIG_DFL)
                before()
                os.execve(argv[0], argv, variables)
            finally:
                os._exit(127)
        return pid

    # Observing programs.

    starts_path = WORK + "/starts"

    def starts(self, *arguments):
        """The starts that helpers noted, in order; only those whose arguments begin with these."""
        wanted = [argument.encode() for argument in arguments]
        noted = [parse_start(line) for line in read_lines(self.starts_path)]
        return [start for start in noted if start.arguments[1 : 1 + len(wanted)] == wanted]

    def wait_for_starts(self, count, *arguments):
        self.wait_for(lambda: len(self.starts(*arguments)) >= count, f"{count} starts of helpers")
        return self.starts(*arguments)

    def events(self):
        """The system events since the previous call."""
        found = []
        while True:
            try:
                found.append(parse_event(self._events.recv(4096)))
            except BlockingIOError:
                return found

    def reap(self):
        """Reaps every ended process and stores its exit code. Process 1 inherits all orphans."""
        while True:
            try:
                pid, wait_status = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return
            if pid == 0:
                return
            self.ended[pid] = os.waitstatus_to_exitcode(wait_status)

    def wait_for(self, condition, what, seconds=DEADLINE):
        """Polls until the condition holds, and returns its value."""
        end = time.monotonic() + seconds
        while True:
            value = condition()
            if value:
                return value
            if time.monotonic() > end:
                if sanitizer_deadlocked():
                    os._exit(DEADLOCKED)  # the end of process 1 ends the namespace
                self.fail(f"timed out waiting for {what}")
            time.sleep(0.005)

    def holds_for(self, seconds, condition, what):
        """Asserts that the condition holds throughout this time."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.assertTrue(condition(), what)
            time.sleep(0.01)

    def kill_all(self):
        """Kills every process of the namespace except this one. The assertion matters: for any
        caller other than process 1, kill(-1) would kill the caller too."""
        assert os.getpid() == 1

        def none_left():
            # Repeated, since a process that is inside fork() may leave a child once.
            try:
                os.kill(-1, signal.SIGKILL)
            except ProcessLookupError:
                pass
            self.reap()
            return not processes()

        self.wait_for(none_left, "every process to end")

    def copy_bundle(self, directory):
        """Copies the staged bundle, so that it can be changed; returns the path of its Contents."""
        contents = directory + "/Kestrane.app/Contents"
        shutil.copytree(BUNDLE + "/Contents", contents)
        return contents


@unittest.skipUnless(os.getuid() == 0, "needs root, to become a user with a limit")
class LimitedUserTest(LauncherTest):
    """Runs the launcher as an ordinary user who may have only a few processes, threads included,
    and who cannot write everywhere; neither limit applies to root."""

    # Leak detection needs a further process.
    sanitizer_options = WITHOUT_LEAKS

    def setUp(self):
        super().setUp()
        # The password file has no entry for this user; the home directory comes from HOME.
        os.mkdir(self.home + "/Library")
        for directory in (self.home + "/Library", WORK):
            os.chown(directory, UNIQUE_USER, UNIQUE_USER)

    def become_limited(self, count):
        resource.setrlimit(resource.RLIMIT_NPROC, (count, count))
        os.setgroups([])
        os.setgid(UNIQUE_USER)
        os.setuid(UNIQUE_USER)

    def start_limited(self, launch_list, count, **options):
        return self.start(
            launch_list,
            before=lambda: self.become_limited(count),
            environment={"HOME": self.home},
            **options,
        )
