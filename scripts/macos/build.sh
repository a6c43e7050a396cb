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

out=build/macos
bundle=$out/Kestrane.app
architectures="arm64 x86_64"

# build ARCHITECTURE: builds the libraries, the programs and tests, and the bundle of one architecture.
build() {
    local toolchain=("-DCMAKE_TOOLCHAIN_FILE=$PWD/cmake/macos-$1.cmake" "-DKESTRANE_ZIG=$zig")
    build_libraries "macos-$1" "${toolchain[@]}"
    cmake -S . -B "$out/$1" -G Ninja -DCMAKE_BUILD_TYPE=Release "${toolchain[@]}" \
        -DCMAKE_FIND_ROOT_PATH="$PWD/build/deps/macos-$1" -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
        >"$out/$1.log" || fail "CMake cannot configure the build for $1; fix the errors above and start again."
    cmake --build "$out/$1" || fail "The build for $1 failed; fix the errors above and start again."
    cmake --install "$out/$1" --prefix "$out/stage/$1" >>"$out/$1.log"
}

is_mach_o() {
    [ "$(od -An -N4 -tx1 "$1" | tr -d ' ')" = cffaedfe ]
}

# Joins the two bundles: each file of machine code then contains both architectures.
join() {
    local file
    cp -R "$out/stage/arm64/Kestrane.app" "$out/stage/joined"
    (cd "$out/stage/joined" && find . -type f) | while read -r file; do
        if is_mach_o "$out/stage/joined/$file"; then
            "$lipo" -create "$out/stage/arm64/Kestrane.app/$file" \
                "$out/stage/x86_64/Kestrane.app/$file" -output "$out/stage/joined/$file"
        fi
    done
    mv "$out/stage/joined" "$bundle"
    rm -rf "$out/stage"
}

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
rm -rf "$bundle" "$out/stage"
mkdir -p "$out"
prepare_macos_tools
if [ -n "$test_on_a_mac" ]; then
    need_schema_validator
    install_or_fail
fi
for architecture in $architectures; do
    build "$architecture"
done
join
echo "Built $bundle"
if [ -n "$test_on_a_mac" ]; then
    ctest --test-dir "$out/$(uname -m)" --output-on-failure
fi
