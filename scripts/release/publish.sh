#!/usr/bin/env bash
# Publishes build/dist as the release of a tag on GitHub; .github/workflows/release.yml runs this.
#
#     scripts/release/publish.sh [TAG]    the tag that started the workflow by default
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh

tag=${1-${GITHUB_REF_NAME-}}
[ -f "build/dist/kestrane-launcher-${tag#v}.spdx.json" ] ||
    fail "build/dist does not hold the release $tag; build it with scripts/release.sh and start again."
gh release create "$tag" --verify-tag --title "Kestrane launcher ${tag#v}" \
    --notes-file build/dist/RELEASE-NOTES.md build/dist/* ||
    fail "GitHub did not accept the release $tag; fix the errors above and start again."
