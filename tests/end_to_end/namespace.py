"""Runs each test case as process 1 of its own PID namespace.

Some launch lists signal a whole process group or every process of the user. bubblewrap therefore
gives each case a new PID namespace and session, an empty /tmp, its own password file and, in the
case's setUp, its own system log socket; the rest of the file system is read-only.

CTest passes the directories under test in KESTRANE_STAGE, KESTRANE_HELPERS and KESTRANE_OTHER_LOG.
Each case appends the processor time of its processes to the file that KESTRANE_USAGE names, if any.
"""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

# Paths inside the namespace.
STAGE = "/tmp/stage"
HELPERS = "/tmp/helpers"
OTHER_LOG = "/tmp/other_log"
HOME = "/tmp/home"

# Exit status of a case in which AddressSanitizer deadlocked, and how often such a case is retried.
# Unlike malloc, the sanitizer does not reset its locks at a fork: a child that was forked while
# another thread held one waits for it forever.
DEADLOCKED = 75
MAX_RUNS = 5

# Exit status of a file whose cases cannot run here; CTest reports them as skipped.
SKIPPED = 77


def main():
    """Runs the cases of the calling file that are named on the command line, or all of them."""
    if sys.platform != "linux":
        print("skipped: some lists signal every process, and only Linux has PID namespaces")
        sys.exit(SKIPPED)
    if os.getpid() == 1:
        sys.exit(run_here(sys.argv[1]))
    names = sys.argv[1:] or [case.id().split(".", 1)[1] for case in all_cases()]
    failed = [name for name in names if not passes(name)]
    print(f"{len(names)} cases, {len(failed)} failed")
    sys.exit(1 if failed or not names else 0)


def all_cases():
    def flatten(suite):
        for entry in suite:
            if isinstance(entry, unittest.TestSuite):
                yield from flatten(entry)
            else:
                yield entry

    return flatten(unittest.defaultTestLoader.loadTestsFromModule(sys.modules["__main__"]))


def run_here(name):
    """Runs one case in this process and returns its exit status."""
    result = unittest.TestResult()
    unittest.defaultTestLoader.loadTestsFromName(name, sys.modules["__main__"]).run(result)
    for _, text in result.failures + result.errors:
        print(text)
    for _, reason in result.skipped:
        print(f"{name} skipped: {reason}")
    if "KESTRANE_USAGE" in os.environ:
        with open(os.environ["KESTRANE_USAGE"], "a", encoding="utf-8") as file:
            file.write(f"{sum(os.times()[:4]):.2f} {name}\n")
    return 0 if result.testsRun == 1 and result.wasSuccessful() else 1


def passes(name):
    """Runs one case in a new namespace; returns whether it passed."""
    began = time.monotonic()
    case = getattr(sys.modules["__main__"], name.split(".")[0])
    arguments = [os.path.abspath(sys.argv[0]), name]
    for _ in range(MAX_RUNS):
        status = run_in_namespace(arguments, case.home, case.disk_size).returncode
        verdict = {0: "ok", DEADLOCKED: "HUNG"}.get(status, "FAILED")
        print(f"{verdict:6} {time.monotonic() - began:5.1f} s  {name}", flush=True)
        if status != DEADLOCKED:
            break
    return status == 0


def heed_signals():
    """Undoes what a shell does to background jobs: programs would inherit that they ignore these."""
    for number, handler in (
        (signal.SIGINT, signal.default_int_handler),
        (signal.SIGQUIT, signal.SIG_DFL),
    ):
        if signal.getsignal(number) == signal.SIG_IGN:
            signal.signal(number, handler)


def run_in_namespace(arguments, home=HOME, disk_size=None, **options):
    """Runs Python with `arguments` as process 1 of a new namespace. `options` and the result are
    those of subprocess.run."""
    heed_signals()
    bwrap = shutil.which("bwrap")
    if bwrap is None:
        sys.exit("bwrap is not installed (package bubblewrap); nothing was tested")
    command = [bwrap, "--unshare-pid", "--as-pid-1", "--die-with-parent", "--new-session"]
    command += ["--ro-bind", "/", "/", "--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp"]
    if disk_size is not None:
        command += ["--size", str(disk_size), "--tmpfs", home]
    # The tests are bound too, since they may be below the /tmp that is hidden.
    here = os.path.dirname(os.path.abspath(__file__))
    mounts = {
        here: here,
        os.environ["KESTRANE_STAGE"]: STAGE,
        os.environ["KESTRANE_HELPERS"]: HELPERS,
        os.environ["KESTRANE_OTHER_LOG"]: OTHER_LOG,
    }
    for outside, inside in mounts.items():
        command += ["--ro-bind", outside, inside]
    # Sanitizer reports and coverage counters are written here.
    if "KESTRANE_WRITABLE" in os.environ:
        command += ["--bind", os.environ["KESTRANE_WRITABLE"], os.environ["KESTRANE_WRITABLE"]]
    with tempfile.TemporaryFile() as passwd:
        passwd.write(f"tester:x:{os.getuid()}:{os.getgid()}::{home}:/bin/sh\n".encode())
        passwd.seek(0)
        command += ["--ro-bind-data", str(passwd.fileno()), "/etc/passwd"]
        command += ["--chdir", "/", sys.executable, "-B"] + arguments
        return subprocess.run(command, pass_fds=[passwd.fileno()], check=False, **options)
