#!/usr/bin/env bash
# Measures `launchlist status` beside a running launcher, in its own PID namespace, and compares the
# results with the goals:
#
# - a status of 200 items in under 50 ms (the median of 21 runs);
# - `--watch` without an interval, while nothing happens: under 0.1 % of one processor with 200 items, the
#   smallest share that top shows;
# - the launcher does not run while it is examined.
#
#     scripts/measure/status.sh        Linux only; about a minute, during which the machine should be idle
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/measure.sh

need_command bwrap bubblewrap -
build_to_measure all
cmake --install build/release --prefix build/release/stage >/dev/null
KESTRANE_STAGE=$PWD/build/release/stage \
    KESTRANE_HELPERS=$PWD/build/release/tests/helpers/bin \
    KESTRANE_OTHER_LOG=$PWD/build/release/tests/helpers/other_log \
    python3 -B scripts/measure/status.py
