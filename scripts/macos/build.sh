#!/usr/bin/env bash
# Builds the bundle build/macos/Kestrane.app and all test programs for both macOS architectures.
#
#     scripts/macos/build.sh          on Linux with a pinned cross compiler, on a Mac with its own
#     scripts/macos/build.sh --test   on a Mac: also runs the tests
#
# Downloads and libraries are kept under build/. The bundle appears only when it is complete.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh
. scripts/lib/libraries.sh
. scripts/macos/tools.sh
. scripts/macos/bundle.sh

out=build/macos

test_on_a_mac=
case "${1-}" in
    "") ;;
    --test) test_on_a_mac=yes ;;
    *) fail "Unknown argument \"$1\"; only --test is supported." ;;
esac
if [ -n "$test_on_a_mac" ] && ! on_a_mac; then
    fail "The macOS tests run on a Mac only; on Linux run scripts/macos/build.sh without --test."
fi

# A failed build must not leave an older bundle that looks like its result.
rm -rf "$out/Kestrane.app" "$out/stage"
mkdir -p "$out"
prepare_macos_tools
if [ -n "$test_on_a_mac" ]; then
    need_schema_validator
    install_or_fail
fi
for architecture in $architectures; do
    build_slice "$architecture"
    stage_slice "$architecture"
done
join_slices
echo "Built $out/Kestrane.app"
if [ -n "$test_on_a_mac" ]; then
    ctest --test-dir "$out/$(uname -m)" --output-on-failure
fi
