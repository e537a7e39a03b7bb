#!/usr/bin/env bash
# Builds the release twice, from two clean clones of HEAD in different
# folders a few seconds apart, and fails unless dist/Kelvo.exe and
# dist/SHA256SUMS are byte-identical.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
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
for file in Kelvo.exe SHA256SUMS; do
    if ! cmp "$work/first/dist/$file" "$work/second-folder/dist/$file"; then
        die "dist/$file differs between the two builds"
    fi
done
say "reproducible: $(cat "$work/first/dist/SHA256SUMS")"
