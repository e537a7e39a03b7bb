#!/usr/bin/env bash
# Copies the named kernel modules, and every module they depend on, from an
# unpacked kernel's module tree into an initramfs's, each uncompressed (the
# initramfs's busybox loads plain .ko files only), and prints the names to
# load at boot, in the order given. A module built into the kernel (listed in
# its modules.builtin) needs no file and is not printed. Modules may be
# plain, or compressed with xz, zstd or gzip.
#
#   guest-modules.sh FROM-DIR TO-DIR NAME...
#
# Exit status 1, naming the module, when a module is neither a file nor
# built in, or cannot be uncompressed.
set -euo pipefail
from=$1 to=$2
shift 2

fail() { echo "guest-modules: $*" >&2; exit 1; }
# The name a module goes by: its file name without extensions, with "-"
# and "_" alike, as the kernel treats them.
canonical() { local base=${1##*/}; base=${base%%.ko*}; echo "${base//-/_}"; }

declare -A files=() builtin=()
while IFS= read -r path; do
    files[$(canonical "$path")]=$path
done < <(cd "$from" && find . -name '*.ko' -o -name '*.ko.xz' -o -name '*.ko.zst' -o -name '*.ko.gz')
if [ -e "$from/modules.builtin" ]; then
    while IFS= read -r path; do builtin[$(canonical "$path")]=1; done <"$from/modules.builtin"
fi

uncompress() {  # FILE: the module's bytes on standard output
    case "$1" in
        *.ko) cat "$1" ;;
        *.ko.xz) command -v xz >/dev/null || fail "xz (Debian's xz-utils) is needed for $1"; xz -dc "$1" ;;
        *.ko.zst) command -v zstd >/dev/null || fail "zstd (Debian's zstd) is needed for $1"; zstd -qdc "$1" ;;
        *.ko.gz) gzip -dc "$1" ;;
    esac
}

declare -A done=()
copy() {  # NAME: copies it and what it depends on; false when built in
    local name path target dep
    name=$(canonical "$1")
    [ -z "${done[$name]:-}" ] || return 0
    done[$name]=1
    if [ -z "${files[$name]:-}" ]; then
        [ -n "${builtin[$name]:-}" ] || fail "no module $1: neither a file below $from nor built in"
        return 1
    fi
    path=${files[$name]}
    target=$to/${path%.ko*}.ko
    mkdir -p "$(dirname "$target")"
    uncompress "$from/$path" >"$target" || fail "cannot uncompress $path"
    for dep in $(tr '\0' '\n' <"$target" | sed -n 's/^depends=//p' | tr ',' ' '); do
        copy "$dep" || true
    done
}

for name in "$@"; do
    if copy "$name"; then echo "$name"; fi
done
