#!/usr/bin/env bash
# Runs all tests, the launcher end to end included, and reports which lines and branches of our own
# sources ran. Fails below 97 % of lines or 90 % of branches. HTML: build/coverage/report/index.html
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/install.sh

need_command gcovr gcovr gcovr
install_missing

# Of an earlier run; the folder is where the launcher's counters go from inside its namespace.
find build/coverage -name '*.gcda' -delete 2>/dev/null || true
KESTRANE_WRITABLE=$PWD/build/coverage scripts/test.sh coverage

mkdir -p build/coverage/report
# A branch that only an exception takes is the compiler's, not ours.
gcovr --root . --object-directory build/coverage \
    --filter '(util|json|config|logging|launcher|qv7log|tools)/' \
    --exclude-throw-branches --exclude-unreachable-branches \
    --html-details build/coverage/report/index.html --txt \
    --fail-under-line 97 --fail-under-branch 90 --print-summary
