#!/usr/bin/env bash
# Checks a bundle against the promises of docs/macos.md, on Linux or macOS.
#
#     scripts/macos/check_bundle.sh [BUNDLE]     build/macos/Kestrane.app by default
#     scripts/macos/check_bundle.sh --self-test  breaks each promise and expects the check to fail
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh

if [ "${1-}" = --self-test ]; then
    . scripts/macos/tools.sh
    prepare_macos_tools
    python_env lief
    LIPO=$lipo ZIG=$zig exec "$python" -m unittest discover --start-directory tests/bundle --pattern '*_test.py'
fi

bundle=${1-build/macos/Kestrane.app}
[ -d "$bundle" ] || fail "The bundle $bundle does not exist; build it with scripts/macos/build.sh and start again."
python_env lief
"$python" scripts/macos/check_bundle.py "$bundle" scripts/macos/libsystem_symbols.txt ||
    fail "$bundle breaks the promises above."
echo "$bundle keeps all promises."
