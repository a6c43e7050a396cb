#!/bin/sh
# The long proofs of the log: that it loses, tears and disorders no record, whatever the processes, the
# disk and other people do. About five minutes. Ends non-zero if one does not hold.
#
#   scripts/stress_log.sh [FORKS]      100,000 forks if not given
set -eu

forks=${1:-100000}
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/release"
jobs=$(getconf _NPROCESSORS_ONLN)

missing=
for tool in cmake ninja c++ bwrap; do
    command -v "$tool" >/dev/null || missing=yes
done
if [ -n "$missing" ] && command -v apt-get >/dev/null; then
    sudo=$([ "$(id -u)" = 0 ] || echo sudo)
    $sudo apt-get -q -y install cmake ninja-build g++ libjsoncpp-dev libgtest-dev bubblewrap >/dev/null
fi

cd "$root"
cmake --preset release >/dev/null
cmake --build --preset release --target log_stress -- -j"$jobs"
stress="$build/tests/qv7log/log_stress"

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
