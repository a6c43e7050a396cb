#!/usr/bin/env bash
# Runs a hundred items that end every 50 to 500 ms, and shows that the launcher's memory and
# descriptors stay as they are, and that each end is logged once. Linux only.
#
#     scripts/check/soak.sh [SECONDS]      600 if not given
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/long_test.sh

export KESTRANE_SECONDS=${1:-600}
run_long_test soak
