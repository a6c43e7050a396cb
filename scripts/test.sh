#!/usr/bin/env bash
# Installs missing packages, builds, and runs all tests. Fails if any test fails.
#
#     scripts/test.sh [PRESET [CMAKE-OPTION...]]
#
# PRESET is one of CMakePresets.json, "debug" by default. "asan" and "tsan" run the tests with
# sanitizers; a sanitizer's report fails the test that it comes from.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh
. scripts/lib/libraries.sh

preset=${1:-debug}
shift $(($# > 0))

need_build_tools
need_schema_validator
# The tests of the log format, the completions, the corrections and the examples run these programs.
need_command lnav lnav lnav
need_command patch patch -
need_command zsh zsh zsh
need_command fish fish fish
need_command jq jq jq
if ! on_a_mac; then
    need_command bwrap bubblewrap -
fi
case "$preset" in
    clang | asan) need_command clang++ clang llvm ;;
    libcxx) need_libcxx ;;
esac
install_missing
if [ "$preset" = libcxx ]; then
    build_libcxx_libraries
fi

jobs=$(getconf _NPROCESSORS_ONLN)
cmake --preset "$preset" "$@"
cmake --build --preset "$preset" -j "$jobs"
ctest --preset "$preset" -j "$jobs"
