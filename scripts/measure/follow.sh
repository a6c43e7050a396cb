#!/usr/bin/env bash
# Measures the CPU time that `launchlist log -f` takes in a minute in which nothing is logged, with a log
# that has all its old files. Fails if it is 0.1 % of a processor or more.
#
#     scripts/measure/follow.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/measure.sh

build_to_measure launchlist
python3 -B scripts/measure/follow.py "$launchlist"
