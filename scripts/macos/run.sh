#!/usr/bin/env bash
# Runs a program built for macOS on Linux, as an ordinary process (docs/macos.md).
#
#     scripts/macos/run.sh [--arch arm64|x86_64] PROGRAM [ARGUMENT...]
#
# PROGRAM is a Mach-O file: a program of the bundle build/macos/Kestrane.app, or a test program of
# build/macos/ARCHITECTURE. It gets the arguments, the environment, the descriptors and the signals of
# this script, which exits with its status. By default the slice for Apple silicon runs.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)

architecture=arm64
if [ "${1-}" = --arch ]; then
    architecture=${2-}
    shift $(($# > 1 ? 2 : 1))
fi
case "$architecture" in
    arm64 | x86_64) ;;
    *) echo "run.sh: --arch must be arm64 or x86_64" >&2; exit 64 ;;
esac
[ $# -gt 0 ] || { echo "usage: run.sh [--arch arm64|x86_64] PROGRAM [ARGUMENT...]" >&2; exit 64; }
(cd "$root" && . scripts/lib/base.sh && . scripts/lib/python_env.sh &&
    . scripts/macos/guest.sh && prepare_guest >&2)

# The logging library of test programs, which have no bundle around them.
export DYLD_LIBRARY_PATH=${DYLD_LIBRARY_PATH-$root/build/macos/$architecture/qv7log}
exec "$root/build/venv/macos/bin/python" -IB "$root/tests/macos/run.py" \
    "$architecture" "$root/build/macos" "$1" "$@"
