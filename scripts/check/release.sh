#!/usr/bin/env bash
# Builds and checks everything that a release consists of, shows that the checks find faults, and installs
# the package in a minimal system. Linux only, as root.
#
#     scripts/check/release.sh [SUITE]    trixie by default
#
# The commit of a release is built as that release, any other tree as a snapshot, which uses the object files
# of scripts/macos/build.sh and scripts/measure/bench.sh if these have run before.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh

suite=${1-trixie}

# timed NAME COMMAND...: prints how long the command took.
timed() {
    local began=$SECONDS name=$1
    shift
    "$@"
    echo "$name: passed after $((SECONDS - began)) s"
}

number=$(sed -n 's/^project(KestraneLauncher VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
options=(--snapshot --reuse)
if [ -z "$(git status --porcelain)" ] && [ -n "$(git tag --points-at HEAD --list "v$number")" ]; then
    options=()
fi
timed "Build and checks" scripts/release.sh "${options[@]}"
timed "Self-test of the checks" scripts/release/self_test.sh
timed "Package on $suite" scripts/check/packages.sh "$suite"
