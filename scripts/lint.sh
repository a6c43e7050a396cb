#!/usr/bin/env bash
# Checks the sources without running them, and changes nothing: format, clang-tidy, cppcheck, ruff,
# shell scripts, spelling, phrases that must not return, and the direction of includes.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh

need_build_tools
need_header benchmark/benchmark.h libbenchmark-dev google-benchmark
need_header spdlog/spdlog.h libspdlog-dev spdlog
need_command clang++ clang llvm
need_command clang-format clang-format clang-format
need_command clang-tidy clang-tidy llvm
need_command cppcheck cppcheck cppcheck
need_command shellcheck shellcheck shellcheck
install_missing
python_env lint

jobs=$(getconf _NPROCESSORS_ONLN)
mapfile -t sources < <(git ls-files '*.cpp')
mapfile -t headers < <(git ls-files '*.h')
mapfile -t scripts < <(git ls-files '*.sh' .ci/run)
mapfile -t python_files < <(git ls-files '*.py')
failed=()

# check NAME COMMAND...: runs one check. A failure does not prevent the other checks.
check() {
    local name=$1
    shift
    echo "$name"
    "$@" || failed+=("$name")
}

# Prints the findings in one source as a block, since other sources are checked at the same time.
tidy_one() {
    local findings
    findings=$(clang-tidy --quiet -p build/lint "$1" 2>/dev/null) || {
        echo "$findings"
        return 1
    }
}
export -f tidy_one

# Checks every source that is compiled on this platform; the others have no compile command.
# shellcheck disable=SC2016  # the inner shell expands it
tidy() {
    "$python" -c '
import json, sys
commands = json.load(open("build/lint/compile_commands.json", encoding="utf-8"))
sys.stdout.write("".join(path + "\0" for path in sorted({entry["file"] for entry in commands})))
' |
        xargs -0 -n 1 -P "$jobs" bash -c 'tidy_one "$1"' tidy_one
}

check_cpp() {
    cppcheck --quiet --project=build/lint/compile_commands.json -j "$jobs" --error-exitcode=1 \
        --enable=warning,performance,portability --inline-suppr \
        --library=googletest --suppressions-list=scripts/lib/cppcheck.supp
}

check_python() {
    "$python" -m ruff check --quiet "${python_files[@]}" &&
        "$python" -m ruff format --quiet --diff "${python_files[@]}"
}

# Inputs of tests are misspelled on purpose; patterns of other tools and hashes are not prose.
check_spelling() {
    git ls-files -z -- . ':!tests/fuzz/seeds' ':!**/lists/**' ':!tests/schema/published/*.json' \
        ':!scripts/requirements' ':!scripts/macos/libsystem_symbols.txt' \
        ':!packaging/lintian-overrides' ':!*.svg' ':!*.png' |
        xargs -0 "$python" -m codespell_lib --ignore-words scripts/lib/spelling.txt
}

cmake --preset lint >/dev/null
check "clang-format" clang-format --dry-run -Werror "${sources[@]}" "${headers[@]}"
check "shellcheck" shellcheck -x "${scripts[@]}"
check "ruff" check_python
check "codespell" check_spelling
check "phrases: self-test" "$python" scripts/check/phrases.py --self-test
check "phrases" "$python" scripts/check/phrases.py
check "includes: self-test" "$python" scripts/check/includes.py --self-test
check "includes" "$python" scripts/check/includes.py
check "clang-tidy" tidy
check "cppcheck" check_cpp

if [ ${#failed[@]} -ne 0 ]; then
    echo "Failed: ${failed[*]}" >&2
    exit 1
fi
