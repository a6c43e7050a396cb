# shellcheck shell=bash
# What macOS programs need to run on Linux; to be sourced at the top of the repository after base.sh and
# python_env.sh.

# prepare_guest: creates build/venv/macos and builds build/macos/guest/ARCHITECTURE, if necessary: the
# library of functions that run as machine code (tests/macos/guest), LLVM's unwinder, and the programs
# that test the model.
prepare_guest() {
    local sources recipe python
    sources=(scripts/macos/guest.sh scripts/requirements/zig.txt tests/macos/guest/*
        tests/macos/target_values.c tests/macos/posix_test.c)
    recipe=$(cat "${sources[@]}" | cksum)
    # Some tests run programs as another user, who must be able to execute Python.
    case $(readlink -f build/venv/macos/bin/python) in
        "$HOME"/*) rm -rf build/venv/macos ;;
    esac
    PATH=/usr/bin:$PATH python_env macos
    [ "$(cat build/macos/guest/recipe 2>/dev/null)" != "$recipe" ] || return 0
    . scripts/macos/tools.sh
    prepare_macos_tools
    rm -rf build/macos/guest
    mkdir -p build/macos/guest/arm64 build/macos/guest/x86_64 build/macos/reports
    build_guest arm64 aarch64
    build_guest x86_64 x86_64
    echo "$recipe" >build/macos/guest/recipe
}

# build_guest ARCHITECTURE ZIG-ARCHITECTURE
build_guest() {
    local out=build/macos/guest/$1 target=(-target "$2-macos.11.0" -O2 -fno-sanitize=all)
    local unwind
    unwind=$(dirname "$zig")/lib/libunwind
    # Without builtins, since the compiler would replace the loop in memset by a call of memset.
    "$zig" cc "${target[@]}" -dynamiclib -fno-builtin -fno-stack-protector -Wall -Wextra -Werror \
        -install_name @rpath/libguest.dylib -o "$out/libguest.dylib" \
        tests/macos/guest/*.c "tests/macos/guest/gate_$1.S" ||
        fail "The guest library for $1 does not build; fix the errors above and start again."
    "$zig" c++ "${target[@]}" -dynamiclib -nostdlib++ -fno-exceptions -fno-rtti -DNDEBUG \
        -D_LIBUNWIND_IS_NATIVE_ONLY -I"$unwind/include" \
        -install_name /usr/lib/libunwind.dylib -o "$out/libunwind.dylib" \
        "$unwind/src/libunwind.cpp" "$unwind/src/UnwindLevel1.c" "$unwind/src/UnwindLevel1-gcc-ext.c" \
        "$unwind/src/UnwindRegistersSave.S" "$unwind/src/UnwindRegistersRestore.S" ||
        fail "The unwinder for $1 does not build; fix the errors above and start again."
    local program
    for program in target_values posix_test; do
        "$zig" cc "${target[@]}" -Wall -Werror -o "$out/$program" "tests/macos/$program.c" ||
            fail "tests/macos/$program.c does not build for $1; fix the errors above and start again."
    done
}
