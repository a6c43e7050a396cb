#!/usr/bin/env bash
# Runs the tests of the programs built for macOS on Linux, one architecture on each processor: unit
# tests, launchlist against its golden outputs, and the end-to-end tests with the bundle's launcher.
#
#   scripts/macos/test.sh [PATTERN]     only the tests whose names match the regular expression
#   scripts/macos/test.sh --self-test   breaks programs and the model on purpose and expects tests to fail
#
# Needs build/macos (scripts/macos/build.sh). tests/macos/left_out.txt lists the tests that cannot run
# here; docs/macos.md says what these tests prove and what they do not.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh
. scripts/macos/guest.sh

[ -d build/macos/Kestrane.app ] ||
    fail "There is no bundle build/macos/Kestrane.app; build it with scripts/macos/build.sh and start again."
need_build_tools
need_command bwrap bubblewrap -
install_or_fail
prepare_guest
# The helpers that the launcher starts are Linux programs.
if ! { cmake --preset debug && cmake --build build/debug --target helper_stay helper_end \
    helper_inherit helper_locations helper_misbehave helper_short_life; } >build/macos/helpers.log; then
    fail "The helpers do not build (see build/macos/helpers.log)."
fi

for architecture in arm64 x86_64; do
    python3 -B tests/macos/stage.py "$architecture" build/debug/tests/helpers/bin
done
if [ "${1-}" = --self-test ]; then
    exec build/venv/macos/bin/python -B tests/macos/self_test.py
fi
build/venv/macos/bin/python -B -m unittest discover -s tests/macos -p values_test.py
failed=
pids=()
for architecture in arm64 x86_64; do
    python3 -B tests/macos/run_tests.py "$architecture" "${1-}" &
    pids+=($!)
done
for pid in "${pids[@]}"; do
    wait "$pid" || failed=yes
done
[ -z "$failed" ] || fail "The tests above failed."
