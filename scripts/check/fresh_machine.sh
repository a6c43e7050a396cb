#!/usr/bin/env bash
# Runs the README's two commands on fresh Debian machines. Linux only, as root.
#
#     scripts/check/fresh_machine.sh [SUITE...]    bookworm and trixie by default
#
# Each suite's minimal system comes from the mirror that apt-get uses here and is kept in build/fresh.
# In a copy of it, each command runs twice, in its own PID namespace:
#   - as a user who cannot install packages: it must name the packages in one line;
#   - as root: it must succeed.
# The project's path there contains a space and a non-ASCII letter.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh

if [ $# -eq 0 ]; then
    set -- bookworm trixie
fi
[ "$(id -u)" -eq 0 ] || fail "Only root can create a system; run this as root."
need_command debootstrap debootstrap -
need_command bwrap bubblewrap -
install_or_fail

fresh=$PWD/build/fresh
project="/srv/a projäct"
mkdir -p "$fresh"

# Prints the mirror of this machine's main archive.
mirror() {
    # shellcheck disable=SC2016  # apt-get expands them
    apt-get indextargets --format '$(REPO_URI) $(COMPONENT)' 'Created-By: Packages' |
        awk '$2 == "main" && $1 ~ /\/debian\/?$/ { print $1; exit }'
}

# make_base SUITE: creates the minimal system of a suite, unless an earlier run completed it.
make_base() {
    local suite=$1 base=$fresh/$1 uri
    [ ! -e "$base.complete" ] || return 0
    uri=$(mirror)
    [ -n "$uri" ] || fail "apt-get has no Debian mirror configured; add one to its sources and start again."
    rm -rf "$base"
    debootstrap --variant=minbase "$suite" "$base" "$uri" >"$fresh/$suite.log" 2>&1 ||
        fail "debootstrap failed (see $fresh/$suite.log); check the mirror $uri and start again."
    apt-config dump | grep -E '^Acquire::https?::Proxy' >"$base/etc/apt/apt.conf.d/99proxy" || true
    cp /etc/resolv.conf "$base/etc/"
    echo "visitor:x:1000:1000::/home/visitor:/bin/bash" >>"$base/etc/passwd"
    touch "$base.complete"
}

# make_machine SUITE: a fresh copy of the system with the tracked files of the project.
make_machine() {
    machine=$fresh/machine-$1
    rm -rf "$machine"
    cp -a "$fresh/$1" "$machine"
    mkdir -p "$machine$project" "$machine/home/visitor"
    git ls-files -z | tar --null --files-from - --create --ignore-failed-read 2>/dev/null |
        tar --extract --directory "$machine$project"
    chown -R 1000:1000 "$machine$project" "$machine/home/visitor"
}

# on_machine COMMAND...: runs a command in the project on the fresh machine, in its own PID namespace.
# The end-to-end tests create further namespaces inside, which needs root's capabilities.
on_machine() {
    bwrap --bind "$machine" / --proc /proc --dev /dev --tmpfs /tmp --unshare-pid --new-session \
        --die-with-parent --cap-add ALL --clearenv --setenv HOME "$home" --setenv PATH "$path" \
        --chdir "$project" "$@" </dev/null
}
path=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin

# expect_refusal COMMAND...: for a user who cannot install packages, the command must fail with one
# line that names them.
expect_refusal() {
    local errors status=0
    home=/home/visitor
    errors=$(on_machine setpriv --reuid 1000 --regid 1000 --clear-groups "$@" 2>&1 >/dev/null) ||
        status=$?
    if [ "$status" -eq 0 ] || [ "$(wc -l <<<"$errors")" -ne 1 ] ||
        [[ $errors != "Packages are missing. Run this as root, then start again: apt-get install "* ]]; then
        fail "$* as a user who cannot install packages ended with status $status and printed: $errors"
    fi
    echo "   $* as a user without root: $errors"
}

expect_success() {
    local log=$fresh/$suite-${1##*/}.log began=$SECONDS
    home=/root
    on_machine "$@" >"$log" 2>&1 || {
        tail -n 40 "$log" >&2
        fail "$* failed on a fresh $suite; see $log."
    }
    echo "   $* as root: passed after $((SECONDS - began)) s"
}

for suite; do
    echo "Fresh $suite"
    make_base "$suite"
    make_machine "$suite"
    for command in scripts/demo.sh scripts/test.sh; do
        expect_refusal "$command"
    done
    for command in scripts/demo.sh scripts/test.sh; do
        expect_success "$command"
    done
    rm -rf "$machine"
done
