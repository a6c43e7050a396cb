#!/usr/bin/env bash
# Creates the pictures in docs/images.
#
#     scripts/docs/screenshots.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/install.sh
. scripts/lib/browser.sh

need_build_tools
need_browser selenium rich
install_missing
python_with selenium rich

cmake --preset release >/dev/null
cmake --build --preset release --target launchlist
"$python" -B scripts/docs/screenshots.py build/release/tools/launchlist/launchlist docs/images
ls docs/images
