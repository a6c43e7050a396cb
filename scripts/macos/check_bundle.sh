#!/usr/bin/env bash
# Checks a bundle against what is promised about it (docs/macos.md); on Linux and macOS the same.
#
#   scripts/macos/check_bundle.sh [BUNDLE]     build/macos/Kestrane.app if none is given
#   scripts/macos/check_bundle.sh --self-test  breaks each promise on purpose and sees the check fail
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
[ -d "$bundle" ] || fail "There is no bundle $bundle; build it with scripts/macos/build.sh and start again."
python_env lief
"$python" scripts/macos/check_bundle.py "$bundle" scripts/macos/libsystem_symbols.txt ||
    fail "$bundle breaks the promises above."
echo "$bundle keeps all promises."
