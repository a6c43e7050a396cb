#!/usr/bin/env bash
# Builds jsoncpp and GoogleTest with Clang and libc++ for the preset "libcxx", into build/deps/libcxx.
. "$(dirname "$0")/lib/base.sh"
. scripts/lib/libraries.sh

need cmake cmake
need ninja ninja-build
need clang++ clang
if ! echo '#include <string>' | clang++ -stdlib=libc++ -x c++ -fsyntax-only - 2>/dev/null; then
    need_libcxx
fi
build_libraries libcxx -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_FLAGS=-stdlib=libc++
