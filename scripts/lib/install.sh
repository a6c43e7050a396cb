# shellcheck shell=bash
# Installing what the scripts need of the system: without a question, and only where it is missing.
#
#     need_build_tools
#     need_command shellcheck shellcheck shellcheck
#     install_missing

missing=()
private_python=()

# need_command COMMAND DEBIAN-PACKAGE HOMEBREW-FORMULA: notes the package if there is no command.
need_command() {
    command -v "$1" >/dev/null || note_missing "$2" "$3"
}

# need_header HEADER DEBIAN-PACKAGE HOMEBREW-FORMULA: notes the package if c++ finds no header.
need_header() {
    local folders=(-I /usr/include/jsoncpp)
    if command -v brew >/dev/null; then
        folders+=(-I "$(brew --prefix)/include")
    fi
    printf '#if !__has_include(<%s>)\n#error\n#endif\n' "$1" |
        c++ -x c++ -E "${folders[@]}" - >/dev/null 2>&1 || note_missing "$2" "$3"
}

# need_schema_validator: the Python package jsonschema. Where the system has no package of it, it goes
# to a private environment, build/python, once install_missing has run.
need_schema_validator() {
    if [ -x build/python/bin/python3 ] || /usr/bin/python3 -c 'import jsonschema' 2>/dev/null; then
        return
    fi
    if command -v brew >/dev/null; then
        private_python=(jsonschema)
    else
        missing+=(python3-jsonschema)
    fi
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
    need_header CLI/CLI.hpp libcli11-dev cli11
    need_header gtest/gtest.h libgtest-dev googletest
}

install_missing() {
    install_packages || return
    if [ "${#private_python[@]}" -ne 0 ]; then
        python3 -m venv build/python
        build/python/bin/pip install --quiet "${private_python[@]}"
    fi
}

install_packages() {
    if [ "${#missing[@]}" -eq 0 ]; then
        return
    fi
    echo "Installing: ${missing[*]}"
    if command -v brew >/dev/null; then
        brew install --quiet "${missing[@]}"
    elif command -v apt-get >/dev/null; then
        find_root
        # The package lists may be old, or not there at all.
        apt_get install "${missing[@]}" || { apt_get update && apt_get install "${missing[@]}"; }
    else
        echo "Neither apt-get nor Homebrew is here. Please install: ${missing[*]}" >&2
        return 1
    fi
}

# Only to install a package root is needed.
find_root() {
    as_root=()
    if [ "$(id -u)" -eq 0 ]; then
        return
    fi
    if ! command -v sudo >/dev/null || ! sudo -n true 2>/dev/null; then
        echo "Please run as root: apt-get install ${missing[*]}" >&2
        return 1
    fi
    as_root=(sudo -n)
}

apt_get() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -y -q --no-install-recommends "$@"
}
