#!/usr/bin/env bash
# Breaks what the release's checks promise to notice, and expects them to fail. Linux only.
#
#     scripts/release/self_test.sh [unittest options]
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh
. scripts/lib/libraries.sh
. scripts/macos/tools.sh

need_build_tools
need_command readelf binutils -
need_command dsymutil-14 llvm-14 -
install_or_fail
prepare_macos_tools
# shellcheck disable=SC2086,SC2154  # package, version, file and checksum are words; set by libraries.sh
for source in "$jsoncpp_source" "$cli11_source"; do
    fetch_source $source
done
python_env spdx
# shellcheck disable=SC2154  # set by prepare_macos_tools and python_env
LIPO=$lipo ZIG=$zig exec "$python" -B -m unittest discover --buffer --start-directory tests/release --pattern '*_test.py' "$@"
