# shellcheck shell=bash
# Runs an end-to-end test that takes minutes or more, and shows its output as it comes.
. scripts/lib/install.sh

# run_long_test NAME: builds everything and runs tests/end_to_end/NAME.py.
run_long_test() {
    need_build_tools
    need_command bwrap bubblewrap -
    install_missing
    cmake --preset release >/dev/null
    cmake --build --preset release -j "$(getconf _NPROCESSORS_ONLN)"
    ctest --preset release -C long -V -R "^end_to_end_$1\$" |
        sed -u -n "/ Start .*: end_to_end_$1/,\$ s/^[0-9]*: //p" | sed -u '1,/^Test timeout/d'
}
