#!/usr/bin/env bash
# Feeds generated input to one part of the program until an error is found or the time is up.
#
#     scripts/check/fuzz.sh TARGET [SECONDS]    60 seconds by default
#     scripts/check/fuzz.sh all [SECONDS]       every target, two at a time
#
# TARGET is a directory of tests/fuzz/seeds. Interesting inputs are kept in build/fuzz-corpus, where the
# next run starts; failing inputs are written to build/fuzz-failures.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/install.sh

if [ $# -eq 0 ]; then
    sed -n 's/^# \?//; 2,8p' "$0" >&2
    exit 2
fi
targets=("$1")
if [ "$1" = all ]; then
    mapfile -t targets < <(ls tests/fuzz/seeds)
fi
seconds=${2:-60}

# fuzz TARGET SECONDS: prints the result as a block, since another target may run at the same time.
fuzz() {
    local target=$1 seconds=$2 corpus=build/fuzz-corpus/$1 log=build/fuzz-corpus/$1.log
    mkdir -p "$corpus" build/fuzz-failures
    if "build/fuzz/tests/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=20 \
        -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="build/fuzz-failures/$target-" \
        "$corpus" "tests/fuzz/seeds/$target" >"$log" 2>&1; then
        echo "$target: $(sed -n 's/^Done \(.*\)/\1/p' "$log"), no failure"
    else
        cat "$log"
        echo "$target: FAILED; the input is in build/fuzz-failures" >&2
        return 1
    fi
}
export -f fuzz

need_build_tools
need_command clang++ clang llvm
install_missing
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "${targets[@]/#/fuzz_}"
# shellcheck disable=SC2016  # the inner shell expands it
printf '%s\0' "${targets[@]}" |
    xargs -0 -n 1 -P 2 bash -c 'set -euo pipefail; fuzz "$2" "$1"' fuzz "$seconds"
