#!/usr/bin/env bash
# Signs PROGRAM the way the release does (scripts/sign.sh) with a throwaway
# code-signing certificate made here, and fails unless osslsigncode accepts
# the signature against that certificate (SHA-256, described as "Kelvo"),
# removing it gives back PROGRAM byte for byte, the signed file passes
# check_pe.sh, and a byte changed after signing fails verification; also
# unless a refused signing leaves no file, and no certificate means an
# unchanged copy. The signed program is left as OUT_DIR/Kelvo.exe for the
# end-to-end case that runs it.
#
#   check_signing.sh PROGRAM.exe OUT_DIR MAX_BYTES
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
program=$(realpath "$1") out=$2 max_bytes=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
fail() { echo "FAIL: $*"; exit 1; }
sign() {  # OUTPUT CERTIFICATE PASSWORD_FILE [TIMESTAMP_URL]
    KELVO_SIGN_PKCS12=$2 KELVO_SIGN_PASSWORD_FILE=$3 KELVO_SIGN_TIMESTAMP_URL=${4:-} \
        "$here/../scripts/sign.sh" "$program" "$1"
}
openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -out cert.pem -days 2 \
    -subj "/CN=Kelvo test publisher" -addext extendedKeyUsage=codeSigning 2>/dev/null
printf 'test password\n' >password
printf 'wrong\n' >wrong
openssl pkcs12 -export -inkey key.pem -in cert.pem -out cert.p12 -passout file:password

# Refused, with nothing left behind: no such certificate, a wrong password,
# a timestamp service that does not answer (nothing listens on port 9).
for refused in "missing.p12 password" "cert.p12 wrong" "cert.p12 password http://127.0.0.1:9/"; do
    ! sign refused.exe $refused 2>/dev/null && [ ! -e refused.exe ] || fail "signing with $refused succeeded or left a file"
done
sign unsigned.exe "" "" && cmp -s unsigned.exe "$program" || fail "no certificate: not an unchanged copy"

sign signed.exe cert.p12 password
osslsigncode verify -CAfile cert.pem -in signed.exe >verify.txt || fail "not accepted: $(tail -n 3 verify.txt)"
grep -q 'digest algorithm  : SHA256' verify.txt && grep -q 'description: Kelvo' verify.txt ||
    fail "not a SHA-256 signature described as Kelvo"
osslsigncode remove-signature -in signed.exe -out payload.exe >/dev/null
cmp payload.exe "$program" || fail "the signed payload differs from the program"
"$here/check_pe.sh" signed.exe "$max_bytes" || fail "the signed program fails check_pe.sh"
cp signed.exe tampered.exe
printf '\1' | dd of=tampered.exe bs=1 seek=1100 conv=notrunc status=none  # a byte of .text
! osslsigncode verify -CAfile cert.pem -in tampered.exe >/dev/null 2>&1 || fail "a changed byte verifies"
mkdir -p "$out" && cp signed.exe "$out/Kelvo.exe"
