#!/usr/bin/env bash
# Measures `launchlist report` on a generated log of 60 MiB, rotated files included. Fails if the best
# of five runs takes half a second or more, or if a report on 100,000 items takes 200 MiB or more.
#
#     scripts/measure/report.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/install.sh

need_build_tools
install_missing
cmake --preset release >/dev/null
cmake --build --preset release --target launchlist
python3 -B scripts/measure/report.py build/release/tools/launchlist/launchlist
