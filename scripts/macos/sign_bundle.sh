#!/usr/bin/env bash
# Signs the bundle from the inside out. Runs on a Mac only.
#
#     scripts/macos/sign_bundle.sh [IDENTITY [BUNDLE]]
#
# IDENTITY is a name in the keychain, or "-", the default, for a signature that is valid on this Mac
# only. BUNDLE is build/macos/Kestrane.app by default.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh

identity=${1:--}
contents=${2-build/macos/Kestrane.app}/Contents
on_a_mac || fail "Signing needs a Mac; copy the bundle to one and start again there."
[ -d "$contents" ] || fail "$contents does not exist; build it with scripts/macos/build.sh and start again."

# Notarization requires the hardened runtime and a timestamp from the network.
options=(--force --sign "$identity")
if [ "$identity" != - ]; then
    options+=(--options runtime --timestamp)
fi

# Each signature seals what was signed before: first the libraries, then the programs beside the
# launcher, last the bundle with the launcher.
for file in "$contents"/Frameworks/*.dylib "$contents"/MacOS/*; do
    if [ "$file" != "$contents/MacOS/launcher" ]; then
        codesign "${options[@]}" "$file" || fail "codesign cannot sign $file; fix the errors above and start again."
    fi
done
codesign "${options[@]}" "${contents%/Contents}" ||
    fail "codesign cannot sign ${contents%/Contents}; fix the errors above and start again."
codesign --verify --deep --strict "${contents%/Contents}" ||
    fail "The signature of ${contents%/Contents} is not valid; fix the errors above and start again."
echo "${contents%/Contents} is signed."
