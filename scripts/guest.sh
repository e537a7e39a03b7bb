#!/usr/bin/env bash
# Runs a command where this machine's kernel refuses 32-bit x86 programs:
# inside a small x86-64 Linux guest under QEMU's full-system emulator, whose
# own kernel (Debian's, with IA32 emulation on) runs them. The guest has no
# network device, so nothing it does can leave it. It sees this machine's
# files read-only at their own paths, the folders named with --rw writable,
# and the Wine root's disk image (wine-root.sh) at $KELVO_WINE_ROOT. The
# checkout is always writable. The command runs as root in the folder this
# script was started from (or in /, where the guest cannot see it), with the
# KELVO_*, CI and WINE* variables passed on. Its standard output and error
# come back on this script's, and its exit status is this script's.
#
#   guest.sh [--rw DIR]... [--root-writable] [--] COMMAND [ARG...]
#   guest.sh --prepare      only make the guest's kernel and initramfs
#
# The guest is emulated instruction by instruction (TCG): no KVM is used,
# because where this machine has /dev/kvm it is not one QEMU can boot a
# guest on. 2 CPUs, 4 GiB. The whole run is bounded by KELVO_GUEST_TIMEOUT
# seconds (default 3600).
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/common.sh"

guest=$KELVO_GUEST_DIR
# Modules the guest loads, in this order (busybox's modprobe adds what each
# depends on): the shared folders (9p over virtio), the root's disk (ext4 on
# virtio-blk), the sandbox's throwaway prefix layer (overlay) and the test
# interfaces (tap/tun, bridge).
GUEST_MODULES="virtio_pci virtio_console 9p 9pnet_virtio virtio_blk crc32c_generic ext4 overlay tun bridge"

# Makes $guest/vmlinuz and $guest/initrd.gz when they are missing or older
# than this script.
prepare_guest() {
    local level stage pkg version modules name file
    level=$(cksum <"$0" | cut -d' ' -f1)
    [ "$(cat "$guest/level" 2>/dev/null)" = "$level" ] && return 0
    need_root
    ensure_host_packages qemu-system-x86 busybox-static cpio
    say "making the guest's kernel and initramfs in $guest"
    mkdir -p "$guest"
    stage=$(mktemp -d)
    trap 'rm -rf "$stage"' RETURN
    # The kernel package that Debian's linux-image-amd64 currently names.
    kernel_package() {
        apt-cache depends linux-image-amd64 2>/dev/null |
            sed -n 's/^ *Depends: \(linux-image-[0-9].*\)/\1/p' | head -n 1
    }
    pkg=$(kernel_package)
    [ -n "$pkg" ] || { apt-get update -qq && pkg=$(kernel_package); }
    [ -n "$pkg" ] || die "guest kernel: Debian's linux-image-amd64 names no kernel package"
    (cd "$stage" && apt-get download -qq "$pkg" 2>&1 | grep -v 'unsandboxed' >&2 || true)
    ls "$stage"/"$pkg"_*.deb >/dev/null 2>&1 || die "guest kernel: could not download $pkg"
    dpkg-deb -x "$stage"/"$pkg"_*.deb "$stage/kernel"
    version=${pkg#linux-image-}
    modules=$stage/kernel/lib/modules/$version
    grep -q '^CONFIG_IA32_EMULATION=y' "$stage/kernel/boot/config-$version" \
        || die "guest kernel: $pkg cannot run 32-bit programs"

    mkdir -p "$stage/initrd"/{bin,dev,proc,sys,newroot} "$stage/initrd/lib/modules/$version"
    cp /bin/busybox "$stage/initrd/bin/"
    # The listed modules and everything they depend on.
    local wanted=($GUEST_MODULES) copied=" "
    while [ ${#wanted[@]} -gt 0 ]; do
        name=${wanted[0]} wanted=("${wanted[@]:1}")
        [[ $copied == *" $name "* ]] && continue
        file=$(cd "$modules" && find kernel -name "$name.ko" | head -n 1)
        [ -n "$file" ] || die "guest kernel: no module $name in $pkg"
        mkdir -p "$stage/initrd/lib/modules/$version/$(dirname "$file")"
        cp "$modules/$file" "$stage/initrd/lib/modules/$version/$file"
        copied+="$name "
        # shellcheck disable=SC2207
        wanted+=($(tr '\0' '\n' <"$modules/$file" | sed -n 's/^depends=//p' | tr ',' ' '))
    done
    echo "$GUEST_MODULES" >"$stage/initrd/modules"
    write_init >"$stage/initrd/init"
    chmod +x "$stage/initrd/init"
    (cd "$stage/initrd" && find . | cpio -o -H newc --quiet | gzip -1) >"$guest/initrd.gz"
    cp "$stage/kernel/boot/vmlinuz-$version" "$guest/vmlinuz"
    echo "$version" >"$guest/kernel"
    echo "$level" >"$guest/level"
}

# The guest's first process. It mounts this machine's files (read-only), the
# writable folders and the root's image as listed in $run/shares, runs
# $run/command.sh with its output and errors on two virtio consoles (the
# kernel's own messages go to the serial port, beside the errors), writes its exit status to $run/status and powers off.
write_init() {
    cat <<'INIT'
#!/bin/busybox sh
/bin/busybox --install -s /bin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
exec 2>/dev/ttyS0
fail() { echo "guest: $*" >&2; poweroff -f; }
depmod
for module in $(cat /modules); do modprobe "$module" || fail "cannot load $module"; done
stty -F /dev/hvc0 raw -echo && stty -F /dev/hvc1 raw -echo || fail "no console for the command"
exec 2>/dev/hvc1
run=""
for arg in $(cat /proc/cmdline); do
    case $arg in kelvo.run=*) run=${arg#kelvo.run=} ;; esac
done
p9=trans=virtio,version=9p2000.L,msize=512000
mount -t 9p -o "$p9,cache=loose,ro" host /newroot || fail "cannot mount the host's files"
mount -t proc proc /newroot/proc
mount -t sysfs sysfs /newroot/sys
mount -t devtmpfs devtmpfs /newroot/dev
mkdir -p /newroot/dev/pts /newroot/dev/shm
mount -t devpts devpts /newroot/dev/pts
for dir in /tmp /run /dev/shm; do mount -t tmpfs tmpfs "/newroot$dir"; done
disk=""
while read -r kind name path; do
    case $kind in
        share)
            mkdir -p "/newroot$path"  # below /tmp, say, the folder is not there
            mount -t 9p -o "$p9,cache=loose" "$name" "/newroot$path" || fail "cannot mount $path" ;;
        disk-ro)
            # Read-only underneath, writable on top: what a run changes in
            # the root (its mount points, for one) is gone with the guest.
            mkdir -p /disk /layer
            mount -t ext4 -o ro,noload /dev/vda /disk || fail "cannot mount the root's image"
            mount -t tmpfs tmpfs /layer
            mkdir /layer/upper /layer/work
            mount -t overlay overlay -o lowerdir=/disk,upperdir=/layer/upper,workdir=/layer/work \
                "/newroot$path" || fail "cannot mount $path" ;;
        disk-rw) disk=$path; mount -t ext4 /dev/vda "/newroot$path" || fail "cannot mount $path" ;;
    esac
done <"/newroot$run/shares"
# Through pipes, as a command run from a script gets them: on a terminal,
# Wine's console and ctest would write terminal control sequences.
mkfifo /errors
cat /errors >/dev/hvc1 &
{
    chroot /newroot /bin/bash "$run/command.sh" </dev/null 2>/errors
    echo "$?" >"/newroot$run/status"
} | cat >/dev/hvc0
wait
[ -z "$disk" ] || umount "/newroot$disk" || echo "guest: cannot unmount $disk" >&2
sync
poweroff -f
INIT
}

rw=("$KELVO_TOP") root_mode=ro
while [ $# -gt 0 ]; do
    case "$1" in
        --prepare) prepare_guest; exit 0 ;;
        --rw) rw+=("$(realpath "$2")"); shift 2 ;;
        --root-writable) root_mode=rw; shift ;;
        --) shift; break ;;
        *) break ;;
    esac
done
[ $# -gt 0 ] || die "usage: guest.sh [--rw DIR]... [--root-writable] [--] COMMAND [ARG...]"
need_root
prepare_guest

run=$(mktemp -d "$guest/run.XXXXXX")
trap 'rm -rf "$run"' EXIT
share_options=security_model=passthrough,multidevs=remap
qemu=(qemu-system-x86_64 -accel tcg,thread=multi -cpu max,-smap -smp 2 -m 4096
    -nic none -no-reboot -display none -monitor none -nodefaults
    -kernel "$guest/vmlinuz" -initrd "$guest/initrd.gz"
    -append "console=ttyS0 quiet panic=-1 kelvo.run=$run"
    -chardev stdio,id=out,signal=off
    -chardev file,id=err,path=/proc/self/fd/2,append=on
    -chardev file,id=kernel,path=/proc/self/fd/2,append=on -serial chardev:kernel
    -device virtio-serial-pci -device virtconsole,chardev=out -device virtconsole,chardev=err
    -virtfs "local,path=/,mount_tag=host,readonly=on,$share_options"
    -virtfs "local,path=$run,mount_tag=run,$share_options")
echo "share run $run" >"$run/shares"
for i in "${!rw[@]}"; do
    qemu+=(-virtfs "local,path=${rw[$i]},mount_tag=rw$i,$share_options")
    echo "share rw$i ${rw[$i]}" >>"$run/shares"
done
if [ -e "$KELVO_WINE_ROOT_IMAGE" ]; then
    mkdir -p "$KELVO_WINE_ROOT"  # the mount point, seen by the guest
    # Writable only while the root is made; the guest's flushes are then
    # left to this machine's page cache (dpkg syncs every file it writes).
    drive=readonly=on
    [ $root_mode = ro ] || drive=cache=unsafe
    qemu+=(-drive "file=$KELVO_WINE_ROOT_IMAGE,format=raw,if=virtio,$drive")
    echo "disk-$root_mode root $KELVO_WINE_ROOT" >>"$run/shares"
fi
{
    printf 'export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root\n'
    for name in $(compgen -e); do
        case $name in KELVO_* | CI | WINE*) printf 'export %s=%q\n' "$name" "${!name}" ;; esac
    done
    printf 'export KELVO_I386=native\n'  # the guest's kernel runs them
    printf 'cd %q 2>/dev/null || cd /\n' "$PWD"
    printf 'exec'
    printf ' %q' "$@"
    printf '\n'
} >"$run/command.sh"

limit=${KELVO_GUEST_TIMEOUT:-3600}
qemu_status=0
# QEMU writes the command's output to its standard output as it is, and
# opens its standard error anew for the errors and the kernel's messages,
# which is safe only on a pipe (a file's offset would not be shared); the
# kernel's word that it powered off is left out.
exec 3>&1
set +e
timeout "$limit" "${qemu[@]}" </dev/null 2>&1 1>&3 3>&- | sed -u '/\] reboot: Power down.\?$/d' >&2
qemu_status=${PIPESTATUS[0]}
set -e
if [ ! -s "$run/status" ]; then
    [ $qemu_status != 124 ] || die "the guest was stopped after $limit s (KELVO_GUEST_TIMEOUT) before '$*' ended"
    die "the guest ended without finishing '$*' (QEMU's exit status $qemu_status; its console is above)"
fi
exit "$(cat "$run/status")"
