#!/usr/bin/env bash
# Tries the package on a minimal Debian system, as root in its own PID namespace; run by
# scripts/check/packages.sh. Prints a line that begins with "-- " for each thing that is proven.
set -euo pipefail

package=$PWD/kestrane-launcher.deb
list=$PWD/launch-list.json
launcher=/usr/lib/kestrane/Kestrane.app/Contents/MacOS/launcher
home=/home/visitor
log=$home/Library/Logs/Kestrane/qv7log
level_file="$home/Library/Application Support/Kestrane/log.ini"
version=$(dpkg-deb --field "$package" Version)
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

proven() {
    echo "-- $*"
}

fail() {
    echo "FAILED: $*"
    exit 1
}

# as_visitor COMMAND...: becomes the command, as an ordinary user.
as_visitor() {
    exec setpriv --reuid 1000 --regid 1000 --clear-groups env "HOME=$home" "$@"
}

# wait_until COMMAND...: waits at most 20 seconds.
wait_until() {
    local tries
    for ((tries = 0; tries < 200; ++tries)); do
        if "$@"; then
            return
        fi
        sleep 0.1
    done
    fail "timed out: $*"
}

# helpers [NAME]: prints the process ids of the launcher's children, or of the one that runs NAME.
helpers() {
    local directory name stat parent
    for directory in /proc/[0-9]*; do
        # The name in parentheses may contain blanks; the parent's id is the second word after it.
        { read -r name <"$directory/comm" && read -r stat <"$directory/stat"; } || continue
        read -r _ parent _ <<<"${stat##*) }"
        if [ "$parent" = "$pid" ] && [ "$name" = "${1-$name}" ]; then
            echo "${directory#/proc/}"
        fi
    done 2>/dev/null
}

three_helpers_run() {
    [ -n "$(helpers sync_agent)" ] && [ -n "$(helpers indexer)" ] && [ -n "$(helpers thumbnailer)" ]
}

indexer_is_not() {
    local now
    now=$(helpers indexer)
    [ -n "$now" ] && [ "$now" != "$1" ]
}

# start: starts the launcher with the example list, in its own session, as the README says.
start() {
    as_visitor setsid "$launcher" "Package test" "$list" &
    pid=$!
    wait_until three_helpers_run
}

# expect_restart: a killed helper must be started again.
expect_restart() {
    local old
    old=$(helpers indexer)
    kill -KILL "$old"
    wait_until indexer_is_not "$old"
}

# stop: SIGTERM must end the launcher with status 1, and every helper.
stop() {
    local status=0
    kill -TERM "$pid"
    wait "$pid" || status=$?
    [ "$status" -eq 1 ] || fail "the launcher exited with status $status"
    [ -z "$(remaining)" ] || fail "processes are left: $(remaining)"
}

# Prints which launchers and example helpers run, with any parent.
remaining() {
    grep -lxE 'launcher|sync_agent|indexer|thumbnailer' /proc/[0-9]*/comm 2>/dev/null || true
}

# Prints every file of the system, except those in which apt and dpkg record their own work, and except
# users' files.
all_files() {
    find / -xdev \( -path /proc -o -path /dev -o -path /tmp -o -path /srv -o -path /home \
        -o -path /var/lib/apt -o -path /var/cache/apt -o -path /var/log -o -path /var/cache/ldconfig \
        -o -path '/var/lib/dpkg/*-old' -o -path /var/cache/debconf -o -path /var/lib/dpkg/lock \) -prune -o -print | sort
}

all_files >/tmp/before
apt-get -q -y install "$package"
proven "apt-get install"

[ "$(launchlist --version)" = "launchlist $version" ] || fail "launchlist --version"
proven "$(launchlist --version)"
for page in launcher launchlist launch-list log.ini; do
    man "$page" >/tmp/page
    grep -q "Kestrane ${version/snapshot*/snapshot} " /tmp/page || fail "man $page does not contain the version"
done
proven "man launcher, launchlist, launch-list, log.ini"
(as_visitor launchlist check "$list") || fail "launchlist check"
[ -f /usr/share/kestrane-launcher/launch-list.schema.json ] || fail "the schema is missing"
grep -q jsoncpp /usr/share/doc/kestrane-launcher/copyright || fail "the notices are missing"
proven "launchlist check accepts the example list"

mkdir -p "$(dirname "$level_file")"
printf '[LOG]\nLEVEL=DEBUG\n' >"$level_file"
chown -R 1000:1000 "$home"
start
expect_restart
stop
(as_visitor launchlist report "$log") >/tmp/report || fail "launchlist report"
grep -q indexer /tmp/report || fail "the report does not mention the indexer"
proven "the example list: three helpers start, a killed one is restarted, SIGTERM ends all"

start
records=$(wc -l <"$log")
apt-get -q -y install --reinstall "$package"
[[ $(readlink "/proc/$pid/exe") == *" (deleted)" ]] || fail "the package did not replace the program"
expect_restart
[ "$(wc -l <"$log")" -gt "$records" ] || fail "the launcher stopped logging"
stop
proven "a running launcher is not affected when the package is replaced"

start
records=$(wc -l <"$log")
cp "$level_file" /tmp/level
apt-get -q -y purge --auto-remove kestrane-launcher
expect_restart
[ "$(wc -l <"$log")" -gt "$records" ] || fail "the launcher stopped logging"
stop
proven "a running launcher is not affected when the package is removed"

# apt keeps a package that it installed automatically if another package recommends it.
of_no_package() {
    local file
    while read -r file; do
        dpkg-query --search "$file" >/dev/null 2>&1 || echo "$file"
    done
}

all_files >/tmp/after
left=$(comm -13 /tmp/before /tmp/after | grep -v '^/var/lib/dpkg/info/' | of_no_package)
[ -z "$left" ] || fail "the removal left behind: $left"
[ -z "$(comm -23 /tmp/before /tmp/after)" ] || fail "the removal removed too much"
! grep -q kestrane /tmp/after || fail "the removal left behind: $(grep kestrane /tmp/after)"
cmp "$level_file" /tmp/level || fail "the level file changed"
proven "the removal leaves nothing behind but the user's log and level file"
