# shellcheck shell=bash
# The tools that build for macOS; to be sourced after base.sh and python_env.sh.
# shellcheck disable=SC2034,SC2154  # variables set for the caller, or by python_env

# prepare_macos_tools: sets `lipo` and `zig`, the cross compiler. On a Mac, which uses its own
# compiler, `zig` is empty.
prepare_macos_tools() {
    need_command cmake cmake cmake
    need_command ninja ninja-build ninja
    if on_a_mac; then
        command -v lipo >/dev/null || fail "The program lipo is missing; run xcode-select --install and start again."
        install_or_fail
        lipo=lipo zig=
        return
    fi
    need_command llvm-lipo-14 llvm-14 -
    install_or_fail
    python_env zig
    lipo=llvm-lipo-14
    zig=$("$python" -c 'import ziglang; print(ziglang.__path__[0] + "/zig")')
    export ZIG_GLOBAL_CACHE_DIR=$PWD/build/cache/zig ZIG_LOCAL_CACHE_DIR=$PWD/build/cache/zig
}
