#!/usr/bin/env bash
# Builds everything that a release consists of into build/dist (docs/release.md), and checks it.
#
#     scripts/release.sh               from a clean tree that is tagged with its version
#     scripts/release.sh --snapshot    from any tree; the version then contains the commit
#     scripts/release.sh --snapshot --linux    only the packages for Linux
#     scripts/release.sh --snapshot --reuse    with the object files of scripts/macos/build.sh and
#                                              scripts/measure/bench.sh that are up to date
#
# The same commit gives the same bytes in any directory, at any time, for any user
# (scripts/check/reproducible.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh
. scripts/lib/libraries.sh
. scripts/macos/tools.sh
. scripts/macos/bundle.sh
. scripts/release/steps.sh

out=build/package-macos

read_arguments "$@"
read_version
require_maintainer
set_reproducible_environment
prepare_release_tools
start_empty
for platform in $platforms; do
    "build_$platform"
    "package_$platform"
done
write_documents
check_traces
check_documents
for platform in $platforms; do
    "check_$platform"
done
echo "Built kestrane-launcher $version in build/dist:"
ls -l build/dist
