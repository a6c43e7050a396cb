#!/usr/bin/env bash
# Checks the manual pages: mandoc finds nothing to say, and every page that one refers to is there.
#
#     scripts/docs/check_man_pages.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/install.sh

# Pages of the system that ours refer to.
of_the_system="waitpid.2"

need_command mandoc mandoc mandoc
install_missing

failed=
fail() {
    echo "$*"
    failed=yes
}

for page in docs/man/*.[1-9]; do
    # mandoc looks for the pages referred to among the system's, where ours are not yet.
    if mandoc -T lint "$page" 2>/dev/null | grep -v ': referenced manual not found: '; then
        fail "$page is not clean"
    fi
    while read -r name section; do
        reference=$name.$section
        if [ ! -e "docs/man/$reference" ] && [[ " $of_the_system " != *" $reference "* ]]; then
            fail "$page refers to $reference, which is not there"
        fi
    done < <(sed -n 's/^\.Xr \([^ ]*\) \([1-9]\).*/\1 \2/p' "$page")
done
[ -z "$failed" ]
