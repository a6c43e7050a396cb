#!/usr/bin/env bash
# Sends the launcher for macOS SIGTERM at each of its calls into the model of macOS (docs/macos.md), on
# each of its threads, and compares the outcomes with the permitted ones. Linux only.
#
#     scripts/macos/moments.sh                 lists of 1 and of 2 items, on Apple silicon
#     scripts/macos/moments.sh --arch x86_64   the same on Intel
#     scripts/macos/moments.sh --items 1       a list of 1 item
#     scripts/macos/moments.sh --document      writes the table in docs/faults.md
#
# To make one run and print what each thread waits for at its end (the table has examples):
#
#     scripts/macos/moments.sh ITEMS THREAD CALL [hold THREAD CALL]...
#
# Needs build/macos (scripts/macos/build.sh).
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh
. scripts/macos/guest.sh
. scripts/macos/stage.sh

architecture=arm64
if [ "${1-}" = --arch ]; then
    architecture=${2-}
    shift $(($# > 1 ? 2 : 1))
fi
prepare_stage
export KESTRANE_ARCHITECTURE=$architecture
export KESTRANE_STAGE=$PWD/build/macos/$architecture/run/stage
export KESTRANE_HELPERS=$PWD/build/macos/$architecture/run/helpers
export KESTRANE_OTHER_LOG=$PWD/build/macos/$architecture/run/other_log
exec python3 -B tests/macos/sweep.py "$@"
