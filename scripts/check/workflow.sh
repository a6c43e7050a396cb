#!/usr/bin/env bash
# Checks the workflows in .github/ and those shown in the documents: they must follow GitHub's schema
# and name every action by its commit, because a tag can be moved to other code. In .github/, every
# command must be a single script in scripts/.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh

unpinned=$(grep -nE '(^|[ {-])uses:' .github/workflows/*.yml docs/*.md |
    grep -vE 'uses: [^ ]+@[0-9a-f]{40} # v[0-9.]+$' || true)
[ -z "$unpinned" ] ||
    fail "An action is not named by its commit, with its version as a comment: $unpinned"

python_env workflow
"$python" -m check_jsonschema --builtin-schema vendor.github-workflows .github/workflows/*.yml ||
    fail "A workflow does not follow the schema; fix the errors above and start again."

# The YAML blocks of a document, one file each.
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
awk -v directory="$directory" '
    /^```/ { inside = 0 }
    inside { print > file }
    /^```yaml$/ { inside = 1; file = directory "/" ++count ".yml" }
' docs/launchlist.md
"$python" -m check_jsonschema --builtin-schema vendor.github-workflows "$directory"/*.yml ||
    fail "A workflow in docs/launchlist.md does not follow the schema; fix the errors above and start again."

grep -hE '^[ -]*run:' .github/workflows/*.yml | sed 's/^[ -]*run: *//' | while read -r script arguments; do
    [[ $script == scripts/*.sh && -x $script && ! $arguments =~ [\;\&\|] ]] ||
        fail "A workflow runs \"$script $arguments\"; move the command into a script under scripts/."
done
