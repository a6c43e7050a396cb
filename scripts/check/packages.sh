#!/usr/bin/env bash
# Installs the .deb of build/dist in minimal Debian systems, uses it, and removes it. Linux only, as root.
#
#     scripts/check/packages.sh [SUITE...]    bookworm and trixie by default
#
# On each system, nothing is installed except by "apt-get install ./FILE.deb". tests/release/use_package.sh
# then tries launchlist, the manual pages and the example list, replaces and removes the package while a
# launcher runs, and checks that the removal leaves no file behind.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/fresh_system.sh

if [ $# -eq 0 ]; then
    set -- bookworm trixie
fi
mapfile -t packages < <(ls build/dist/*.deb 2>/dev/null)
[ ${#packages[@]} -eq 1 ] || fail "There is no package in build/dist; build it with scripts/release.sh and start again."
helpers=build/package/examples
prepare_fresh_systems

# copy_files: puts the package, the tests and the example list on the machine. The list and its helper
# programs are not part of the package.
copy_files() {
    local trial=$machine/srv/trial
    mkdir -p "$trial"
    cp "${packages[0]}" "$trial/kestrane-launcher.deb"
    cp tests/release/use_package.sh "$helpers"/{sync_agent,indexer,thumbnailer} "$trial/"
    sed 's|@CMAKE_CURRENT_BINARY_DIR@/index.txt|/tmp/index.txt|; s|@[A-Z_]*@|/srv/trial|' \
        examples/launch-list.json.in >"$trial/launch-list.json"
}

for suite; do
    began=$SECONDS
    log=$fresh/$suite-package.log
    make_machine "$suite"
    copy_files
    on_machine /srv/trial /root bash use_package.sh >"$log" 2>&1 || {
        tail -n 40 "$log" >&2
        fail "The package failed on a minimal $suite; see $log."
    }
    grep '^-- ' "$log"
    echo "$suite: passed after $((SECONDS - began)) s"
    rm -rf "$machine"
done
