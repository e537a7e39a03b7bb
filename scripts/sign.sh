#!/usr/bin/env bash
# Authenticode-signs a Windows program (SHA-256, described as "Kelvo") with
# the publisher's certificate that the environment names, or copies it
# unchanged when none is named. The release target runs it.
#
#   sign.sh PROGRAM.exe OUTPUT.exe
#
#   KELVO_SIGN_PKCS12         PKCS#12 file: the publisher's key and chain
#   KELVO_SIGN_PASSWORD_FILE  a file that holds its password
#   KELVO_SIGN_TIMESTAMP_URL  optional: an RFC 3161 time-stamping service
#
# OUTPUT appears only when everything succeeded: a certificate that cannot
# be read, a wrong password or a failed timestamp leave no file behind.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
. "$here/common.sh"
[ $# -eq 2 ] || die "usage: sign.sh PROGRAM.exe OUTPUT.exe"
program=$1 output=$2
rm -f "$output"
if [ -z "${KELVO_SIGN_PKCS12:-}" ]; then
    cp "$program" "$output"
    say "$output is NOT signed: KELVO_SIGN_PKCS12 names no certificate"
    exit 0
fi
[ -r "$KELVO_SIGN_PKCS12" ] || die "cannot read the certificate $KELVO_SIGN_PKCS12 (KELVO_SIGN_PKCS12)"
[ -r "${KELVO_SIGN_PASSWORD_FILE:-}" ] ||
    die "KELVO_SIGN_PASSWORD_FILE must name a readable file that holds the certificate's password"
ensure_host_packages osslsigncode

options=(-pkcs12 "$KELVO_SIGN_PKCS12" -readpass "$KELVO_SIGN_PASSWORD_FILE" -h sha256 -n Kelvo)
if [ -n "${KELVO_SIGN_TIMESTAMP_URL:-}" ]; then
    options+=(-ts "$KELVO_SIGN_TIMESTAMP_URL")
else
    say "no KELVO_SIGN_TIMESTAMP_URL: signing without a timestamp, so Windows stops" \
        "accepting the signature when the certificate expires"
fi
partial=$output.partial
trap 'rm -f "$partial"' EXIT
if ! log=$(osslsigncode sign "${options[@]}" -in "$program" -out "$partial" 2>&1); then
    printf '%s\n' "$log" >&2
    die "signing failed (osslsigncode's report above); nothing written to $output"
fi
mv "$partial" "$output"
say "$output signed with $KELVO_SIGN_PKCS12 (SHA-256)${KELVO_SIGN_TIMESTAMP_URL:+, timestamped by $KELVO_SIGN_TIMESTAMP_URL}"
