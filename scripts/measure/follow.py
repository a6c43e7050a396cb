"""Measures the CPU time of `launchlist log -f` while nothing is logged.

follow.py LAUNCHLIST [SECONDS]

A process that ends reports its CPU time, so that of the idle time is the difference between a long run
and a short one. The long run counts the wake-ups as well.
"""

import os
import subprocess
import sys
import tempfile
import time

SECONDS = 60.0
OLD_FILES = 5
MAX_SHARE = 0.001
RECORD = "2026-11-21T02:26:11.123Z DEBUG    launcher[100] [LAUNCHER  ] Start to fork agent\n"


def follow(launchlist, path, seconds):
    """Follows the log for this many seconds after it has been read. Returns the CPU time in seconds
    and how often the process slept."""
    with subprocess.Popen(
        [launchlist, "log", "-f", "--file", path], stdout=subprocess.PIPE
    ) as process:
        process.stdout.readline()
        time.sleep(seconds)
        process.kill()
        _, _, usage = os.wait4(process.pid, 0)
        process.returncode = 0
    return usage.ru_utime + usage.ru_stime, usage.ru_nvcsw


def main():
    seconds = float(sys.argv[2]) if len(sys.argv) > 2 else SECONDS
    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "qv7log")
        for suffix in ("", *(f".{number + 1}" for number in range(OLD_FILES))):
            with open(path + suffix, "w", encoding="utf-8") as file:
                file.write(RECORD)
        short, short_sleeps = follow(sys.argv[1], path, 1)
        total, sleeps = follow(sys.argv[1], path, 1 + seconds)
    idle = max(total - short, 0)
    share = idle / seconds
    wakeups = (sleeps - short_sleeps) / seconds
    print(
        f"{seconds:.0f} s without a record: {1000 * idle:.1f} ms of CPU time "
        f"({100 * share:.3f} % of a processor), {wakeups:.1f} wake-ups a second"
    )
    return 1 if share >= MAX_SHARE else 0


if __name__ == "__main__":
    sys.exit(main())
