"""Black-box tests of the launcher in its staged bundle: a list in, log records and exit status out.

Some lists signal a whole process group or every process. So each case runs in a PID namespace of
its own (bubblewrap), with the test as its process 1, an empty /tmp, a password file and a socket
for system events of its own; everything else is read-only. Outside, `main` starts one namespace
for each case. KESTRANE_STAGE and its sisters name the folders of what is tested, see run_in_namespace.
"""

import collections
import json
import os
import random
import re
import resource
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

# Where the parts lie inside the namespace.
STAGE = "/tmp/stage"
HELPERS = "/tmp/helpers"
OTHER_LOG = "/tmp/other_log"
HOME = "/tmp/home"
WORK = "/tmp/work"

BUNDLE = STAGE + "/Kestrane.app"
LAUNCHER = BUNDLE + "/Contents/MacOS/launcher"
STAY = HELPERS + "/stay"
END = HELPERS + "/end"
APPLICATION = "Kestrane Test"

# How long a condition may take to come true on a busy machine.
DEADLINE = 20.0

# The sanitizers that the launcher is built with, and what tells them where to write.
SANITIZE = os.environ.get("KESTRANE_SANITIZE", "")
one_thread_more = unittest.skipIf(
    SANITIZE == "thread", "ThreadSanitizer's own thread counts towards the limit"
)
SANITIZER_OPTIONS = {k: v for k, v in os.environ.items() if k.endswith("SAN_OPTIONS")}
# For processes that end where leaks cannot be looked for, or are seen that are none.
WITHOUT_LEAKS = {k: v + ":detect_leaks=0" for k, v in SANITIZER_OPTIONS.items()}

# The exit status of a case in which AddressSanitizer hung, and how often such a case may run. Unlike
# malloc's, the sanitizer's locks know nothing of fork: a child that was forked while another thread
# held one waits for it for ever.
HUNG = 75
MOST_RUNS = 5

# The exit status of a file whose cases cannot run here; CMakeLists.txt tells CTest.
SKIPPED = 77

NO_NAME = "[LAUNCHER  ] There is an item has no name."
PARSE_ERROR = "[LAUNCHER  ] Error while parsing saved json string."

LogRecord = collections.namedtuple("LogRecord", "time level pid text")
Event = collections.namedtuple("Event", "priority text")
Start = collections.namedtuple("Start", "pid nanoseconds arguments")
Process = collections.namedtuple("Process", "pid parent group state name")


# The wait status of a child that ended by abort, without and with a core file.
ABORTED = (6, 6 + 128)


def start_text(name):
    return f"[LAUNCHER  ] Start to fork {name}"


def end_text(name, pid, wait_status):
    return f"[LAUNCHER  ] {name} {pid} is killed. ret = {pid}, status = {wait_status}"


def item(name, program=STAY, *arguments):
    """One item of a launch list, with the arguments counted and numbered."""
    return {
        "name": name,
        "program": program,
        "argc": len(arguments),
        "args": {str(i): argument for i, argument in enumerate(arguments)},
    }


def numbered(*items):
    """A launch list of these items: "0", "1" and so on."""
    return {str(i): entry for i, entry in enumerate(items)}


# This many nameless items keep the walk busy while an item before them gets going. An emulated
# launcher needs fewer (scripts/macos/test.sh).
MANY = int(os.environ.get("KESTRANE_MANY", "20000"))


def nameless(count):
    """Items that only take up the walk's time: each is skipped, with a record in the log."""
    return [{}] * count


def without_nameless(log):
    return [entry for entry in log if entry != ("ERROR", NO_NAME)]


def parse_record(line):
    """One record of the log. The only place that knows its form."""
    match = re.fullmatch(
        r"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z) "
        r"(DEBUG   |MESSAGE |WARNING |ERROR   |CRITICAL|VERBOSE ) launcher\[(\d+)\] (.*)",
        line,
    )
    if match is None:
        raise AssertionError(f"not a log record: {line!r}")
    return LogRecord(match[1], match[2].rstrip(), int(match[3]), match[4])


def parse_event(datagram):
    match = re.fullmatch(r"<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d [^:]+: (.*)", datagram.decode())
    if match is None:
        raise AssertionError(f"not a system event: {datagram!r}")
    return Event(int(match[1]), match[2])


def parse_start(line):
    """What the helpers write (helpers/start_report.h)."""
    pid, nanoseconds, *arguments = line.split(" ")
    texts = []
    for argument in arguments:
        length, digits = argument.split(":")
        texts.append(bytes.fromhex(digits))
        assert len(texts[-1]) == int(length)
    return Start(int(pid), int(nanoseconds), texts)


def read_lines(path):
    """The complete lines of a file that others may be writing to; none when it does not exist."""
    try:
        with open(path, encoding="utf-8", errors="surrogateescape", newline="\n") as file:
            return file.read().split("\n")[:-1]
    except FileNotFoundError:
        return []


def processes():
    """Every process of the namespace but this one."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as file:
                head, tail = file.read().rsplit(")", 1)
        except (FileNotFoundError, ProcessLookupError):
            continue
        state, parent, group = tail.split()[:3]
        name = head.split("(", 1)[1]
        found.append(Process(int(pid), int(parent), int(group), state, name))
    return [process for process in found if process.pid != os.getpid()]


def sanitizer_hangs():
    """Whether a forked child that is no helper yet waits for a lock of AddressSanitizer's."""

    def waits_for_lock(pid):
        with open(f"/proc/{pid}/wchan", encoding="utf-8") as file:
            return file.read().startswith("futex_")

    launchers = {process.pid for process in processes() if process.name == "launcher"}
    children = [process.pid for process in processes() if process.parent in launchers]
    return "address" in SANITIZE and any(
        pid in launchers and waits_for_lock(pid) for pid in children
    )


def read_status(path):
    """A "status" file of /proc."""
    with open(path, encoding="utf-8", errors="replace") as file:
        return dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)


class Launcher:
    """A started launcher, in a process group of its own, and what it leaves behind."""

    def __init__(self, test, pid, log_path):
        self._test = test
        self.pid = pid
        self.log_path = log_path

    def records(self):
        return [parse_record(line) for line in read_lines(self.log_path)]

    def log(self):
        return [(record.level, record.text) for record in self.records()]

    def send(self, number):
        os.kill(self.pid, number)

    def catches(self, number):
        """Whether the launcher has a handler for a signal."""
        caught = int(read_status(f"/proc/{self.pid}/status")["SigCgt"], 16)
        return caught >> (number - 1) & 1 != 0

    def running(self):
        self._test.reap()
        return self.pid not in self._test.ended

    def settle(self):
        """Waits until main is in its wait and the supervisors in theirs. Before that, a stop request
        would be lost, or would signal the whole process group: a child that reports its start does
        not show that its supervisor already has its process id."""

        def settled():
            before = self.switches()
            time.sleep(0.01)
            return before is not None and before == self.switches()

        self._test.wait_for(settled, "every thread of the launcher sleeps")

    def switches(self):
        """The context switches of each thread; None while one is not asleep."""
        threads = {}
        for thread in os.listdir(f"/proc/{self.pid}/task"):
            status = read_status(f"/proc/{self.pid}/task/{thread}/status")
            if not status["State"].startswith("S"):
                return None
            threads[thread] = (
                int(status["voluntary_ctxt_switches"]),
                int(status["nonvoluntary_ctxt_switches"]),
            )
        return threads

    def wait(self):
        """How it ended: the exit status, or the negative number of the signal."""
        self._test.wait_for(lambda: not self.running(), "the launcher ends")
        return self._test.ended[self.pid]

    def kill(self):
        """Ends the launcher and its children by force. For lists whose items start again and again:
        a supervisor that is about to fork may take SIGTERM before main does, and the handler, in
        the middle of the fork, then waits for ever for threads that wait for the fork's locks."""
        os.killpg(self.pid, signal.SIGKILL)
        self._test.assertEqual(-signal.SIGKILL, self.wait())

    def stop(self):
        """The ordinary stop of items that stay; how it ended."""
        self.settle()
        self.send(signal.SIGTERM)
        return self.wait()


class LauncherTest(unittest.TestCase):
    """Gives each case a clean home, and takes the process list when the case is over."""

    # Taken from the password file by the launcher.
    home = HOME
    sanitizer_options = SANITIZER_OPTIONS
    # Of a disk for the home alone, in bytes; without one the home shares the memory of /tmp.
    disk_size = None
    maxDiff = 4000

    def setUp(self):
        if os.getpid() != 1:
            self.fail("only to be run in a PID namespace of its own")
        self.ended = {}
        self._events = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._events.setblocking(False)
        self._events.bind("/dev/log")
        os.chmod("/dev/log", 0o666)  # for every user, as usual
        os.makedirs(self.home, exist_ok=True)
        os.makedirs(WORK)
        os.chdir(WORK)
        # A child that ends by abort leaves no core file, but where the system pipes it to a program.
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

    def tearDown(self):
        self.assert_left_behind([])
        self.assertEqual([], self.events(), "system events that nobody asked for")
        self._events.close()

    def assert_left_behind(self, expected_names):
        """Asserts which processes stay, by name, and ends them all."""

        def names():
            self.reap()
            return sorted(process.name for process in processes())

        # What has been killed needs a moment to be gone.
        end = time.monotonic() + 5
        while names() != sorted(expected_names) and time.monotonic() < end:
            time.sleep(0.005)
        left = processes()
        if left:
            self.kill_all()
        self.assertEqual(sorted(expected_names), sorted(process.name for process in left), left)

    # Paths of the user's home.

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
        """Writes the level file; None takes it away."""
        if text is not None:
            self.write(self.level_path(), text)
        elif os.path.exists(self.level_path()):
            os.remove(self.level_path())

    # Starting.

    def start(self, launch_list, level_file="[LOG]\nLEVEL=DEBUG\n", **options):
        """Starts the launcher on a list (JSON text as bytes, or what json.dumps takes), with an
        empty log and no starts noted."""
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
        """Runs a program in a process group of its own."""
        variables = {
            "KESTRANE_TEST_STARTS": self.starts_path, **self.sanitizer_options, **(environment or {})
        }
        pid = os.fork()
        if pid == 0:
            try:
                os.setpgid(0, 0)
                # An ignored signal stays so: Python ignores some, and what ran us may have, too.
                for number in signal.valid_signals() - {signal.SIGKILL, signal.SIGSTOP}:
                    signal.signal(number, signal.SIG_DFL)
                before()
                os.execve(argv[0], argv, variables)
            finally:
                os._exit(127)
        return pid

    # Looking.

    starts_path = WORK + "/starts"

    def starts(self, *arguments):
        """The starts that helpers noted, in order; only those whose arguments begin like this."""
        wanted = [argument.encode() for argument in arguments]
        noted = [parse_start(line) for line in read_lines(self.starts_path)]
        return [start for start in noted if start.arguments[1 : 1 + len(wanted)] == wanted]

    def wait_for_starts(self, count, *arguments):
        self.wait_for(lambda: len(self.starts(*arguments)) >= count, f"{count} starts of helpers")
        return self.starts(*arguments)

    def events(self):
        """The system events since the last look."""
        found = []
        while True:
            try:
                found.append(parse_event(self._events.recv(4096)))
            except BlockingIOError:
                return found

    def reap(self):
        """Takes in every process that ended; as process 1 we inherit the orphans. Notes how."""
        while True:
            try:
                pid, wait_status = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return
            if pid == 0:
                return
            self.ended[pid] = os.waitstatus_to_exitcode(wait_status)

    def wait_for(self, condition, what, seconds=DEADLINE):
        """Polls until the condition holds; its value."""
        end = time.monotonic() + seconds
        while True:
            value = condition()
            if value:
                return value
            if time.monotonic() > end:
                if sanitizer_hangs():
                    os._exit(HUNG)  # this is process 1: nothing is left
                self.fail(f"in vain: {what}")
            time.sleep(0.005)

    def holds_for(self, seconds, condition, what):
        """Asserts that the condition holds all the time: for what must not happen."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.assertTrue(condition(), what)
            time.sleep(0.01)

    def kill_all(self):
        """Ends every process of the namespace. Process 1 is the one that this spares, so nothing
        else may call it."""
        assert os.getpid() == 1

        def none_left():
            # Again and again: what is in the middle of a fork may escape once.
            try:
                os.kill(-1, signal.SIGKILL)
            except ProcessLookupError:
                pass
            self.reap()
            return not processes()

        self.wait_for(none_left, "the end of every process")

    def copy_bundle(self, folder):
        """A copy of the staged bundle that may be changed; the path of its Contents."""
        contents = folder + "/Kestrane.app/Contents"
        shutil.copytree(BUNDLE + "/Contents", contents)
        return contents


# A user of no other process, so that a limit on the number of processes counts only ours: the system
# counts beyond a namespace, also those of another case that runs at the same time.
LONELY_USER = random.randrange(1_000_000, 2_000_000_000)


@unittest.skipUnless(os.getuid() == 0, "needs root, to become a user with a limit")
class LimitedUserTest(LauncherTest):
    """Cases of a launcher whose user may have so many processes only, threads counted, and may not
    write everywhere: root could."""

    # Leaks are looked for by a process more.
    sanitizer_options = WITHOUT_LEAKS

    def setUp(self):
        super().setUp()
        # The password file does not know this user; its home comes from the environment.
        os.mkdir(self.home + "/Library")
        for folder in (self.home + "/Library", WORK):
            os.chown(folder, LONELY_USER, LONELY_USER)

    def become_limited(self, count):
        resource.setrlimit(resource.RLIMIT_NPROC, (count, count))
        os.setgroups([])
        os.setgid(LONELY_USER)
        os.setuid(LONELY_USER)

    def start_limited(self, launch_list, count, **options):
        return self.start(
            launch_list,
            before=lambda: self.become_limited(count),
            environment={"HOME": self.home},
            **options,
        )


def main():
    """Runs the cases of the calling file: those named on the command line, or all."""
    if sys.platform != "linux":
        print("left out: lists here may signal every process, and only Linux has a PID namespace")
        sys.exit(SKIPPED)
    if os.getpid() == 1:
        sys.exit(run_here(sys.argv[1]))
    names = sys.argv[1:] or [case.id().split(".", 1)[1] for case in all_cases()]
    failed = [name for name in names if not passes(name)]
    print(f"{len(names)} cases, {len(failed)} failed")
    sys.exit(1 if failed or not names else 0)


def all_cases():
    def flat(suite):
        for entry in suite:
            if isinstance(entry, unittest.TestSuite):
                yield from flat(entry)
            else:
                yield entry

    return flat(unittest.defaultTestLoader.loadTestsFromModule(sys.modules["__main__"]))


def run_here(name):
    """Runs one case in this process; its exit status."""
    result = unittest.TestResult()
    unittest.defaultTestLoader.loadTestsFromName(name, sys.modules["__main__"]).run(result)
    for _, text in result.failures + result.errors:
        print(text)
    for _, reason in result.skipped:
        print(f"{name} left out: {reason}")
    return 0 if result.testsRun == 1 and result.wasSuccessful() else 1


def passes(name):
    """Runs one case in a namespace of its own."""
    began = time.monotonic()
    case = getattr(sys.modules["__main__"], name.split(".")[0])
    arguments = [os.path.abspath(sys.argv[0]), name]
    for _ in range(MOST_RUNS):
        status = run_in_namespace(arguments, case.home, case.disk_size).returncode
        verdict = {0: "ok", HUNG: "HUNG"}.get(status, "FAILED")
        print(f"{verdict:6} {time.monotonic() - began:5.1f} s  {name}", flush=True)
        if status != HUNG:
            break
    return status == 0


def run_in_namespace(arguments, home=HOME, disk_size=None, **options):
    """Runs Python with these arguments as process 1 of a namespace, as subprocess.run does."""
    bwrap = shutil.which("bwrap")
    if bwrap is None:
        sys.exit("bwrap is missing (package bubblewrap); nothing was tested")
    command = [bwrap, "--unshare-pid", "--as-pid-1", "--die-with-parent", "--new-session"]
    command += ["--ro-bind", "/", "/", "--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp"]
    if disk_size is not None:
        command += ["--size", str(disk_size), "--tmpfs", home]
    # The tests once more: they may lie below the /tmp that is hidden.
    here = os.path.dirname(os.path.abspath(__file__))
    places = {
        here: here,
        os.environ["KESTRANE_STAGE"]: STAGE,
        os.environ["KESTRANE_HELPERS"]: HELPERS,
        os.environ["KESTRANE_OTHER_LOG"]: OTHER_LOG,
    }
    for outside, inside in places.items():
        command += ["--ro-bind", outside, inside]
    # Where sanitizers write reports, and the compiler's counters are kept.
    if "KESTRANE_WRITABLE" in os.environ:
        command += ["--bind", os.environ["KESTRANE_WRITABLE"], os.environ["KESTRANE_WRITABLE"]]
    with tempfile.TemporaryFile() as passwd:
        passwd.write(f"tester:x:{os.getuid()}:{os.getgid()}::{home}:/bin/sh\n".encode())
        passwd.seek(0)
        command += ["--ro-bind-data", str(passwd.fileno()), "/etc/passwd"]
        command += ["--chdir", "/", sys.executable, "-B"] + arguments
        return subprocess.run(command, pass_fds=[passwd.fileno()], check=False, **options)
