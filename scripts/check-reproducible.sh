#!/usr/bin/env bash
# Builds the release twice, from two clean clones of HEAD in different
# folders a few seconds apart, and fails unless dist/Kelvo.exe and
# dist/SHA256SUMS are byte-identical. When the environment names a signing
# certificate (see sign.sh), each signature carries its own signing time, so
# it compares what was signed instead: each release's program without its
# signature must be that clone's unsigned build, and the two must agree.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
. "$here/common.sh"
top=$(cd "$here/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for copy in first second-folder; do
    git clone -q "$top" "$work/$copy"
    (cd "$work/$copy" && cmake --preset mingw -DKELVO_BUILD_TESTS=OFF >/dev/null &&
        cmake --build --preset mingw --target release >/dev/null)
    sleep 2
done
compared=(dist/Kelvo.exe dist/SHA256SUMS)
if [ -n "${KELVO_SIGN_PKCS12:-}" ]; then
    compared=(payload.exe)
    for copy in first second-folder; do
        (cd "$work/$copy" && osslsigncode remove-signature -in dist/Kelvo.exe -out payload.exe >/dev/null &&
            cmp payload.exe build/mingw/app/Kelvo.exe) || die "$copy: the signed program is not the build"
    done
fi
for file in "${compared[@]}"; do
    if ! cmp "$work/first/$file" "$work/second-folder/$file"; then
        die "$file differs between the two builds"
    fi
done
say "reproducible: $(sha256sum "$work/first/${compared[0]}" | cut -c1-64)${KELVO_SIGN_PKCS12:+ (the payload; signed as $(cut -c1-64 "$work/first/dist/SHA256SUMS"))}"
