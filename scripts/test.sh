#!/usr/bin/env bash
# Installs what is missing, builds and runs all tests. Fails if any of them does.
#
#     scripts/test.sh [PRESET [CMAKE-OPTION...]]
#
# PRESET is "debug" if not given; CMakePresets.json has them all.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib/base.sh
. scripts/lib/libraries.sh

preset=${1:-debug}
shift $(($# > 0))

need_build_tools
need_schema_validator
if [ "$(uname)" = Linux ]; then
    need_command bwrap bubblewrap -
fi
if [ "$preset" = clang ]; then
    need_command clang++ clang llvm
fi
if [ "$preset" = libcxx ]; then
    need_libcxx
fi
install_missing
if [ "$preset" = libcxx ]; then
    build_libcxx_libraries
fi

jobs=$(getconf _NPROCESSORS_ONLN)
cmake --preset "$preset" "$@"
cmake --build --preset "$preset" -j "$jobs"
ctest --preset "$preset" -j "$jobs"
