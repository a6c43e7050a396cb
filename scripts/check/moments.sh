#!/usr/bin/env bash
# Sends the launcher SIGTERM at each of its library calls, on each of its threads, and compares the
# outcomes with the permitted ones. Linux only.
#
#     scripts/check/moments.sh                 lists of 1 and of 2 items
#     scripts/check/moments.sh --items 3       a list of 3 items
#     scripts/check/moments.sh --document      the same lists; writes the table in docs/faults.md
#     scripts/check/moments.sh --mutants       changed launchers, each of which must fail
#
# To make one run and print what each thread waits for at its end (the table has examples):
#
#     scripts/check/moments.sh ITEMS THREAD CALL [hold THREAD CALL]... [signal THREAD CALL]
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/long_test.sh

if [ "${1:-}" = --mutants ]; then
    export KESTRANE_BUILD=$PWD/build/release
    run_long_test moments_mutants
else
    export KESTRANE_MOMENTS="$*"
    run_long_test moments
fi
