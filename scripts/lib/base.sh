# shellcheck shell=bash
# What the scripts for macOS and libc++ share; to be sourced in the project's folder. Runs with the
# bash of macOS, too (3.2).
. scripts/lib/install.sh

# fail SENTENCE: ends the script with one sentence that says what is wrong and what to do.
fail() {
    echo "$(basename "$0"): $1" >&2
    exit 1
}

# install_or_fail: installs what need_command has noted as missing.
install_or_fail() {
    mkdir -p build
    install_missing >build/install.log 2>&1 ||
        fail "These packages are missing and cannot be installed (see build/install.log): ${missing[*]}; install them and start again."
}

on_a_mac() {
    [ "$(uname)" = Darwin ]
}

sha256() {
    cmake -E sha256sum "$1" | cut -d' ' -f1
}
