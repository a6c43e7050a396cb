#!/usr/bin/env bash
# Measures `launchlist fix` and `launchlist new` on generated lists of 20,000 items and compares the
# results with the goal: each takes less than a second of CPU time, whether every item has mistakes or
# none.
#
#     scripts/measure/fix.sh            the best of five runs; fails if the goal is missed
#     scripts/measure/fix.sh --profile  counts instructions by function instead (valgrind)
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/measure.sh

if [ "${1:-}" = --profile ]; then
    need_command valgrind valgrind valgrind
fi
build_to_measure launchlist

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT

python3 -B - "$directory" <<'PYTHON'
import json
import sys

directory = sys.argv[1]


def write(name, number, entry, end):
    items = {number(i): {"name": f"item {i}", "program": "/bin/sh", **entry(i)} for i in range(20_000)}
    with open(f"{directory}/{name}.json", "w", encoding="utf-8") as file:
        file.write(json.dumps(items, indent=2) + end)


def good(i):
    return {"argc": 2, "args": {"0": "-c", "1": f"exec sleep {i}"}}


def mistaken(i):
    return {"argc": "7", "args": ["-c", f"exec sleep {i}"]}


write("good", str, good, "")
write("mistaken", lambda i: f"0{2 * i + 1}", mistaken, "\n// end\n")
PYTHON

if [ "${1:-}" = --profile ]; then
    for name in good mistaken; do
        print_profile "$directory" "$launchlist" fix "$directory/$name.json"
    done
    exit
fi

python3 -B - "$directory" "$launchlist" <<'PYTHON'
import os
import shutil
import sys
import time

directory, launchlist = sys.argv[1:]
copy = f"{directory}/copy.json"


def measure(name, *command):
    """The best CPU time in seconds of five runs on a copy of the list, and the size of the output."""
    seconds, elapsed = [], []
    output = f"{directory}/output"
    flags = os.O_WRONLY | os.O_CREAT | os.O_TRUNC
    for _ in range(5):
        shutil.copyfile(f"{directory}/{name}.json", copy)
        before = time.monotonic()
        pid = os.posix_spawn(
            launchlist,
            [launchlist, *command],
            os.environ,
            file_actions=[
                (os.POSIX_SPAWN_OPEN, 1, output, flags, 0o600),
                (os.POSIX_SPAWN_OPEN, 2, "/dev/null", os.O_WRONLY, 0),
            ],
        )
        _, status, usage = os.wait4(pid, 0)
        elapsed.append(time.monotonic() - before)
        seconds.append(usage.ru_utime + usage.ru_stime)
        assert os.waitstatus_to_exitcode(status) == 0, (command, status)
    print(
        f"{command[0]}, {name}: {min(seconds):.2f} s of CPU time, {min(elapsed):.2f} s elapsed"
    )
    if min(seconds) >= 1:
        failed.append(f"{command[0]} of 20,000 items ({name}) takes a second or more")
    return os.path.getsize(output)


failed = []
assert measure("good", "fix", copy) == 0
assert measure("mistaken", "fix", "--write", copy) > 1_000_000
measure("good", "new", "--into", copy, "another", "/bin/sh", "-c", "exec sleep 1")
sys.exit("\n".join(failed))
PYTHON
