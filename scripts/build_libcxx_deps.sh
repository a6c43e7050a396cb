#!/usr/bin/env bash
# Builds jsoncpp, GoogleTest and CLI11 with Clang and libc++ for the preset "libcxx", into build/deps/libcxx;
# scripts/test.sh does it for that preset.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib/base.sh
. scripts/lib/libraries.sh

need_command cmake cmake cmake
need_command ninja ninja-build ninja
need_command clang++ clang llvm
if ! echo '#include <string>' | clang++ -stdlib=libc++ -x c++ -fsyntax-only - 2>/dev/null; then
    note_missing libc++-dev llvm
    note_missing libc++abi-dev llvm
fi
install_or_fail
build_libraries libcxx -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_FLAGS=-stdlib=libc++
