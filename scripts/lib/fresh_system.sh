# shellcheck shell=bash
# Minimal Debian systems, each in a directory; to be sourced after base.sh. Linux only, as root.
#
# The systems are downloaded from the mirror that apt-get uses here and kept in build/fresh. Each use
# gets a fresh copy.

fresh=$PWD/build/fresh

# Lets dpkg unpack without waiting for the disk, which takes most of the time otherwise. A system that was
# interrupted is never used again. The variable replaces dpkg's defaults, which are the first two.
export DPKG_FORCE=security-mac,downgrade,unsafe-io

# prepare_fresh_systems: installs the tools.
prepare_fresh_systems() {
    [ "$(id -u)" -eq 0 ] || fail "Only root can create a system; run this as root."
    need_command debootstrap debootstrap -
    need_command bwrap bubblewrap -
    install_or_fail
    mkdir -p "$fresh"
}

# Prints the mirror of this machine's main archive.
mirror() {
    # shellcheck disable=SC2016  # apt-get expands them
    apt-get indextargets --format '$(REPO_URI) $(COMPONENT)' 'Created-By: Packages' |
        awk '$2 == "main" && $1 ~ /\/debian\/?$/ { print $1; exit }'
}

# make_base SUITE: creates the minimal system of a suite, unless an earlier run completed it.
make_base() {
    local suite=$1 base=$fresh/$1 uri began=$SECONDS
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
    echo "   debootstrap: $((SECONDS - began)) s"
}

# make_machine SUITE: sets `machine` to the directory of a fresh copy of the system.
make_machine() {
    make_base "$1"
    machine=$fresh/machine-$1
    rm -rf "$machine"
    cp -a "$fresh/$1" "$machine"
    mkdir -p "$machine/home/visitor"
    chown 1000:1000 "$machine/home/visitor"
}

# on_machine DIRECTORY HOME COMMAND...: runs a command on the machine, in its own PID namespace. The
# end-to-end tests create further namespaces inside, which needs root's capabilities.
on_machine() {
    local directory=$1 home=$2
    shift 2
    bwrap --bind "$machine" / --proc /proc --dev /dev --tmpfs /tmp --unshare-pid --new-session \
        --die-with-parent --cap-add ALL --clearenv --setenv HOME "$home" \
        --setenv DPKG_FORCE "$DPKG_FORCE" \
        --setenv PATH /usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        --chdir "$directory" "$@" </dev/null
}
