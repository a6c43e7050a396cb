#!/usr/bin/env bash
# Shows what an idle launcher costs: threads, processor time, wake-ups, memory. Linux only.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib/install.sh

need_build_tools
need_command bwrap bubblewrap -
install_missing
cmake --preset release >/dev/null
cmake --build --preset release
ctest --preset release -V -R '^end_to_end_cost_test$' | sed -n 's/^[0-9]*: \([0-9]* items.*\)/\1/p'
