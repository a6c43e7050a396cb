# shellcheck shell=bash
# What the scripts that measure launchlist share; to be sourced at the top of the repository.
. scripts/lib/install.sh

# What build_to_measure builds.
# shellcheck disable=SC2034
launchlist=build/release/tools/launchlist/launchlist

# build_to_measure TARGET: installs what is missing and builds TARGET for release.
build_to_measure() {
    need_build_tools
    install_missing
    cmake --preset release >/dev/null
    cmake --build --preset release --target "$1"
}

# print_profile DIRECTORY COMMAND...: prints the functions of COMMAND that execute most instructions.
# DIRECTORY is for temporary files. COMMAND may fail.
print_profile() {
    local directory=$1
    shift
    valgrind --tool=callgrind --callgrind-out-file="$directory/profile.out" "$@" >/dev/null 2>&1 || true
    callgrind_annotate "$directory/profile.out" | head -n 40
}
