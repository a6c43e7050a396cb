#!/usr/bin/env bash
# Checks the sources without running them: format, clang-tidy, cppcheck, shellcheck. Changes nothing.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib/install.sh

need_build_tools
need_header benchmark/benchmark.h libbenchmark-dev google-benchmark
need_header spdlog/spdlog.h libspdlog-dev spdlog
need_command clang++ clang llvm
need_command clang-format clang-format clang-format
need_command clang-tidy clang-tidy llvm
need_command cppcheck cppcheck cppcheck
need_command shellcheck shellcheck shellcheck
install_missing

jobs=$(getconf _NPROCESSORS_ONLN)
mapfile -t sources < <(git ls-files '*.cpp')
mapfile -t headers < <(git ls-files '*.h')
mapfile -t scripts < <(git ls-files '*.sh' .ci/run)
failed=()

# check NAME COMMAND...: runs one check; the others run, too, if it fails.
check() {
    local name=$1
    shift
    echo "$name"
    "$@" || failed+=("$name")
}

# The findings in one source, in one piece: others are checked at the same time.
tidy_one() {
    local findings
    findings=$(clang-tidy --quiet -p build/lint "$1" 2>/dev/null) || {
        echo "$findings"
        return 1
    }
}
export -f tidy_one

# Every source that is compiled here; the sources of other platforms are in no compile command.
tidy() {
    grep -o '"file": "[^"]*"' build/lint/compile_commands.json | cut -d'"' -f4 | sort -u |
        xargs -P "$jobs" -I {} bash -c 'tidy_one {}'
}

# Each source with the options of its compile command.
check_cpp() {
    cppcheck --quiet --project=build/lint/compile_commands.json -j "$jobs" --error-exitcode=1 \
        --enable=warning,performance,portability --inline-suppr \
        --library=googletest --suppressions-list=scripts/lib/cppcheck.supp
}

cmake --preset lint >/dev/null
check "clang-format" clang-format --dry-run -Werror "${sources[@]}" "${headers[@]}"
check "clang-tidy" tidy
check "cppcheck" check_cpp
check "shellcheck" shellcheck -x "${scripts[@]}"

if [ ${#failed[@]} -ne 0 ]; then
    echo "Not clean: ${failed[*]}" >&2
    exit 1
fi
