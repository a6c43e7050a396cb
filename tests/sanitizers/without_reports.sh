#!/usr/bin/env bash
# Runs a test with the sanitizers' reports written to files, and fails if there is a report.
#
#     without_reports.sh COMMAND...
#
# The reports go to files because the launcher closes its standard error, and because nothing waits
# for the output of some of its children. KESTRANE_WRITABLE names the directory with the files, for
# tests that hide the rest of the file system.
set -uo pipefail

directory=$(mktemp -d "${TMPDIR:-/tmp}/kestrane-reports-XXXXXX") || exit 1
export KESTRANE_WRITABLE=$directory
trap 'rm -rf "$directory"' EXIT
# Any user may report.
chmod 777 "$directory"
cp "$(dirname "$0")/tsan.supp" "$directory/"

common="log_path=$directory/report:log_exe_name=1"
export ASAN_OPTIONS="$common:detect_stack_use_after_return=1:check_initialization_order=1"
export LSAN_OPTIONS="print_suppressions=0"
export UBSAN_OPTIONS="$common:print_stacktrace=1"
# The launcher forks while it has many threads, and a child may start threads of its own.
export TSAN_OPTIONS="$common:die_after_fork=0:print_suppressions=0:suppressions=$directory/tsan.supp"

"$@"
status=$?
for report in "$directory"/report.*; do
    # A test may make the allocator return null; its warning about that is not a finding.
    if [ -e "$report" ] && grep -qv 'WARNING: AddressSanitizer failed to allocate' "$report"; then
        printf '\n-- %s\n' "$(basename "$report")"
        cat "$report"
        status=1
    fi
done
exit "$status"
