#!/usr/bin/env bash
# Signs PROGRAM as the release does (scripts/sign.sh), one case of the table
# below at a time, with throwaway keys made for the case: a PKCS#12 file, or
# a key generated on a SoftHSM2 token in a throwaway folder, which the token
# never lets out. Timestamps come from a time-stamping service of the
# test's own (tests/tsa.py: `openssl ts` behind Python's http.server). Each
# case runs in network and pid namespaces of its own in which only "lo" is
# up, so nothing it sends can leave them, and its processes end with it.
#
# A signed case must give a program that osslsigncode accepts against the
# publisher's certificate, as a SHA-256 signature described as Kelvo and
# made by that certificate's key; whose payload is PROGRAM byte for byte;
# that passes check_pe.sh; and that a byte changed after signing breaks.
# Its timestamp, if it asked for one, must verify against the service's own
# certificate and against no other; otherwise it must carry none. A refused
# case must print its error and leave no file. Every case passes with
# osslsigncode 2.5 (Debian 12) and 2.9 (its backports).
#
#   check_signing.sh --list                            the case names
#   check_signing.sh PROGRAM.exe MAX_BYTES CASE [KEEP]  KEEP: where to leave
#                                                      the signed program
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
module=/usr/lib/softhsm/libsofthsm2.so
key="pkcs11:token=kelvo-test;object=publisher;type=private"
dead=http://127.0.0.1:3162/
# One case a line, fields separated by "|":
#   name | key | secret | timestamp | expected
# Key: p12 FILE, token URI (on the token made for the case), removed URI
# (that token taken away before signing), or none. Secret: the file of the
# password or PIN (password, pin, or wrong). Timestamp: tsa (the test's
# service), dead (a port where nothing listens) or -. Expected: signed,
# copy (the program unchanged), or the error sign.sh prints after "error: ".
CASES=(
"pkcs12             |p12 cert.p12    |password|-   |signed"
"token              |token $key      |pin     |-   |signed"
"token-timestamped  |token $key      |pin     |tsa |signed"
"no-key             |none            |-       |-   |copy"
"p12-unreadable     |p12 missing.p12 |password|-   |cannot read the certificate missing.p12 (KELVO_SIGN_PKCS12)"
"p12-wrong-password |p12 cert.p12    |wrong   |-   |signing failed: wrong password: the password in wrong does not open cert.p12; nothing written to out.exe"
"token-wrong-pin    |token $key      |wrong   |-   |signing failed: wrong PIN: the token refused the PIN in wrong; nothing written to out.exe"
"token-absent       |removed $key    |pin     |-   |signing failed: token not found: $module offers no token that $key names; nothing written to out.exe"
"token-key-missing  |token ${key/publisher/nobody} |pin |- |signing failed: key not found: the token holds no private key that ${key/publisher/nobody} names; nothing written to out.exe"
"token-pin-in-uri   |token $key;pin-value=1234 |pin |- |the PIN goes in KELVO_SIGN_PASSWORD_FILE, not in the URI $key;pin-value=1234"
"tsa-unreachable    |token $key      |pin     |dead|signing failed: no timestamp: the time-stamping service $dead gave none; nothing written to out.exe"
)

if [ "${1:-}" = --list ]; then
    printf '%s\n' "${CASES[@]}" | cut -d'|' -f1 | tr -d ' '
    exit 0
fi
[ $# -ge 3 ] || { echo "usage: check_signing.sh --list | check_signing.sh PROGRAM.exe MAX_BYTES CASE [KEEP]" >&2; exit 2; }
if [ -z "${KELVO_SIGNING_ISOLATED:-}" ]; then
    KELVO_SIGNING_ISOLATED=1 exec unshare --net --pid --fork --kill-child "$0" "$@"
fi
program=$(realpath "$1") max_bytes=$2 wanted=$3 keep=${4:-}
row=$(printf '%s\n' "${CASES[@]}" | grep "^$wanted *|") || { echo "no case named $wanted" >&2; exit 2; }
IFS='|' read -r _ keyspec secret stamp expected <<<"$(sed 's/ *| */|/g' <<<"$row")"
read -r kind uri <<<"$keyspec"
fail() { echo "FAIL ($wanted): $*"; exit 1; }
expect() {  # WHAT ACTUAL EXPECTED
    [ "$2" = "$3" ] || fail "$1: got '$2', expected '$3'"
}
ip link set lo up
expect "the namespace's interfaces" "$(ip -o link show | awk -F': ' '{print $2}' | tr '\n' ' ')" "lo "
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
printf 'test password\n' >password
printf '1234\n' >pin
printf 'wrong\n' >wrong

# A publisher's certificate and key as a PKCS#12 file.
make_p12() {
    openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -out publisher.pem -days 2 \
        -subj "/CN=Kelvo test publisher" -addext extendedKeyUsage=codeSigning 2>/dev/null
    openssl pkcs12 -export -inkey key.pem -in publisher.pem -out cert.p12 -passout file:password
    rm key.pem
}

# A SoftHSM2 token whose key pair is generated on it, and a certificate for
# that key, made (and self-signed) through the token.
make_token() {
    mkdir tokens
    printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\n' "$work" >softhsm2.conf
    export SOFTHSM2_CONF=$work/softhsm2.conf
    softhsm2-util --init-token --free --label kelvo-test --pin 1234 --so-pin 12345678 >/dev/null
    local token=(pkcs11-tool --module "$module" --token-label kelvo-test --login --pin 1234)
    "${token[@]}" --keypairgen --key-type rsa:2048 --label publisher --id 01 >/dev/null 2>&1
    expect "the key's attributes on the token" \
        "$("${token[@]}" --list-objects --type privkey 2>/dev/null | sed -n 's/^ *Access: *//p')" \
        "sensitive, always sensitive, never extractable, local"
    printf 'openssl_conf = init\n[init]\nengines = engines\n[engines]\npkcs11 = pkcs11\n[pkcs11]\nMODULE_PATH = %s\n' \
        "$module" >engine.cnf
    OPENSSL_CONF=$work/engine.cnf openssl req -new -x509 -engine pkcs11 -keyform engine \
        -key "$key;pin-value=1234" -out publisher.pem -days 2 -subj "/CN=Kelvo token publisher" \
        -addext extendedKeyUsage=codeSigning >/dev/null 2>&1
    "${token[@]}" --read-object --type pubkey --label publisher -o public.der >/dev/null 2>&1
    expect "the certificate's public key" "$(openssl x509 -in publisher.pem -noout -pubkey)" \
        "$(openssl pkey -pubin -inform DER -in public.der)"
}

# The time-stamping service, on loopback, with a certificate of its own,
# which is also the root that vouches for its timestamps.
start_tsa() {
    openssl req -x509 -newkey rsa:2048 -nodes -keyout tsa.key -out tsa.pem -days 2 \
        -subj "/CN=Kelvo test TSA" -addext extendedKeyUsage=critical,timeStamping 2>/dev/null
    echo 01 >tsa.serial
    printf '%s\n' "[tsa]" "default_tsa = test" "[test]" "serial = $work/tsa.serial" \
        "signer_cert = $work/tsa.pem" "signer_key = $work/tsa.key" "signer_digest = sha256" \
        "default_policy = 1.3.6.1.4.1.0.1" "digests = sha256" "ess_cert_id_alg = sha256" >tsa.cnf
    /usr/bin/python3 "$here/tsa.py" tsa.cnf 3161 tsa.ready 2>tsa.log &
    local seconds=$((5 * ${KELVO_TIME_SCALE:-1})) tries
    for ((tries = seconds * 10; tries > 0; tries--)); do [ -e tsa.ready ] && break; sleep 0.1; done
    [ -e tsa.ready ] || fail "the time-stamping service was not listening after $seconds s: $(cat tsa.log)"
}

case $kind in
    p12) make_p12 ;;
    token | removed) make_token ;;
esac
[ "$kind" != removed ] || { mv tokens tokens.away && mkdir tokens; }
case $stamp in
    tsa) start_tsa; url=http://127.0.0.1:3161/ ;;
    dead) url=$dead ;;
    *) url= ;;
esac
status=0
env KELVO_SIGN_PASSWORD_FILE="$secret" KELVO_SIGN_TIMESTAMP_URL="$url" \
    KELVO_SIGN_PKCS12="$([ "$kind" != p12 ] || echo "$uri")" \
    KELVO_SIGN_PKCS11_KEY="$([ "$kind" = p12 ] || [ "$kind" = none ] || echo "$uri")" \
    KELVO_SIGN_PKCS11_MODULE="$module" KELVO_SIGN_CERTS=publisher.pem \
    "$here/../scripts/sign.sh" "$program" out.exe >sign.log 2>&1 || status=$?
case $expected in
    copy) cmp -s out.exe "$program" || fail "no key: not an unchanged copy: $(cat sign.log)" ;;
    signed) [ $status = 0 ] || fail "refused: $(cat sign.log)" ;;
    *)
        [ $status != 0 ] || fail "signed, expected the error '$expected'"
        expect "the error" "$(sed -n 's/^\[kelvo\] error: //p' sign.log)" "$expected"
        expect "the files left" "$(ls out.exe* 2>/dev/null)" ""
        ;;
esac
[ "$expected" = signed ] || exit 0

# The signature: accepted, SHA-256, described as Kelvo, by the publisher.
verified() {  # FILE [TSA_CA]
    osslsigncode verify -CAfile publisher.pem ${2:+-TSA-CAfile "$2"} -in "$1" 2>&1
}
verified out.exe >verify.txt || fail "not accepted: $(tail -n 3 verify.txt)"
field() { sed -n "s/^[[:space:]]*$1 *: *//p" verify.txt | head -n 1 | sed 's/ *$//'; }
expect "the signature" "$(field 'Signature verification')" ok
expect "the digest" "$(field 'Message digest algorithm')" SHA256
expect "the description" "$(field 'Text description')" Kelvo
expect "the signer" "$(field Subject)" "$(openssl x509 -in publisher.pem -noout -subject -nameopt compat | cut -c9-)"
osslsigncode remove-signature -in out.exe -out payload.exe >/dev/null
cmp payload.exe "$program" || fail "the signed payload differs from the program"
"$here/check_pe.sh" out.exe "$max_bytes" || fail "the signed program fails check_pe.sh"
cp out.exe tampered.exe
printf '\1' | dd of=tampered.exe bs=1 seek=1100 conv=notrunc status=none  # a byte of .text
! verified tampered.exe >/dev/null || fail "a changed byte verifies"

# The timestamp: the service's, as its certificate vouches for it and no
# other does, and asked for once. (osslsigncode's exit status does not say whether the
# timestamp verified; its report does.)
if [ "$stamp" = tsa ]; then
    verified out.exe tsa.pem >verify.txt || true
    expect "the timestamp" "$(field 'Timestamp Server Signature verification')" ok
    expect "the service's requests" "$(grep -c '"POST [^"]*" 200 ' tsa.log)" 1
    verified out.exe publisher.pem >verify.txt || true  # its exit status says nothing of the timestamp
    expect "the timestamp against another CA" "$(field 'Timestamp Server Signature verification')" failed
else
    expect "the timestamp" "$(grep -c '^Timestamp is not available' verify.txt)" 1
fi
[ -z "$keep" ] || { mkdir -p "$keep" && cp out.exe "$keep/Kelvo.exe"; }
