#!/usr/bin/env bash
# Authenticode-signs a Windows program (SHA-256, described as "Kelvo") with
# the publisher's key that the environment names: a PKCS#12 file, or a key
# that stays on a token (a smart card, USB token or HSM reached through its
# PKCS#11 module). Copies the program unchanged when no key is named. The
# release target runs it.
#
#   sign.sh PROGRAM.exe OUTPUT.exe
#
# A PKCS#12 file:
#   KELVO_SIGN_PKCS12         the file: the publisher's key and chain
# A key on a token:
#   KELVO_SIGN_PKCS11_KEY     the key's pkcs11: URI (RFC 7512), such as
#                             "pkcs11:token=Publisher;object=signing;type=private"
#   KELVO_SIGN_PKCS11_MODULE  the token's PKCS#11 module (a .so file)
#   KELVO_SIGN_CERTS          the publisher's certificate and its chain (PEM)
# Either way:
#   KELVO_SIGN_PASSWORD_FILE  a file that holds the PKCS#12 file's password
#                             or the token's user PIN
#   KELVO_SIGN_TIMESTAMP_URL  optional: an RFC 3161 time-stamping service
#
# OUTPUT appears only when everything succeeded: a key that cannot be
# reached, a wrong password or PIN, or a failed timestamp leave no file
# behind, and the error names the cause.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
. "$here/common.sh"
[ $# -eq 2 ] || die "usage: sign.sh PROGRAM.exe OUTPUT.exe"
program=$1 output=$2
rm -f "$output"
p12=${KELVO_SIGN_PKCS12:-} key=${KELVO_SIGN_PKCS11_KEY:-} password=${KELVO_SIGN_PASSWORD_FILE:-}
timestamp=${KELVO_SIGN_TIMESTAMP_URL:-}
if [ -z "$p12$key" ]; then
    cp "$program" "$output"
    say "$output is NOT signed: neither KELVO_SIGN_PKCS12 nor KELVO_SIGN_PKCS11_KEY names a key"
    exit 0
fi
[ -z "$p12" ] || [ -z "$key" ] || die "name one key: KELVO_SIGN_PKCS12 or KELVO_SIGN_PKCS11_KEY, not both"
[ -r "$password" ] ||
    die "KELVO_SIGN_PASSWORD_FILE must name a readable file that holds the password or PIN"
if [ -n "$p12" ]; then
    [ -r "$p12" ] || die "cannot read the certificate $p12 (KELVO_SIGN_PKCS12)"
    ensure_host_packages osslsigncode
    signer=$p12
    options=(-pkcs12 "$p12")
else
    module=${KELVO_SIGN_PKCS11_MODULE:-} certs=${KELVO_SIGN_CERTS:-}
    case $key in
        *[:\;?]pin-value=* | *[:\;?]pin-source=*) die "the PIN goes in KELVO_SIGN_PASSWORD_FILE, not in the URI $key" ;;
        pkcs11:*) ;;
        *) die "KELVO_SIGN_PKCS11_KEY must be a pkcs11: URI, not $key" ;;
    esac
    [ -r "$module" ] || die "cannot read the PKCS#11 module '$module' (KELVO_SIGN_PKCS11_MODULE)"
    [ -r "$certs" ] || die "cannot read the certificate chain '$certs' (KELVO_SIGN_CERTS)"
    ensure_host_packages osslsigncode libengine-pkcs11-openssl
    signer="the token's key $key"
    options=(-pkcs11module "$module" -key "$key" -certs "$certs")
fi
options+=(-readpass "$password" -h sha256 -n Kelvo)
if [ -n "$timestamp" ]; then
    options+=(-ts "$timestamp")
else
    say "no KELVO_SIGN_TIMESTAMP_URL: signing without a timestamp, so Windows stops" \
        "accepting the signature when the certificate expires"
fi

# The cause in osslsigncode's report (and the messages of OpenSSL and of its
# PKCS#11 engine, libp11, that it passes on), in words a vendor can act on.
cause() {  # REPORT
    case $1 in
        *"PIN incorrect"*) echo "wrong PIN: the token refused the PIN in $password" ;;
        *"No matching initialized token"*) echo "token not found: $module offers no token that $key names" ;;
        *"private key was not found"*) echo "key not found: the token holds no private key that $key names" ;;
        *"mac verify failure"*) echo "wrong password: the password in $password does not open $p12" ;;
        *"timestamping failed"*) echo "no timestamp: the time-stamping service $timestamp gave none" ;;
        *) echo "see osslsigncode's report above" ;;
    esac
}
partial=$output.partial
trap 'rm -f "$partial"' EXIT
if ! report=$(osslsigncode sign "${options[@]}" -in "$program" -out "$partial" 2>&1); then
    printf '%s\n' "$report" >&2
    die "signing failed: $(cause "$report"); nothing written to $output"
fi
mv "$partial" "$output"
say "$output signed with $signer (SHA-256)${timestamp:+, timestamped by $timestamp}"
