"""Measures how long a report on a large log takes, and how much memory one on many items takes.

report.py LAUNCHLIST

The best of five runs counts, because the others may have waited for other processes.
"""

import datetime
import json
import os
import resource
import subprocess
import sys
import tempfile
import time

FILE_SIZE = 10 * 1024 * 1024
FILES = 6
RUNS = 5
MAX_SECONDS = 0.5
ITEMS = 100_000
MAX_MEMORY = 200 * 1024 * 1024
NAMES = ["agent", "indexer", "sync-agent", "thumbnailer", "a helper with a rather long name"]
BEGIN = datetime.datetime(2026, 11, 21, tzinfo=datetime.timezone.utc)


def records():
    """Yields a start and an end of one helper at a time, as text."""
    start = 0
    while True:
        name, child = NAMES[start % len(NAMES)], 1000 + start % 60000
        begun, ended = (stamp(7 * (start + step)) for step in (0, 1))
        yield (
            f"{begun} DEBUG    launcher[100] [LAUNCHER  ] Start to fork {name}\n"
            f"{ended} ERROR    launcher[100] [LAUNCHER  ] {name} {child} is killed. "
            f"ret = {child}, status = {start % 4 * 256}\n"
        )
        start += 1


def stamp(milliseconds):
    moment = BEGIN + datetime.timedelta(milliseconds=milliseconds)
    return moment.strftime("%Y-%m-%dT%H:%M:%S.") + f"{moment.microsecond // 1000:03}Z"


def write_log(path):
    """Writes a rotated log; returns its size and the number of starts in it."""
    total = starts = 0
    texts = records()
    for number in reversed(range(FILES)):
        with open(path + (f".{number}" if number else ""), "w", encoding="utf-8") as file:
            size = 0
            while size < FILE_SIZE:
                size += file.write(next(texts))
                starts += 1
        total += size
    return total, starts


def measure(launchlist, path):
    """How many seconds one report takes, and the number of starts in it."""
    before = time.monotonic()
    output = subprocess.run(
        [launchlist, "report", "--json", path], stdout=subprocess.PIPE, check=True
    ).stdout
    seconds = time.monotonic() - before
    return seconds, sum(item["starts"] for item in json.loads(output)["items"])


def measure_memory(launchlist):
    """The peak memory in bytes of reports on a log that names very many items."""
    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "qv7log")
        with open(path, "w", encoding="utf-8") as file:
            for number in range(ITEMS):
                file.write(
                    f"{stamp(number)} ERROR    launcher[100] [LAUNCHER  ] helper-{number} {number} "
                    f"is killed. ret = {number}, status = 256\n"
                )
        for options in (["--json"], ["--html", path + ".html"]):
            subprocess.run(
                [launchlist, "report", *options, path], stdout=subprocess.DEVNULL, check=True
            )
    peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    return peak if sys.platform == "darwin" else peak * 1024


def main():
    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "qv7log")
        size, starts = write_log(path)
        seconds = []
        for _ in range(RUNS):
            duration, reported = measure(sys.argv[1], path)
            if reported != starts:
                sys.exit(f"{reported} of {starts} starts were reported")
            seconds.append(duration)
    print(
        f"{size / 1024 / 1024:.1f} MiB, {2 * starts} records: "
        f"{min(seconds):.2f} to {max(seconds):.2f} s"
    )
    memory = measure_memory(sys.argv[1])
    print(f"{ITEMS} items: {memory / 1024 / 1024:.0f} MiB of memory")
    return 1 if min(seconds) >= MAX_SECONDS or memory >= MAX_MEMORY else 0


if __name__ == "__main__":
    sys.exit(main())
