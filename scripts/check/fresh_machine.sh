#!/usr/bin/env bash
# Runs the README's two commands on fresh Debian machines. Linux only, as root.
#
#     scripts/check/fresh_machine.sh [SUITE...]    bookworm and trixie by default
#
# In a fresh copy of each suite's minimal system, each command runs twice, in its own PID namespace:
#   - as a user who cannot install packages: it must name the packages in one line;
#   - as root: it must succeed.
# The project's path there contains a space and a non-ASCII letter.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/fresh_system.sh

if [ $# -eq 0 ]; then
    set -- bookworm trixie
fi
prepare_fresh_systems

project="/srv/a projäct"

# copy_project: puts the tracked files of the project on the machine.
copy_project() {
    mkdir -p "$machine$project"
    git ls-files -z | tar --null --files-from - --create --ignore-failed-read 2>/dev/null |
        tar --extract --directory "$machine$project"
    chown -R 1000:1000 "$machine$project"
}

# expect_refusal COMMAND...: for a user who cannot install packages, the command must fail with one
# line that names them.
expect_refusal() {
    local errors status=0
    errors=$(on_machine "$project" /home/visitor setpriv --reuid 1000 --regid 1000 --clear-groups "$@" 2>&1 >/dev/null) ||
        status=$?
    if [ "$status" -eq 0 ] || [ "$(wc -l <<<"$errors")" -ne 1 ] ||
        [[ $errors != "Packages are missing. Run this as root, then start again: apt-get install "* ]]; then
        fail "$* as a user who cannot install packages ended with status $status and printed: $errors"
    fi
    echo "   $* as a user without root: $errors"
}

# add_times: writes the seconds since its start before each line.
add_times() {
    local began=$SECONDS line
    while IFS= read -r line; do
        printf '%4d  %s\n' $((SECONDS - began)) "$line"
    done
}

# expect_success COMMAND...: the command must succeed as root. Its output goes to a log with times, which
# show how long the packages, the build and the tests take.
expect_success() {
    local log=$fresh/$suite-${1##*/}.log began=$SECONDS
    on_machine "$project" /root "$@" 2>&1 | add_times >"$log" || {
        tail -n 40 "$log" >&2
        fail "$* failed on a fresh $suite; see $log."
    }
    echo "   $* as root: passed after $((SECONDS - began)) s"
}

for suite; do
    echo "Fresh $suite"
    make_machine "$suite"
    copy_project
    for command in scripts/demo.sh scripts/test.sh; do
        expect_refusal "$command"
    done
    for command in scripts/demo.sh scripts/test.sh; do
        expect_success "$command"
    done
    rm -rf "$machine"
done
