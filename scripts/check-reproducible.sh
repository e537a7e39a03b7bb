#!/usr/bin/env bash
# Builds the release twice, from two clean clones of HEAD in different
# folders a few seconds apart. Each dist/ must hold exactly Kelvo.exe,
# LICENSE, THIRD-PARTY-NOTICES and SHA256SUMS, whose sums must check, and
# the two must be byte-identical. When the environment names a signing key
# (see sign.sh), each signature carries its own signing time, so it compares
# what was signed instead of Kelvo.exe and SHA256SUMS: each release's
# program without its signature must be that clone's unsigned build, and
# the two must agree.
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
signed=${KELVO_SIGN_PKCS12:-}${KELVO_SIGN_PKCS11_KEY:-}
for copy in first second-folder; do
    listing=$(cd "$work/$copy/dist" && LC_ALL=C ls | tr '\n' ' ')
    [ "$listing" = "Kelvo.exe LICENSE SHA256SUMS THIRD-PARTY-NOTICES " ] ||
        die "$copy: dist/ holds $listing, not Kelvo.exe, LICENSE, SHA256SUMS and THIRD-PARTY-NOTICES"
    (cd "$work/$copy/dist" && sha256sum --quiet -c SHA256SUMS) || die "$copy: dist/SHA256SUMS does not check"
done
compared=(dist/Kelvo.exe dist/LICENSE dist/THIRD-PARTY-NOTICES dist/SHA256SUMS)
if [ -n "$signed" ]; then
    compared=(payload.exe dist/LICENSE dist/THIRD-PARTY-NOTICES)
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
say "reproducible: dist/ of four files, whose sums check; Kelvo.exe$([ -z "$signed" ] || echo "'s payload")" \
    "$(sha256sum "$work/first/${compared[0]}" | cut -c1-64)"
