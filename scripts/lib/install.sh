# shellcheck shell=bash
# Installs the system packages that a script needs: without a prompt, and only those that are missing.
#
#     need_build_tools
#     need_command shellcheck shellcheck shellcheck
#     install_missing

missing=()

# need_command COMMAND DEBIAN-PACKAGE HOMEBREW-FORMULA: notes the package if the command is missing.
need_command() {
    command -v "$1" >/dev/null || note_missing "$2" "$3"
}

# need_header HEADER DEBIAN-PACKAGE HOMEBREW-FORMULA: notes the package if c++ does not find the header.
need_header() {
    local options=(-I /usr/include/jsoncpp)
    if command -v brew >/dev/null; then
        options+=(-I "$(brew --prefix)/include")
    fi
    printf '#if !__has_include(<%s>)\n#error\n#endif\n' "$1" |
        c++ -x c++ -E "${options[@]}" - >/dev/null 2>&1 || note_missing "$2" "$3"
}

note_missing() {
    if command -v brew >/dev/null; then
        missing+=("$2")
    else
        missing+=("$1")
    fi
}

need_build_tools() {
    need_command cmake cmake cmake
    need_command ninja ninja-build ninja
    need_command c++ g++ llvm
    need_command python3 python3 python3
    need_header json/json.h libjsoncpp-dev jsoncpp
    need_header uuid/uuid.h uuid-dev -
    need_header zlib.h zlib1g-dev -
    need_header CLI/CLI.hpp libcli11-dev cli11
    need_header gtest/gtest.h libgtest-dev googletest
}

# install_missing: installs what was noted. If that is impossible, prints what to install by hand and
# fails.
install_missing() {
    if [ "${#missing[@]}" -eq 0 ]; then
        return
    fi
    if command -v brew >/dev/null; then
        echo "Installing: ${missing[*]}"
        brew install --quiet "${missing[@]}"
    elif command -v apt-get >/dev/null; then
        find_root || return
        echo "Installing: ${missing[*]}"
        # The package lists may be outdated or absent.
        apt_get install "${missing[@]}" || { apt_get update && apt_get install "${missing[@]}"; }
    else
        echo "Packages are missing, and neither apt-get nor Homebrew can install them: ${missing[*]}" >&2
        return 1
    fi
}

# Sets `as_root` to the words that run a command as root. Only installing packages needs root.
find_root() {
    if [ "$(id -u)" -eq 0 ]; then
        as_root=(env)
    elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
        as_root=(sudo -n env)
    else
        echo "Packages are missing. Run this as root, then start again: apt-get install ${missing[*]}" >&2
        return 1
    fi
}

# Waits up to ten minutes for another installation to end.
apt_get() {
    "${as_root[@]}" DEBIAN_FRONTEND=noninteractive apt-get -y -q --no-install-recommends \
        -o DPkg::Lock::Timeout=600 "$@"
}
