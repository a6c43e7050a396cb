#!/usr/bin/env bash
# Runs the long proofs of the log: no record is lost, torn or out of order, whatever other processes, the
# disk and other users do. Takes several minutes. Exits with a non-zero status if a proof does not hold
# or the time limit passes.
#
#     scripts/check/stress_log.sh [FORKS]      the default is 100,000 forks
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/install.sh

forks=${1:-100000}
limit=$((600 + forks / 500))   # seconds
stress=build/release/tests/qv7log/log_stress

need_build_tools
need_command timeout coreutils coreutils
if [ "$(uname)" = Linux ]; then
    need_command bwrap bubblewrap -
fi
install_missing
cmake --preset release >/dev/null
cmake --build --preset release --target log_stress -j "$(getconf _NPROCESSORS_ONLN)"

directory=$(mktemp -d)
chmod 755 "$directory"   # some proofs run as another user
trap 'rmdir "$directory" 2>/dev/null || true' EXIT   # a proof that failed leaves its files there

# shellcheck disable=SC2317  # the bash that timeout starts calls it
prove() {
    "$stress" forks "$directory" "$forks"
    "$stress" processes "$directory" 20000
    "$stress" removed "$directory" 2000
    "$stress" killed "$directory" 500
    "$stress" inherited "$directory" 5000
    "$stress" unmovable "$directory" 20000
    "$stress" limit "$directory" 200
    "$stress" locale "$directory" 2000
    "$stress" cancelled "$directory" 5000
    "$stress" umasks "$directory" 1
    "$stress" same "$directory" 20000
    "$stress" handlers "$directory" 2000
    "$stress" namespaces "$directory" 200
    if command -v bwrap >/dev/null; then
        # A disk of 1 MiB, which the test can fill.
        bwrap --dev-bind / / --size 1048576 --tmpfs /mnt --die-with-parent "$stress" full /mnt 40
    else
        echo "The proof with a full disk was skipped: it needs bwrap, which only Linux has." >&2
    fi
}
export -f prove
export stress directory forks

# Runs in the background, because an interrupt does not reach the process group that timeout creates.
timeout "$limit" bash -euo pipefail -c prove &
proofs=$!
trap 'kill "$proofs"' INT TERM
status=0
wait "$proofs" || status=$?
if [ "$status" -eq 124 ]; then
    echo "The proofs were stopped after $limit seconds: the last one hangs, or the machine is slow." >&2
fi
exit "$status"
