#!/usr/bin/env bash
# Signs, notarizes and staples the macOS bundle of build/dist and adds it there as ...-macos-signed.zip.
# Runs on a Mac only. The secrets are environment variables:
#
#     SIGNING_CERTIFICATE, SIGNING_PASSWORD   a Developer ID certificate with its key: a PKCS #12 file in
#                                             base64, and its password
#     SIGNING_IDENTITY                        the certificate's name
#     NOTARY_KEY, NOTARY_KEY_ID, NOTARY_ISSUER    an App Store Connect key that may notarize
#
# Without the first three the bundle stays as it is; without the others it is signed but not notarized.
# The release notes then say so.
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/lib/base.sh

# note SENTENCE...: tells the reader of the release notes and of this script's output.
note() {
    echo "$*"
    printf '\n%s\n' "$*" >>build/dist/RELEASE-NOTES.md
}

# import_certificate: puts the certificate into a keychain that exists only while this script runs.
import_certificate() {
    keychain=$work/signing.keychain-db
    local password
    password=$(uuidgen)
    base64 --decode <<<"$SIGNING_CERTIFICATE" >"$work/certificate.p12"
    security create-keychain -p "$password" "$keychain"
    security unlock-keychain -p "$password" "$keychain"
    security import "$work/certificate.p12" -k "$keychain" -P "$SIGNING_PASSWORD" -T /usr/bin/codesign
    security set-key-partition-list -S apple-tool:,apple: -s -k "$password" "$keychain" >/dev/null
    security list-keychains -d user -s "$keychain"
}

clean_up() {
    [ -z "${keychain-}" ] || security delete-keychain "$keychain" || true
    rm -rf "$work"
}

notarize() {
    printf '%s\n' "$NOTARY_KEY" >"$work/notary.p8"
    ditto -c -k --keepParent "$work/Kestrane.app" "$work/submission.zip"
    xcrun notarytool submit "$work/submission.zip" --wait --key "$work/notary.p8" \
        --key-id "$NOTARY_KEY_ID" --issuer "$NOTARY_ISSUER" >"$work/notary.log" 2>&1 || true
    cat "$work/notary.log"
    # The tool also succeeds if the answer is "Invalid".
    grep -q 'status: Accepted' "$work/notary.log" ||
        fail "Apple did not accept the bundle; read the answer above and start again."
    xcrun stapler staple "$work/Kestrane.app"
}

on_a_mac || fail "Signing needs a Mac; copy build/dist to one and start again there."
zip=$(ls build/dist/*-macos.zip 2>/dev/null) ||
    fail "There is no bundle in build/dist; build it with scripts/release.sh on Linux, copy it here, and start again."
if [ -z "${SIGNING_CERTIFICATE-}" ] || [ -z "${SIGNING_PASSWORD-}" ] || [ -z "${SIGNING_IDENTITY-}" ]; then
    note "The macOS bundle is not signed by a developer: no certificate was available to the build." \
        "macOS refuses to start a downloaded copy until it is signed (docs/macos.md)."
else
    work=$(mktemp -d)
    trap clean_up EXIT
    ditto -x -k "$zip" "$work"
    import_certificate
    scripts/macos/sign_bundle.sh "$SIGNING_IDENTITY" "$work/Kestrane.app"
    scripts/macos/check_bundle.sh "$work/Kestrane.app"
    if [ -n "${NOTARY_KEY-}" ] && [ -n "${NOTARY_KEY_ID-}" ] && [ -n "${NOTARY_ISSUER-}" ]; then
        notarize
        note "$(basename "$zip" .zip)-signed.zip is signed by \"$SIGNING_IDENTITY\" and notarized by Apple."
    else
        note "The macOS bundle is signed but not notarized: no key for notarization was available to the build."
    fi
    ditto -c -k --keepParent "$work/Kestrane.app" "${zip%.zip}-signed.zip"
fi
(cd build/dist && cmake -E sha256sum kestrane-* RELEASE-NOTES.md >../SHA256SUMS && mv ../SHA256SUMS .)
