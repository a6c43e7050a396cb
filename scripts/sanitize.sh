#!/usr/bin/env bash
# Builds with sanitizers and runs all tests; any report fails the test that it comes from.
#
#     scripts/sanitize.sh [asan|tsan]...    both if none is given
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -eq 0 ]; then
    set -- asan tsan
fi
for preset in "$@"; do
    scripts/test.sh "$preset"
done
