#!/usr/bin/env bash
# Makes small changes to the sources, one at a time, and checks that the fast tests notice them.
# Fails if 5 % or more of the changes are not noticed. Linux only; about 20 minutes on two cores.
#
#     scripts/check/mutation.sh [COUNT [SEED [FILE...]]]    by default 300 changes to all sources
#
# The sample depends on the seed, which is printed; pass it to repeat a run. By default each run uses
# a new seed, so that the tests are judged by changes that they were not written against.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh

need_build_tools
need_command bwrap bubblewrap -
install_or_fail
python_env mutation
seed=${2:-$((RANDOM * 32768 + RANDOM))}
echo "Seed $seed"
"$python" scripts/check/mutation.py "${1:-300}" "$seed" "${@:3}"
