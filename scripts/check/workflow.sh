#!/usr/bin/env bash
# Checks the workflows of .github/: GitHub's schema for them holds, and every step that runs something
# runs a script of this folder.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh
. scripts/lib/python_env.sh

python_env workflow
"$python" -m check_jsonschema --builtin-schema vendor.github-workflows .github/workflows/*.yml ||
    fail "A workflow does not follow the schema; mend what stands above and start again."

grep -hE '^[ -]*run:' .github/workflows/*.yml | sed 's/^[ -]*run: *//' | while read -r script arguments; do
    [[ $script == scripts/*.sh && -x $script && ! $arguments =~ [\;\&\|] ]] ||
        fail "A workflow runs \"$script $arguments\", which is no script of this project; put what it does into one."
done
