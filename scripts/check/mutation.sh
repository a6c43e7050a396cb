#!/usr/bin/env bash
# Changes the sources in small ways, one at a time, and looks whether the fast tests notice.
# Fails when 5 % or more of the changes go unnoticed. Linux only; takes about 20 minutes on two cores.
#
#     scripts/check/mutation.sh [COUNT [SEED [FILE...]]]    300 changes, seed 1, all sources if not given
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh

need_build_tools
need_command bwrap bubblewrap -
install_or_fail
python_env mutation
"$python" scripts/check/mutation.py "${1:-300}" "${2:-1}" "${@:3}"
