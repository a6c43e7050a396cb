#!/usr/bin/env bash
# Measures the launcher and its peers and writes docs/benchmarks.md with its charts. Linux only.
#
#     scripts/measure/bench.sh [--short | --again SCENARIO,...]
#
# Installs missing peers (supervisor, runit, s6, daemontools) and tools, builds in release mode and
# measures everything in one run of about 20 minutes, during which the machine should be idle. --short
# only shows that the benchmarks work: one peer, small numbers, no figure judged; it writes to
# build/bench/short. --again measures some scenarios of the last complete run again, if something else on
# the machine or its host disturbed them; the page says so.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/libraries.sh

short=no
options=()
case "${1-}" in
    --short) short=yes options=(--short) ;;
    --again) options=(--again --only "$2") ;;
esac

need_build_tools
need_header benchmark/benchmark.h libbenchmark-dev -
need_header spdlog/spdlog.h libspdlog-dev -
need_command bwrap bubblewrap -
need_command valgrind valgrind -
need_command gnuplot gnuplot-nox -
need_command runsvdir runit -
if [ "$short" = no ]; then
    need_command supervisord supervisor -
    need_command s6-svscan s6 -
    need_command svscan daemontools -
fi
install_missing

build=build/bench
load=$(cut -d ' ' -f 1-3 /proc/loadavg)
build_linux_libraries
cmake --preset bench
cmake --build --preset bench
cmake --install "$build" --prefix "$build/stage"

directory=docs
if [ "$short" = yes ]; then
    directory=$build/short
    mkdir -p "$directory"
fi
python3 -B bench/supervision/run.py --load "$load" --bench "$build/bench" --stage "$build/stage" \
    --output "$build/results.json" "${options[@]}"
python3 -B bench/supervision/report.py "$build/results.json" "$directory"
echo "Written: $directory/benchmarks.md"
