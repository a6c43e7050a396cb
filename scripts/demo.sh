#!/usr/bin/env bash
# Shows the launcher at work: installs what is missing, builds, stages the bundle and runs it.
#
#     scripts/demo.sh          the example list and what can happen to it, about ten seconds
#     scripts/demo.sh LIST     a list of your own, until Ctrl-C
#
# KESTRANE_BUNDLE names a bundle to run in place of the one staged here.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
list=${1:-$root/examples/launch-list.json}
contents=${KESTRANE_BUNDLE:-$root/build/stage/Kestrane.app}/Contents

# Each is set when there is something to end or to take away.
launcher=
follower=
made_level_file=
made_level_folder=
began=

say() {
    printf '\n-- %s\n' "$*"
}

build() (
    cd "$root"
    . scripts/lib/install.sh
    need_build_tools
    need_command perl perl perl
    need_command ps procps -
    install_missing
    cmake --preset release >/dev/null
    cmake --build --preset release --target launcher launchlist examples
    cmake --install build/release --prefix build/stage >/dev/null
)

# Where the launcher looks: the home folder comes from the password file.
find_files() {
    local home name
    home=$(perl -e 'print((getpwuid($<))[7] // $ENV{HOME})')
    name=$(sed -n 's/^NAME=//p' "$contents/Frameworks/qv7api.ini")
    log=$home/Library/Logs/$name/qv7log
    level_file="$home/Library/Application Support/$name/log.ini"
}

# At the level DEBUG the log shows the starts, too. A level file that is there has its reasons.
make_level_file() {
    if [ -e "$level_file" ]; then
        return
    fi
    if [ ! -d "$(dirname "$level_file")" ]; then
        mkdir -p "$(dirname "$level_file")"
        made_level_folder=yes
    fi
    made_level_file=yes
    printf '[LOG]\nLEVEL=DEBUG\n' >"$level_file"
}

# The log is made first, so that it can be followed from the launcher's first record on.
follow_log() {
    (umask 077 && mkdir -p "$(dirname "$log")" && touch "$log")
    tail -n 0 -F "$log" 2>/dev/null &
    follower=$!
}

# Some lists signal the launcher's whole process group, so it gets one of its own. It also gets back
# the default actions that a shell takes from what it runs in the background.
start_launcher() {
    perl -e 'setpgrp; $SIG{INT} = $SIG{QUIT} = "DEFAULT"; exec { $ARGV[0] } @ARGV or die "$!\n"' \
        "$contents/MacOS/launcher" "Kestrane Demo" "$list" &
    launcher=$!
}

# Waits for the launcher's end; sets `status`, empty until then. Without the shell's own word about
# a signal.
status=
wait_for_launcher() {
    local result=0
    wait "$launcher" 2>/dev/null || result=$?
    status=$result
}

# Whether a process of the launcher's group is left.
group_is_left() {
    ps -A -o pgid= -o stat= | awk -v group="$launcher" \
        '$1 == group && $2 !~ /^Z/ { left = 1 } END { exit !left }'
}

# child NAME: the process id of the launcher's child that runs this program.
child() {
    ps -A -o ppid= -o pid= -o comm= | awk -v parent="$launcher" -v name="$1" \
        '$1 == parent && $3 ~ "(^|/)" name "$" { print $2 }'
}

# wait_for_child NAME [OLD]: waits for that child, with another process id than OLD, and prints it.
wait_for_child() {
    local pid
    for ((i = 0; i < 100; ++i)); do
        pid=$(child "$1")
        if [ -n "$pid" ] && [ "$pid" != "${2:-}" ]; then
            echo "$pid"
            return
        fi
        sleep 0.1
    done
    say "No $1 is running." >&2
    return 1
}

# Mistakes are told, and no reason to stop: some people want to see what becomes of them.
check_list() {
    say "Is there anything wrong with the list?"
    (cd "$root" && "$contents/MacOS/launchlist" check "$list") || true
}

# What the log says about the time of the demo, and the same as a page.
show_report() {
    local page=$root/build/report.html
    say "The report of this run"
    "$contents/MacOS/launchlist" report --since "$began" --html "$page" || return 0
    say "The same as a page: $page"
}

show_examples() {
    local indexer thumbnailer
    say "Three helper programs start."
    wait_for_child sync_agent >/dev/null
    indexer=$(wait_for_child indexer)
    thumbnailer=$(wait_for_child thumbnailer)
    sleep 1

    say "The thumbnailer crashes by itself and comes back (status 6: signal 6)."
    wait_for_child thumbnailer "$thumbnailer" >/dev/null
    sleep 1

    say "The indexer is killed from outside and comes back: kill -9 $indexer"
    kill -KILL "$indexer"
    wait_for_child indexer "$indexer" >/dev/null
    sleep 3

    say "SIGTERM ends everything."
    kill -TERM "$launcher"
    wait_for_launcher
    sleep 0.5
    if [ "$status" -ne 1 ] || group_is_left; then
        say "That went wrong: status $status, or processes are left."
        return 1
    fi
    say "The launcher ended with status 1, and no process is left."
}

show_own_list() {
    say "Ctrl-C ends it."
    wait_for_launcher
    tell_status
}

tell_status() {
    # The last records of the log are to be seen before.
    sleep 0.5 || true
    say "The launcher ended with status $status."
}

# Asks the launcher to end, and gives it 30 seconds, or until a second Ctrl-C.
stop_launcher() {
    local hurry=
    trap 'hurry=yes' INT
    kill -TERM "$launcher" 2>/dev/null || true
    for ((i = 0; i < 300; ++i)); do
        if [ -n "$hurry" ] || ! kill -0 "$launcher" 2>/dev/null; then
            break
        fi
        sleep 0.1 || true
    done
    kill -KILL "$launcher" 2>/dev/null || true
    wait_for_launcher
    tell_status
}

# Some lists leave processes behind, and these may go on making new ones.
end_group() {
    while group_is_left; do
        kill -KILL -- "-$launcher" 2>/dev/null || true
    done
}

clean_up() {
    trap '' TERM HUP
    if [ -n "$launcher" ]; then
        if [ -z "$status" ]; then
            stop_launcher
        fi
        end_group
    fi
    if [ -n "$follower" ]; then
        kill "$follower" 2>/dev/null || true
        wait "$follower" 2>/dev/null || true
    fi
    if [ -n "$began" ]; then
        show_report
    fi
    if [ -n "$made_level_file" ]; then
        rm -f "$level_file"
    fi
    if [ -n "$made_level_folder" ]; then
        rmdir "$(dirname "$level_file")" 2>/dev/null || true
    fi
}

if [ ! -r "$list" ]; then
    echo "Cannot read $list" >&2
    exit 1
fi
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

build
find_files
make_level_file
say "List:       $list"
echo "   Log:        $log"
echo "   Level file: $level_file${made_level_file:+ (for the time of the demo)}"
check_list
follow_log
began=$(date -u +%Y-%m-%dT%H:%M:%S)
if [ $# -eq 0 ]; then
    # The example list names its programs from here.
    cd "$root"
    start_launcher
    show_examples
else
    start_launcher
    show_own_list
fi
