#!/usr/bin/env bash
# Builds the last commit twice and expects the same bytes. Linux only, as root.
#
#     scripts/check/reproducible.sh            two builds of everything
#     scripts/check/reproducible.sh --linux    one build of the packages for Linux, compared with build/dist
#
# The builds differ in the length of the directory, the user's name and number, the host, the home
# directory, the language, the time zone and the file creation mask, and one starts after the other. Builds
# have neither a network nor a compiler cache. They share only the downloads.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh
. scripts/lib/libraries.sh
. scripts/macos/tools.sh

work=$PWD/build/reproducible

# build_as USER NUMBER HOST DIRECTORY LOCALE ZONE MASK [OPTION...]: builds a snapshot of the last commit
# in DIRECTORY, as USER, and puts the artefacts into build/reproducible/USER/build/dist. NUMBER is that of
# the user and the group.
build_as() {
    local user=$1 number=$2 host=$3 directory=$4 locale=$5 zone=$6 mask=$7 tree=$work/$1 began=$SECONDS
    shift 7
    rm -rf "$tree"
    git clone --quiet --no-hardlinks . "$tree"
    git -C "$tree" checkout --quiet --detach "$commit"
    mkdir -p "$tree/build/venv" "$tree/build/cache"
    cp -a build/venv/zig build/venv/lief build/venv/spdx "$tree/build/venv/"
    cp -a build/cache/sources "$tree/build/cache/"
    echo "$user:x:$number:$number::/home/$user:/bin/bash" >"$work/passwd"
    # shellcheck disable=SC2016  # the inner shell expands it
    bwrap --unshare-all --uid "$number" --gid "$number" --hostname "$host" --die-with-parent --new-session \
        --ro-bind / / --proc /proc --dev /dev --tmpfs /tmp --tmpfs /srv --tmpfs /home \
        --ro-bind "$work/passwd" /etc/passwd --dir "/home/$user" --bind "$tree" "$directory" \
        --clearenv --setenv PATH /usr/bin:/bin:/usr/sbin:/sbin --setenv HOME "/home/$user" \
        --setenv USER "$user" --setenv LOGNAME "$user" --setenv LANG "$locale" --setenv TZ "$zone" \
        --chdir "$directory" bash -c 'umask "$0"; exec scripts/release.sh --snapshot "$@"' "$mask" "$@" \
        >"$work/$user.log" 2>&1 || {
        tail -n 20 "$work/$user.log" >&2
        fail "The build in $directory failed; see $work/$user.log."
    }
    echo "Built in $directory as $user after $((SECONDS - began)) s"
}

# compare DIRECTORY DIRECTORY FILE...
compare() {
    local first=$1 second=$2 file different=
    shift 2
    for file; do
        if cmp "$first/$file" "$second/$file"; then
            echo "   same bytes: $file"
        else
            different=yes
        fi
    done
    [ -z "$different" ] || fail "The builds differ; the artefacts are in $first and $second."
}

[ "$(id -u)" -eq 0 ] || fail "Only root can build as other users; run this as root."
need_command bwrap bubblewrap -
install_or_fail
prepare_macos_tools
python_env lief
python_env spdx
mkdir -p "$work"
# The same in both builds, even if somebody commits meanwhile.
commit=$(git rev-parse HEAD)

first=(margaret-the-maintainer 4242 workstation-seven /srv/k C.UTF-8 UTC 022)
second=(release-engineer 1717 build-host-eleven
    /home/release-engineer/projects/released/kestrane-launcher C Asia/Kathmandu 077)

case "${1-}" in
    "")
        build_as "${first[@]}"
        build_as "${second[@]}"
        (cd "$work/${first[0]}/build/dist" && ls) >"$work/files"
        (cd "$work/${second[0]}/build/dist" && ls) | cmp - "$work/files"
        mapfile -t files <"$work/files"
        compare "$work/${first[0]}/build/dist" "$work/${second[0]}/build/dist" "${files[@]}"
        ;;
    --linux)
        [ -z "$(git status --porcelain)" ] ||
            fail "The tree has changes that are not committed, so build/dist is not the last commit."
        build_as "${second[@]}" --linux
        mapfile -t files < <(cd "$work/${second[0]}/build/dist" && ls -- *.tar.gz *.deb)
        compare build/dist "$work/${second[0]}/build/dist" "${files[@]}"
        ;;
    *) fail "Unknown argument \"$1\"; only --linux is supported." ;;
esac
