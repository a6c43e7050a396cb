#!/usr/bin/env bash
# Runs a hundred helpers that exit every 50 to 500 ms, and checks that the launcher's memory and
# descriptors do not grow and that each end is logged once. Linux only.
#
#     scripts/check/soak.sh [SECONDS]      600 by default
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/long_test.sh

export KESTRANE_SECONDS=${1:-600}
run_long_test soak
