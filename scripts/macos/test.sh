#!/usr/bin/env bash
# Runs the tests of the programs built for macOS on Linux, one architecture on each processor: unit
# tests, launchlist against its golden outputs, and the end-to-end tests with the bundle's launcher.
#
#   scripts/macos/test.sh [PATTERN]     only the tests whose names match the regular expression
#   scripts/macos/test.sh --all [PATTERN]   also the tests that are skipped only because they are slow
#   scripts/macos/test.sh --self-test   breaks programs and the model on purpose and expects tests to fail
#
# Needs build/macos (scripts/macos/build.sh). tests/macos/skipped.txt lists the tests that are skipped
# here; docs/macos.md says what these tests prove and what they do not.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh
. scripts/macos/guest.sh
. scripts/macos/stage.sh

prepare_stage
if [ "${1-}" = --self-test ]; then
    exec build/venv/macos/bin/python -B tests/macos/self_test.py
fi
all=
if [ "${1-}" = --all ]; then
    all=yes
    shift
fi
PYTHONPATH=tests/macos build/venv/macos/bin/python -B -m unittest values_test model_test
failed=
pids=()
for architecture in arm64 x86_64; do
    python3 -B tests/macos/run_tests.py ${all:+--all} "$architecture" "${1-}" &
    pids+=($!)
done
for pid in "${pids[@]}"; do
    wait "$pid" || failed=yes
done
[ -z "$failed" ] || fail "The tests above failed."
