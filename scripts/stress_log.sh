#!/usr/bin/env bash
# The long proofs of the log: that it loses, tears and disorders no record, whatever the processes, the
# disk and other people do. About five minutes. Ends non-zero if one does not hold.
#
#     scripts/stress_log.sh [FORKS]      100,000 forks if not given
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib/install.sh

forks=${1:-100000}
stress=build/release/tests/qv7log/log_stress

need_build_tools
if [ "$(uname)" = Linux ]; then
    need_command bwrap bubblewrap -
fi
install_missing
cmake --preset release >/dev/null
cmake --build --preset release --target log_stress -j "$(getconf _NPROCESSORS_ONLN)"

folder=$(mktemp -d)
trap 'rmdir "$folder" 2>/dev/null || true' EXIT   # a proof that failed leaves its files there

"$stress" forks "$folder" "$forks"
"$stress" processes "$folder" 20000
"$stress" removed "$folder" 2000
"$stress" killed "$folder" 500
"$stress" escape "$folder" 5000000
if command -v bwrap >/dev/null; then
    # A disk of 1 MiB, that is full when the test wants it.
    bwrap --dev-bind / / --size 1048576 --tmpfs /mnt --die-with-parent "$stress" full /mnt 40
else
    echo "The full disk was left out: it needs bwrap, which only Linux has." >&2
fi
