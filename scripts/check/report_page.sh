#!/usr/bin/env bash
# Opens the HTML page of `launchlist report` in headless Chromium and checks it.
#
#     scripts/check/report_page.sh [PRESET]
#
# Not part of the other tests, because a browser is a large installation.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/install.sh
. scripts/lib/browser.sh

preset=${1:-debug}

need_build_tools
need_browser selenium
install_missing
python_with selenium

cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target launchlist
"$python" -B tests/tools/launchlist/page_test.py "build/$preset/tools/launchlist/launchlist"
