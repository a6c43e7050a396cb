#!/usr/bin/env bash
# Measures `launchlist report` on a generated log of 60 MiB, rotated files included. Fails if the best
# of five runs takes half a second or more, or if a report on 100,000 items takes 200 MiB or more.
#
#     scripts/measure/report.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/measure.sh

build_to_measure launchlist
python3 -B scripts/measure/report.py "$launchlist"
