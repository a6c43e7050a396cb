#!/usr/bin/env bash
# Sends the launcher SIGTERM at random moments of its start, with lists of 1, 10 and 100 items, and
# counts the outcomes. Fails on an outcome that docs/faults.md does not permit. Linux only.
#
#     scripts/check/faults.sh [MOMENTS [SEED]]      by default 500 moments for each list size
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/long_test.sh

export KESTRANE_MOMENTS=${1:-500}
if [ $# -gt 1 ]; then
    export KESTRANE_SEED=$2
fi
run_long_test random_stops
