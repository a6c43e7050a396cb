#!/usr/bin/env bash
# Measures `launchlist check` on generated lists and compares the results with the goals:
#
# - 20,000 items without mistakes in under a second;
# - 60,000 findings in under two seconds and 200 MB.
#
# What counts is CPU time, which does not depend on what else the machine does; the check neither waits
# nor uses a second thread.
#
#     scripts/measure/check.sh            the best of five runs; fails if a goal is missed
#     scripts/measure/check.sh --profile  counts instructions by function instead (valgrind)
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


def write(name, entry):
    items = {str(i): {"name": f"item {i}", **entry(i)} for i in range(20_000)}
    with open(f"{directory}/{name}.json", "w", encoding="utf-8") as file:
        json.dump(items, file, indent=2)


def good(i):
    return {"program": "/bin/sh", "argc": 2, "args": {"0": "-c", "1": f"exec sleep {i}"}}


def mistaken(i):
    return {"program": "/bin/sh", "argc": 2, "args": {"0": None, "1": None}, "color": i}


write("good", good)
write("mistaken", mistaken)
PYTHON

if [ "${1:-}" = --profile ]; then
    for name in good mistaken; do
        print_profile "$directory" "$launchlist" check "$directory/$name.json"
    done
    exit
fi

python3 -B - "$directory" "$launchlist" <<'PYTHON'
import json
import os
import sys
import time

directory, launchlist = sys.argv[1:]


def measure(name, *options):
    """The best CPU time in seconds and the largest memory in bytes of five runs."""
    seconds, elapsed, memory = [], [], []
    for _ in range(5):
        output = f"{directory}/output"
        flags = os.O_WRONLY | os.O_CREAT | os.O_TRUNC
        before = time.monotonic()
        pid = os.posix_spawn(
            launchlist,
            [launchlist, "check", *options, f"{directory}/{name}.json"],
            os.environ,
            file_actions=[(os.POSIX_SPAWN_OPEN, 1, output, flags, 0o600)],
        )
        _, status, usage = os.wait4(pid, 0)
        elapsed.append(time.monotonic() - before)
        seconds.append(usage.ru_utime + usage.ru_stime)
        assert os.waitstatus_to_exitcode(status) in (0, 1), status
        # The unit of ru_maxrss is one byte on macOS and 1,024 elsewhere.
        memory.append(usage.ru_maxrss * (1 if sys.platform == "darwin" else 1024))
    print(
        f"{name} {' '.join(options)}: {min(seconds):.2f} s of CPU time, "
        f"{min(elapsed):.2f} s elapsed, {max(memory) / 1e6:.0f} MB"
    )
    return min(seconds), max(memory), output


failed = []
if measure("good")[0] >= 1:
    failed.append("20,000 items take a second or more")
seconds, memory, output = measure("mistaken", "--json")
with open(output, encoding="utf-8") as file:
    warnings = json.load(file)["lists"][0]["warnings"]
assert warnings == 60_000, warnings
if seconds >= 2:
    failed.append("60,000 findings take two seconds or more")
if memory >= 200e6:
    failed.append("60,000 findings take 200 MB or more")
sys.exit("\n".join(failed))
PYTHON
