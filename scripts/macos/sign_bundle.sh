#!/usr/bin/env bash
# Signs the bundle, from the inside out; on a Mac.
#
#   scripts/macos/sign_bundle.sh [IDENTITY [BUNDLE]]
#
# IDENTITY is a name of the keychain, or "-" (as if none is given) for a signature that holds on this
# Mac only. BUNDLE is build/macos/Kestrane.app if none is given.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh

identity=${1:--}
contents=${2-build/macos/Kestrane.app}/Contents
on_a_mac || fail "Only a Mac can sign; copy the bundle to one and start again there."
[ -d "$contents" ] || fail "There is no $contents; build it with scripts/macos/build.sh and start again."

# A service that notarises wants the hardened run time and a time stamp from the network.
options=(--force --sign "$identity")
if [ "$identity" != - ]; then
    options+=(--options runtime --timestamp)
fi

# What is signed last seals the rest: the libraries, the programs beside the launcher, the bundle
# with the launcher.
for file in "$contents"/Frameworks/*.dylib "$contents"/MacOS/*; do
    if [ "$file" != "$contents/MacOS/launcher" ]; then
        codesign "${options[@]}" "$file" || fail "codesign cannot sign $file; mend what stands above and start again."
    fi
done
codesign "${options[@]}" "${contents%/Contents}" ||
    fail "codesign cannot sign ${contents%/Contents}; mend what stands above and start again."
codesign --verify --deep --strict "${contents%/Contents}" ||
    fail "The signature of ${contents%/Contents} does not hold; mend what stands above and start again."
echo "${contents%/Contents} is signed."
