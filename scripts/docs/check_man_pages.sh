#!/usr/bin/env bash
# Checks the manual pages: mandoc reports nothing, every page that is referred to exists, and each page
# states the version.
#
#     scripts/docs/check_man_pages.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/install.sh

# The system's pages that ours refer to.
of_the_system="waitpid.2"

need_command mandoc mandoc mandoc
install_missing

failed=
fail() {
    echo "$*"
    failed=yes
}

for page in docs/man/*.[1-9]; do
    # mandoc searches the system's pages for the references; ours are not installed there. It expects the
    # system's name where ours state the version.
    findings=$(mandoc -T lint "$page" 2>/dev/null |
        grep -vE ': referenced manual not found: |: operating system explicitly specified: ') || true
    [ -z "$findings" ] || fail "$page has errors: $findings"
    grep -qx '\.Os "Kestrane @short_version@"' "$page" || fail "$page does not state the version"
    while read -r name section; do
        reference=$name.$section
        if [ ! -e "docs/man/$reference" ] && [[ " $of_the_system " != *" $reference "* ]]; then
            fail "$page refers to $reference, which does not exist"
        fi
    done < <(sed -n 's/^\.Xr \([^ ]*\) \([1-9]\).*/\1 \2/p' "$page")
done
[ -z "$failed" ]
