#!/usr/bin/env bash
# Runs the tests that depend on jsoncpp against two of its versions: the oldest that a supported
# system has, and the newest. Both are built from pinned sources into build/deps/jsoncpp-VERSION.
# Takes up to 3 minutes on two cores.
#
#     scripts/check/jsoncpp_versions.sh [VERSION...]    1.9.5 and 1.9.8 by default
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/libraries.sh

need_build_tools
install_or_fail

# The tests of our JSON library, of what reads and writes JSON in launchlist, and of the fuzz targets for both.
tests='^(json|fuzz_json|fuzz_launch_list|tools_launchlist_(base_text|list|output|status|command_line|fix|example))_'

# check_version VERSION: builds jsoncpp and the tests, and runs them.
check_version() {
    local version=$1 source prefix=$PWD/build/deps/jsoncpp-$1 build=build/jsoncpp-$1
    case $version in
        1.9.5) source=$jsoncpp_source ;;
        1.9.8) source=$newest_jsoncpp_source ;;
        *) fail "jsoncpp $version is not one of the versions in scripts/lib/libraries.sh: 1.9.5, 1.9.8." ;;
    esac
    # shellcheck disable=SC2086  # Package, version, file, checksum and suite are words.
    fetch_source $source
    build_jsoncpp "$prefix" "$(echo "$source" | cut -d' ' -f3)"
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=-O0 \
        -Djsoncpp_DIR="$prefix/lib/cmake/jsoncpp" >"$build.log" 2>&1 ||
        fail "The project cannot be configured with jsoncpp $version (see $build.log)."
    if [ "$(sed -n 's/^jsoncpp_DIR:.*=//p' "$build/CMakeCache.txt")" != "$prefix/lib/cmake/jsoncpp" ]; then
        fail "The project does not use the jsoncpp in $prefix; remove $build and start again."
    fi
    # shellcheck disable=SC2046  # Targets are words.
    cmake --build "$build" --target $(test_targets "$build") >>"$build.log" 2>&1 ||
        fail "The tests do not build with jsoncpp $version (see $build.log)."
    ctest --test-dir "$build" -R "$tests" --output-on-failure --no-tests=error -j "$(getconf _NPROCESSORS_ONLN)" >>"$build.log" 2>&1 || {
        sed -n '/tests failed out of/,$p' "$build.log" >&2
        fail "Tests fail with jsoncpp $version (see $build.log)."
    }
    echo "jsoncpp $version: $(grep -c ' Passed ' "$build.log") tests passed"
}

# build_jsoncpp PREFIX FILE: builds the static library, unless it exists already.
build_jsoncpp() {
    local prefix=$1 file=$2
    [ ! -f "$prefix/done" ] || return 0
    rm -rf "$prefix" "$prefix.partial"
    mkdir -p build/deps
    build_library "build/cache/sources/$file" "$prefix.partial" -DCMAKE_INSTALL_PREFIX="$prefix" \
        >"$prefix.log" 2>&1 || fail "Building $file failed (see $prefix.log)."
    touch "$prefix/done"
    rm -rf "$prefix.partial"
}

# Prints the targets that the tests need. Each test program has the name of its test; other tests run
# launchlist, also on the example list, whose programs must exist.
test_targets() {
    echo launchlist examples
    ninja -C "$1" -t targets all | sed -n 's/: phony$//p' | grep -E "$tests" | grep -v /
}

for version in "${@:-1.9.5 1.9.8}"; do
    for each in $version; do
        check_version "$each"
    done
done
