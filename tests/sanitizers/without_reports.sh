#!/usr/bin/env bash
# Runs a test with the sanitizers' reports written to files, and fails if there is one.
#
#     without_reports.sh COMMAND...
#
# To files because a program may have closed its standard error, and a child that reports may be
# nobody's concern: both are so in the launcher. KESTRANE_WRITABLE names the folder, for a
# test that hides the rest.
set -uo pipefail

folder=$(mktemp -d "${TMPDIR:-/tmp}/kestrane-reports-XXXXXX") || exit 1
export KESTRANE_WRITABLE=$folder
trap 'rm -rf "$folder"' EXIT
# Any user may report.
chmod 777 "$folder"
cp "$(dirname "$0")/tsan.supp" "$folder/"

common="log_path=$folder/report:log_exe_name=1"
export ASAN_OPTIONS="$common:detect_stack_use_after_return=1:check_initialization_order=1"
export LSAN_OPTIONS="print_suppressions=0"
export UBSAN_OPTIONS="$common:print_stacktrace=1"
# The launcher forks while it has many threads, and a child may start threads of its own.
export TSAN_OPTIONS="$common:die_after_fork=0:print_suppressions=0:suppressions=$folder/tsan.supp"

"$@"
status=$?
for report in "$folder"/report.*; do
    # What the allocator says when it gives null, as a test may ask it to, is no finding.
    if [ -e "$report" ] && grep -qv 'WARNING: AddressSanitizer failed to allocate' "$report"; then
        printf '\n-- %s\n' "$(basename "$report")"
        cat "$report"
        status=1
    fi
done
exit "$status"
