"""Measures how long a status takes and what watching costs; scripts/measure/status.sh runs this.

The launcher runs in a PID namespace, as in the end-to-end tests, whose modules this uses.
"""

import os
import pathlib
import signal
import statistics
import subprocess
import sys
import time

# Inside the namespace the script has no file.
TESTS = os.environ.get("KESTRANE_TESTS") or str(
    pathlib.Path(__file__).resolve().parents[2] / "tests/end_to_end"
)
sys.path.insert(0, TESTS)

import namespace  # noqa: E402
from launcher import BUNDLE, STAY, LauncherTest, item, numbered  # noqa: E402

LAUNCHLIST = BUNDLE + "/Contents/MacOS/launchlist"
ITEMS = 200
RUNS = 21
MAX_MILLISECONDS = 50
WATCH_SECONDS = 20
MAX_PERCENT = 0.1
LOG_SIZE = 10 * 1024 * 1024
OLD_LOGS = 5


def run_status():
    """The milliseconds that one status takes, and those of them that are processor time."""
    with open(os.devnull, "wb") as null:
        before = time.monotonic()
        pid = os.posix_spawn(
            LAUNCHLIST,
            [LAUNCHLIST, "status", "--json"],
            os.environ,
            file_actions=[(os.POSIX_SPAWN_DUP2, null.fileno(), 1)],
        )
        _, status, usage = os.wait4(pid, 0)
        elapsed = time.monotonic() - before
    assert os.waitstatus_to_exitcode(status) == 0, status
    return 1000 * elapsed, 1000 * (usage.ru_utime + usage.ru_stime)


def watch_percent():
    """The share of one processor that --watch uses after the first statuses."""
    with open(os.devnull, "wb") as null:
        watch = subprocess.Popen([LAUNCHLIST, "status", "--watch"], stdout=null)
    time.sleep(5)
    first = processor_time(watch.pid)
    began = time.monotonic()
    time.sleep(WATCH_SECONDS)
    used = processor_time(watch.pid) - first
    elapsed = time.monotonic() - began
    watch.send_signal(signal.SIGINT)
    watch.wait()
    return 100 * used / elapsed


def processor_time(pid):
    """In seconds. The scheduler's figure, since that of "stat" has a resolution of 10 ms only."""
    with open(f"/proc/{pid}/schedstat", encoding="ascii") as file:
        return int(file.read().split()[0]) / 1e9


class Measure(LauncherTest):
    def test_status(self):
        failed = []
        launcher = self.start(numbered(*(item(f"item-{i}", STAY, str(i)) for i in range(ITEMS))))
        self.wait_for_starts(ITEMS)
        launcher.settle()
        switches = launcher.switches()

        median = self.print_runs(f"{ITEMS} items")
        if median >= MAX_MILLISECONDS:
            failed.append(f"a status takes {MAX_MILLISECONDS} ms or more")
        percent = watch_percent()
        print(f"--watch, {ITEMS} items, nothing happens: {percent:.2f} % of one processor")
        if percent >= MAX_PERCENT:
            failed.append(f"--watch takes {MAX_PERCENT} % of one processor or more")
        if switches != launcher.switches():
            failed.append("the launcher ran while it was examined")

        self.fill_log(launcher.pid)
        self.print_runs(f"{ITEMS} items, a log of {(OLD_LOGS + 1) * LOG_SIZE >> 20} MiB", 5)
        launcher.kill()
        self.kill_all()
        self.assertEqual([], failed)

    def print_runs(self, what, count=RUNS):
        """Prints how long a status takes; returns the median in milliseconds."""
        runs = [run_status() for _ in range(count)]
        elapsed, used = (statistics.median(figures) for figures in zip(*runs))
        shortest, longest = min(runs)[0], max(runs)[0]
        print(
            f"status, {what}: median {elapsed:.1f} ms ({shortest:.1f} to {longest:.1f}), "
            f"{used:.1f} ms of processor time"
        )
        return elapsed

    def fill_log(self, process):
        """Replaces the log by a full one, in which one item of the launcher keeps ending."""
        now = time.strftime("%Y-%m-%dT%H:%M:%S.000Z", time.gmtime())
        lines = (
            f"{now} DEBUG    launcher[{process}] [LAUNCHER  ] Start to fork item-0\n"
            f"{now} ERROR    launcher[{process}] [LAUNCHER  ] item-0 9 is killed. "
            "ret = 9, status = 256\n"
        ).encode()
        for number in range(OLD_LOGS + 1):
            path = self.log_path() + (f".{number}" if number else "")
            self.write(path, lines * (LOG_SIZE // len(lines)))


def main():
    if os.getpid() == 1:
        sys.exit(namespace.run_here("Measure.test_status"))
    # The script itself may be below the /tmp that is hidden in the namespace.
    source = pathlib.Path(__file__).read_text(encoding="utf-8")
    os.environ["KESTRANE_TESTS"] = TESTS
    sys.exit(namespace.run_in_namespace(["-c", source]).returncode)


if __name__ == "__main__":
    main()
