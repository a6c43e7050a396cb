#!/usr/bin/env bash
# Opens the page of `launchlist report --html` in headless Chromium and checks it.
#
#     scripts/test_page.sh [PRESET]
#
# Apart from the other tests, since a browser is a large thing to install.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib/install.sh

preset=${1:-debug}

need_build_tools
need_command chromium chromium chromium
need_command chromedriver chromium-driver chromedriver
python3 -c 'import selenium' 2>/dev/null || note_missing python3-selenium python-selenium
# A page is hard to read without any font.
if [ "$(uname)" = Linux ] && [ ! -d /usr/share/fonts/truetype/dejavu ]; then
    note_missing fonts-dejavu-core -
fi
install_missing

cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target launchlist
python3 -B tests/launchlist/page_test.py "build/$preset/tools/launchlist/launchlist"
