#!/usr/bin/env bash
# Runs all tests, including the end-to-end tests, and reports which lines and branches of our
# sources were executed. Fails below 97 % of lines or 90 % of branches. HTML: build/coverage/report/index.html
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/install.sh

need_command gcovr gcovr gcovr
install_missing

# Remove the counters of an earlier run. The launcher, inside its namespace, writes them here too.
find build/coverage -name '*.gcda' -delete 2>/dev/null || true
KESTRANE_WRITABLE=$PWD/build/coverage scripts/test.sh coverage

mkdir -p build/coverage/report
# The compiler adds a branch for every exception that could be thrown; these are not counted.
gcovr --root . --object-directory build/coverage \
    --filter '(util|json|config|logging|launcher|qv7log|tools)/' \
    --exclude-throw-branches --exclude-unreachable-branches \
    --html-details build/coverage/report/index.html --txt \
    --fail-under-line 97 --fail-under-branch 90 --print-summary
