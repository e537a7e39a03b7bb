#!/usr/bin/env bash
# The guest's initramfs gets the kernel modules it needs however the kernel
# package ships them: plain, compressed (xz, zstd, gzip) or built in.
# Each case is a module tree made here and what scripts/guest-modules.sh
# must make of it.
set -euo pipefail
script=$(cd "$(dirname "$0")/../scripts" && pwd -P)/guest-modules.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A module file: the .modinfo strings are all the script reads.
module() {  # FILE DEPENDS
    mkdir -p "$(dirname "$1")"
    printf 'ELF\0name=%s\0depends=%s\0vermagic=6.1\0' "$(basename "${1%%.ko*}")" "$2" >"$1.plain"
    case "$1" in
        *.ko) mv "$1.plain" "$1" ;;
        *.xz) xz -c "$1.plain" >"$1" && rm "$1.plain" ;;
        *.zst) zstd -q -c "$1.plain" >"$1" && rm "$1.plain" ;;
        *.gz) gzip -c "$1.plain" >"$1" && rm "$1.plain" ;;
    esac
}

# name | modules in the tree (FILE:DEPENDS, space-separated) | built in |
# asked for | printed (the load order) | plain files made | exit status
CASES=(
"plain with a dependency |fs/9p.ko:9pnet net/9pnet.ko:           |          |9p          |9p        |fs/9p.ko net/9pnet.ko|0"
"xz, zstd and gzip       |a/tun.ko.xz: b/overlay.ko.zst: c/ext4.ko.gz:jbd2,mbcache d/jbd2.ko.xz: d/mbcache.ko.zst:||tun overlay ext4|tun overlay ext4|a/tun.ko b/overlay.ko c/ext4.ko d/jbd2.ko d/mbcache.ko|0"
"built in, not printed   |fs/overlay.ko:                     |kernel/fs/ext4/ext4.ko|ext4 overlay|overlay|fs/overlay.ko|0"
"dependency built in     |net/bridge.ko:stp,llc               |kernel/net/llc/llc.ko kernel/net/802/stp.ko|bridge|bridge|net/bridge.ko|0"
"dashes and underscores  |drivers/virtio-pci.ko:virtio_ring drivers/virtio_ring.ko:||virtio_pci|virtio_pci|drivers/virtio-pci.ko drivers/virtio_ring.ko|0"
"missing                 |fs/ext4.ko:                        |          |ext4 tun    |ext4      |fs/ext4.ko|1"
)

failures=0
for row in "${CASES[@]}"; do
    IFS='|' read -r name tree builtin asked printed made status <<<"$(sed 's/ *| */|/g; s/ *$//' <<<"$row")"
    from=$work/$RANDOM/from to=$work/$RANDOM/to
    mkdir -p "$from" "$to"
    for entry in $tree; do module "$from/kernel/${entry%%:*}" "${entry#*:}"; done
    for path in $builtin; do echo "$path"; done >"$from/modules.builtin"
    actual_status=0
    # shellcheck disable=SC2086
    actual=$("$script" "$from" "$to" $asked 2>"$work/errors" | paste -sd ' ') || actual_status=$?
    actual_made=$(cd "$to" && find . -type f | sed 's|^\./kernel/||' | sort | paste -sd ' ')
    expected_made=$(tr ' ' '\n' <<<"$made" | sort | paste -sd ' ')
    for check in "load order|$printed|$actual" "files|$expected_made|$actual_made" "exit status|$status|$actual_status"; do
        IFS='|' read -r what expected got <<<"$check"
        [ "$expected" = "$got" ] || { echo "FAIL $name: $what: expected [$expected], got [$got]"; failures=1; }
    done
    # Every file made is the module itself, uncompressed.
    for file in $made; do
        grep -qa "name=$(basename "${file%.ko}")" "$to/kernel/$file" 2>/dev/null ||
            { echo "FAIL $name: $file is not the uncompressed module"; failures=1; }
    done
    [ "$status" = 0 ] || grep -q "no module tun" "$work/errors" ||
        { echo "FAIL $name: the error does not name the module: $(cat "$work/errors")"; failures=1; }
done
[ $failures = 0 ] && echo "PASS: ${#CASES[@]} cases"
exit $failures
