# shellcheck shell=bash
# Error messages and small tools for the other scripts; to be sourced at the top of the repository.
# Also runs with the bash of macOS (3.2).
. scripts/lib/install.sh

# fail SENTENCE: prints what is wrong and what to do about it, and ends the script.
fail() {
    echo "$(basename "$0"): $1" >&2
    exit 1
}

# install_or_fail: like install_missing, but prints one sentence only; the rest goes to a log.
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
