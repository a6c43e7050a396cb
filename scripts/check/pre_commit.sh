#!/usr/bin/env bash
# Checks the hooks in .pre-commit-hooks.yaml: runs them with pre-commit on lists with and without
# mistakes.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh

need_build_tools
need_command git git git
install_missing
python_env pre_commit
cmake --preset release >/dev/null
cmake --build --preset release --target launchlist
"$python" -B tests/tools/launchlist/pre_commit_test.py build/release/tools/launchlist/launchlist
