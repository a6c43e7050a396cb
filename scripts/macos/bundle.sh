# shellcheck shell=bash
# Builds the bundle for both macOS architectures; to be sourced after tools.sh and libraries.sh.
#
# `out` is the directory of the build. A program of the bundle is in out/ARCHITECTURE after build_slice,
# in out/stage/ARCHITECTURE after stage_slice, and in out/Kestrane.app after join_slices.
# shellcheck disable=SC2034,SC2154  # architectures is for the caller; out is the caller's; zig and lipo are set by prepare_macos_tools

architectures="arm64 x86_64"

# build_slice ARCHITECTURE [CMAKE_OPTION...]: builds the libraries, the programs and tests of one
# architecture.
build_slice() {
    local architecture=$1
    shift
    local toolchain=("-DCMAKE_TOOLCHAIN_FILE=$PWD/cmake/macos-$architecture.cmake" "-DKESTRANE_ZIG=$zig")
    build_libraries "macos-$architecture" "${toolchain[@]}"
    cmake -S . -B "$out/$architecture" -G Ninja -DCMAKE_BUILD_TYPE=Release "${toolchain[@]}" \
        -DCMAKE_FIND_ROOT_PATH="$PWD/build/deps/macos-$architecture" \
        -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "$@" >"$out/$architecture.log" ||
        fail "CMake cannot configure the build for $architecture; fix the errors above and start again."
    cmake --build "$out/$architecture" ||
        fail "The build for $architecture failed; fix the errors above and start again."
}

# stage_slice ARCHITECTURE: puts the bundle of one architecture into out/stage.
stage_slice() {
    cmake --install "$out/$1" --prefix "$out/stage/$1" >>"$out/$1.log"
}

is_mach_o() {
    [ "$(od -An -N4 -tx1 "$1" | tr -d ' ')" = cffaedfe ]
}

# join_slices: joins the two bundles: each file of machine code then contains both architectures.
join_slices() {
    local file
    cp -R "$out/stage/arm64/Kestrane.app" "$out/stage/joined"
    (cd "$out/stage/joined" && find . -type f) | while read -r file; do
        if is_mach_o "$out/stage/joined/$file"; then
            "$lipo" -create "$out/stage/arm64/Kestrane.app/$file" \
                "$out/stage/x86_64/Kestrane.app/$file" -output "$out/stage/joined/$file"
        fi
    done
    mv "$out/stage/joined" "$out/Kestrane.app"
    rm -rf "$out/stage"
}
