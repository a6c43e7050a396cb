#!/usr/bin/env bash
# Shows the launcher at work: installs missing packages, builds, and runs it from a staged bundle.
#
#     scripts/demo.sh          runs the example list for about ten seconds
#     scripts/demo.sh LIST     runs your list until Ctrl-C
#
# KESTRANE_BUNDLE names another bundle to run.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)

# absolute PATH: prints the absolute path, because some commands run in another directory.
absolute() {
    case "$1" in
        /*) echo "$1" ;;
        *) echo "$PWD/$1" ;;
    esac
}
# The build writes the example list, with absolute paths.
list=$(absolute "${1:-$root/build/release/examples/launch-list.json}")
contents=$(absolute "${KESTRANE_BUNDLE:-$root/build/stage/Kestrane.app}")/Contents

# Set while there is something to stop or to remove at the end.
launcher=
follower=
made_level_file=
made_level_directory=
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

# The launcher's own paths: it takes the home directory from the password file.
find_files() {
    local home name
    home=$(perl -e 'print((getpwuid($<))[7] // $ENV{HOME})')
    name=$(sed -n 's/^NAME=//p' "$contents/Frameworks/qv7api.ini")
    log=$home/Library/Logs/$name/qv7log
    level_file="$home/Library/Application Support/$name/log.ini"
}

# At level DEBUG the log also shows the starts. An existing level file is not changed.
make_level_file() {
    if [ -e "$level_file" ]; then
        return
    fi
    if [ ! -d "$(dirname "$level_file")" ]; then
        mkdir -p "$(dirname "$level_file")"
        made_level_directory=yes
    fi
    made_level_file=yes
    printf '[LOG]\nLEVEL=DEBUG\n' >"$level_file"
}

# Creates the log, so that tail shows it from the launcher's first record.
follow_log() {
    (umask 077 && mkdir -p "$(dirname "$log")" && touch "$log")
    tail -n 0 -F "$log" 2>/dev/null &
    follower=$!
}

# Starts the launcher in a new process group, because some lists make it signal its whole group. Also
# restores SIGINT and SIGQUIT, which a shell ignores in background processes.
start_launcher() {
    perl -e 'setpgrp; $SIG{INT} = $SIG{QUIT} = "DEFAULT"; exec { $ARGV[0] } @ARGV or die "$!\n"' \
        "$contents/MacOS/launcher" "Kestrane Demo" "$list" &
    launcher=$!
}

# Waits until the launcher ends and sets `status`, which is empty until then. Hides the shell's message
# about a signal.
status=
wait_for_launcher() {
    local result=0
    wait "$launcher" 2>/dev/null || result=$?
    status=$result
}

# Succeeds if a process of the launcher's group is left.
group_is_left() {
    ps -A -o pgid= -o stat= | awk -v group="$launcher" \
        '$1 == group && $2 !~ /^Z/ { left = 1 } END { exit !left }'
}

# child NAME: prints the process id of the launcher's child that runs this program.
child() {
    ps -A -o ppid= -o pid= -o comm= | awk -v parent="$launcher" -v name="$1" \
        '$1 == parent && $3 ~ "(^|/)" name "$" { print $2 }'
}

# wait_for_child NAME [OLD]: waits for that child, with a process id other than OLD, and prints the id.
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
    say "$1 is not running." >&2
    return 1
}

# A list with errors is still run, for those who want to see what the launcher does with it.
check_list() {
    say "Checking the list:"
    (cd "$root" && "$contents/MacOS/launchlist" check "$list") || true
}

# Prints a report on the log since the start of the demonstration, and writes it as a page.
show_report() {
    local page=$root/build/report.html
    say "Report on this run:"
    "$contents/MacOS/launchlist" report --since "$began" --html "$page" || return 0
    say "The same report as a page: $page"
}

# The exit status is 1 while an item is being restarted.
show_status() {
    say "What is running (launchlist status):"
    "$contents/MacOS/launchlist" status "$list" || true
}

show_examples() {
    local indexer thumbnailer
    say "Three helpers start."
    wait_for_child sync_agent >/dev/null
    indexer=$(wait_for_child indexer)
    thumbnailer=$(wait_for_child thumbnailer)
    show_status
    sleep 1

    say "The thumbnailer crashes and is restarted (status 6: signal 6)."
    wait_for_child thumbnailer "$thumbnailer" >/dev/null
    sleep 1

    say "The indexer is killed from outside and restarted: kill -9 $indexer"
    kill -KILL "$indexer"
    wait_for_child indexer "$indexer" >/dev/null
    show_status
    sleep 3

    say "SIGTERM stops the launcher and its helpers."
    kill -TERM "$launcher"
    wait_for_launcher
    sleep 0.5
    if [ "$status" -ne 1 ] || group_is_left; then
        say "The demonstration failed: status $status, or processes are left."
        return 1
    fi
    say "The launcher exited with status 1, and no process is left."
}

show_own_list() {
    say "Press Ctrl-C to stop it."
    wait_for_launcher
    print_status
}

print_status() {
    # First let tail print the last records.
    sleep 0.5 || true
    say "The launcher exited with status $status."
}

# Sends SIGTERM, and kills the launcher after 30 seconds or a second Ctrl-C.
stop_launcher() {
    local impatient=
    trap 'impatient=yes' INT
    kill -TERM "$launcher" 2>/dev/null || true
    for ((i = 0; i < 300; ++i)); do
        if [ -n "$impatient" ] || ! kill -0 "$launcher" 2>/dev/null; then
            break
        fi
        sleep 0.1 || true
    done
    kill -KILL "$launcher" 2>/dev/null || true
    wait_for_launcher
    print_status
}

# Some lists leave processes behind that keep forking.
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
    if [ -n "$made_level_directory" ]; then
        rmdir "$(dirname "$level_file")" 2>/dev/null || true
    fi
}

if [ $# -gt 0 ] && [ ! -r "$list" ]; then
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
echo "   Level file: $level_file${made_level_file:+ (until the end of the demonstration)}"
check_list
follow_log
began=$(date -u +%Y-%m-%dT%H:%M:%S)
if [ $# -eq 0 ]; then
    start_launcher
    show_examples
else
    start_launcher
    show_own_list
fi
