#!/usr/bin/env bash
# Runs a command where this machine's kernel refuses 32-bit x86 programs:
# inside a small x86-64 Linux guest under QEMU, whose own kernel (Debian's,
# with IA32 emulation on) runs them. The guest has no network device, so
# nothing it does can leave it. It sees this machine's files read-only at
# their own paths, the folders named with --rw writable, and the Wine root's
# disk image (wine-root.sh) at $KELVO_WINE_ROOT. The command runs as root in
# the folder this script was started from (or in /, where the guest cannot
# see it), with the KELVO_*, CI and WINE* variables passed on and standard
# input empty. Its standard output and error come back on this script's, and
# its exit status is this script's.
#
#   guest.sh [--rw DIR]... [--root-writable] [--] COMMAND [ARG...]
#   guest.sh --prepare      only make the guest's kernel and initramfs
#   guest.sh --describe     print the accelerator and the guest's kernel
#
# The processor is emulated with KVM where this machine can boot the guest
# that way (tried once per boot of this machine), and else instruction by
# instruction (TCG). 2 CPUs, 4 GiB. The whole run is bounded by
# KELVO_GUEST_TIMEOUT seconds (default 3600). A TERM, INT or HUP ends the
# guest at once.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
. "$here/common.sh"

guest_dir=$KELVO_GUEST_DIR
# Modules the guest loads, in this order (busybox's modprobe adds what each
# depends on): the shared folders (9p over virtio), the root's disk (ext4 on
# virtio-blk), the sandbox's throwaway prefix layer (overlay) and the test
# interfaces (tap/tun, bridge).
GUEST_MODULES="virtio_pci virtio_console 9p 9pnet_virtio virtio_blk crc32c_generic ext4 overlay tun bridge"

# The guest's first process. It mounts the run's folder (tag "run"), then
# this machine's files (read-only) at /newroot and what the run's "shares"
# file lists, in its order: "share-ro TAG PATH" (a folder, read-only),
# "share TAG PATH" (a writable folder), "disk-ro PATH" (the root's image
# with a throwaway layer on top) or "disk-rw PATH". It runs
# command.sh with its output and errors on two virtio consoles (the kernel's
# own messages go to the serial port, beside the errors), unmounts the disk,
# writes the exit status to the run's "status" file and powers off.
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
# Kept open from here on: the console driver resets a console's settings
# when its last user closes it, and only raw consoles pass the command's
# bytes unchanged (no carriage return added before each newline).
exec 3<>/dev/hvc0 4<>/dev/hvc1
stty raw -echo <&3 && stty raw -echo <&4 || fail "no console for the command"
exec 2>&4
p9=trans=virtio,version=9p2000.L,msize=512000
mkdir /run-share
mount -t 9p -o "$p9,cache=none" run /run-share || fail "cannot mount the run's folder"
mount -t 9p -o "$p9,cache=loose,ro" host /newroot || fail "cannot mount the host's files"
mount -t proc proc /newroot/proc
mount -t sysfs sysfs /newroot/sys
mount -t devtmpfs devtmpfs /newroot/dev
mkdir -p /newroot/dev/pts /newroot/dev/shm
mount -t devpts devpts /newroot/dev/pts
# What udev would add: bash's process substitution needs /dev/fd.
ln -s /proc/self/fd /newroot/dev/fd
for fd in 0:stdin 1:stdout 2:stderr; do ln -s "/proc/self/fd/${fd%:*}" "/newroot/dev/${fd#*:}"; done
for dir in /tmp /run /dev/shm; do mount -t tmpfs tmpfs "/newroot$dir"; done
mkdir /newroot/run/kelvo
mount --bind /run-share /newroot/run/kelvo
disk=""
while read -r kind tag path; do
    # Below /tmp, say, the folder is not there: the guest's own /tmp hides it.
    mkdir -p "/newroot$path"
    case $kind in
        share-ro) mount -t 9p -o "$p9,cache=loose,ro" "$tag" "/newroot$path" || fail "cannot mount $path" ;;
        share) mount -t 9p -o "$p9,cache=loose" "$tag" "/newroot$path" || fail "cannot mount $path" ;;
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
done </run-share/shares
# Through pipes, as a command run from a script gets them: on a terminal,
# Wine's console and ctest would write terminal control sequences.
mkfifo /errors
cat /errors >&4 &
{
    chroot /newroot /bin/bash /run/kelvo/command.sh </dev/null 2>/errors 3>&- 4>&-
    echo "$?" >/status
} | cat >&3
wait
status=$(cat /status)
# The image counts as made only once its file system is cleanly unmounted.
if [ -n "$disk" ] && ! umount "/newroot$disk"; then
    echo "guest: cannot unmount $disk" >&2
    status=70
fi
echo "$status" >/run-share/status
sync
poweroff -f
INIT
}

# Where the guest's kernel and initramfs are kept: a folder named after
# what makes them (this init, the module list, and where the kernel and
# busybox come from), so that a checkout whose recipe differs uses its own
# and never replaces another's, and an edit elsewhere in this script does not
# make them anew.
files=$guest_dir/$({ write_init; echo "$GUEST_MODULES"
    echo "kernel: the package linux-image-amd64 names; busybox: busybox-static"; } |
    sha256sum | cut -c1-16)

# Downloads Debian package PACKAGE and unpacks it into DIR.
unpack_package() {  # PACKAGE DIR
    local debs
    debs=$(mktemp -d "$stage/debs.XXXXXX")
    (cd "$debs" && apt-get download -qq "$1" 2>&1 | grep -v 'unsandboxed' >&2 || true)
    ls "$debs"/"$1"_*.deb >/dev/null 2>&1 || die "guest: could not download $1"
    dpkg-deb -x "$debs"/"$1"_*.deb "$2"
}

make_guest_files() {
    [ ! -e "$files/initrd.gz" ] || return 0  # another run made them meanwhile
    rm -rf "$guest_dir"/.making.*  # left by a run that was stopped
    need_space "$guest_dir" 1024 "the guest's kernel and initramfs"
    say "making the guest's kernel and initramfs in $files"
    stage=$(mktemp -d "$guest_dir/.making.XXXXXX")
    at_exit "rm -rf '$stage'"
    # The kernel package that Debian's linux-image-amd64 currently names.
    kernel_package() {
        apt-cache depends linux-image-amd64 2>/dev/null |
            sed -n 's/^ *Depends: \(linux-image-[0-9].*\)/\1/p' | head -n 1
    }
    local pkg version
    pkg=$(kernel_package)
    [ -n "$pkg" ] || { apt-get update -qq && pkg=$(kernel_package); }
    [ -n "$pkg" ] || die "guest kernel: Debian's linux-image-amd64 names no kernel package"
    unpack_package "$pkg" "$stage/kernel"
    version=${pkg#linux-image-}
    grep -q '^CONFIG_IA32_EMULATION=y' "$stage/kernel/boot/config-$version" \
        || die "guest kernel: $pkg cannot run 32-bit programs"
    # busybox is unpacked, not installed: on this machine, Debian's
    # busybox-static would replace a busybox package.
    unpack_package busybox-static "$stage/busybox"

    mkdir -p "$stage/initrd"/{bin,dev,proc,sys,newroot} "$stage/initrd/lib/modules/$version" "$stage/out"
    cp "$stage/busybox/bin/busybox" "$stage/initrd/bin/"
    # shellcheck disable=SC2086
    "$here/guest-modules.sh" "$stage/kernel/lib/modules/$version" "$stage/initrd/lib/modules/$version" \
        $GUEST_MODULES >"$stage/initrd/modules" || die "guest kernel: $pkg lacks a module the guest needs"
    write_init >"$stage/initrd/init"
    chmod +x "$stage/initrd/init"
    (cd "$stage/initrd" && find . | "$stage/busybox/bin/busybox" cpio -o -H newc 2>/dev/null | gzip -1) \
        >"$stage/out/initrd.gz"
    cp "$stage/kernel/boot/vmlinuz-$version" "$stage/out/vmlinuz"
    echo "$version" >"$stage/out/kernel"
    mv -T "$stage/out" "$files"  # one rename: there whole, or not at all
    rm -rf "$stage"
}

prepare_guest() {
    [ ! -e "$files/initrd.gz" ] || return 0
    need_root
    ensure_host_packages qemu-system-x86
    with_lock "$guest_dir/.lock" "making the guest's kernel and initramfs" make_guest_files
}

# Boots the guest with ACCEL (kvm or tcg) and runs COMMAND in it for at most
# LIMIT seconds; its exit status is COMMAND's.
boot_guest() {  # ACCEL LIMIT COMMAND...
    local accel=$1 limit=$2 run lock dir i share=security_model=mapped-xattr,multidevs=remap status
    shift 2
    run=$(mktemp -d "$guest_dir/run.XXXXXX")
    at_exit "rm -rf '$run'"
    # The run's folder is locked while it runs; one whose lock is free was
    # left by a run that was killed.
    exec {lock}>"$run/lock"
    flock "$lock"
    for dir in "$guest_dir"/run.*; do
        [ "$dir" != "$run" ] && [ -e "$dir/lock" ] && flock -n "$dir/lock" true 2>/dev/null &&
            rm -rf "$dir"
    done
    local qemu=(qemu-system-x86_64 -smp 2 -m 4096
        -nic none -no-reboot -display none -monitor none -nodefaults
        -kernel "$files/vmlinuz" -initrd "$files/initrd.gz"
        -append "console=ttyS0 quiet loglevel=2 panic=-1 norandmaps mitigations=off"
        -chardev stdio,id=out,signal=off
        -chardev file,id=err,path=/proc/self/fd/2,append=on
        -chardev file,id=kernel,path=/proc/self/fd/2,append=on -serial chardev:kernel
        -device virtio-serial-pci -device virtconsole,chardev=out -device virtconsole,chardev=err
        -virtfs "local,path=/,mount_tag=host,readonly=on,security_model=passthrough,multidevs=remap"
        -virtfs "local,path=${run//,/,,},mount_tag=run,$share")
    # QEMU 7.2's TCG makes the stack reads of a 32-bit iret with kernel
    # privilege, which SMAP forbids: Wine's first program would oops the
    # guest. KVM runs the processor's own.
    if [ "$accel" = kvm ]; then qemu+=(-accel kvm -cpu host); else qemu+=(-accel tcg,thread=multi -cpu max,-smap); fi
    # The checkout, at its own path: where the guest mounts a file system of
    # its own (/tmp, /run, /dev/shm), this machine's files do not show it.
    qemu+=(-virtfs "local,path=${KELVO_TOP//,/,,},mount_tag=top,readonly=on,security_model=passthrough,multidevs=remap")
    printf 'share-ro top %s\n' "$KELVO_TOP" >"$run/shares"
    # Writable shares map ownership and modes to extended attributes, so
    # that what the guest writes as root (a set-user-ID file, a device)
    # appears on this machine as a plain file of QEMU's user.
    for i in "${!rw[@]}"; do
        qemu+=(-virtfs "local,path=${rw[$i]//,/,,},mount_tag=rw$i,$share")
        printf 'share rw%s %s\n' "$i" "${rw[$i]}" >>"$run/shares"
    done
    if [ -e "$KELVO_WINE_ROOT_IMAGE" ]; then
        mkdir -p "$KELVO_WINE_ROOT"  # the mount point, seen by the guest
        # Writable only while the root is made. Then the guest's flushes
        # are left to this machine's page cache (dpkg syncs every file it
        # writes), and a write error (a full disk) reaches the guest at
        # once, instead of pausing it for good.
        local drive=readonly=on
        [ $root_mode = ro ] || drive=cache=unsafe,werror=report,rerror=report
        qemu+=(-drive "file=${KELVO_WINE_ROOT_IMAGE//,/,,},format=raw,if=virtio,$drive")
        printf 'disk-%s - %s\n' "$root_mode" "$(realpath "$KELVO_WINE_ROOT")" >>"$run/shares"
    fi
    {
        printf 'export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root\n'
        for name in $(compgen -e); do
            case $name in KELVO_* | CI | WINE*) printf 'export %s=%q\n' "$name" "${!name}" ;; esac
        done
        printf 'export KELVO_I386=native KELVO_LAYER=native\n'  # the guest's kernel runs them
        printf 'export KELVO_LAYER_WHY=%q\n' "the guest's kernel runs 32-bit x86 programs"
        printf 'cd %q 2>/dev/null || cd /\n' "$PWD"
        printf 'exec'
        printf ' %q' "$@"
        printf '\n'
    } >"$run/command.sh"

    # QEMU writes the command's output to its standard output as it is, and
    # opens its standard error anew for the errors and the kernel's messages,
    # which is safe only on a pipe (a file's offset would not be shared); the
    # kernel's word that it powered off is left out. timeout, in a process
    # group of its own with QEMU, passes a TERM on to it.
    local pid watcher=""
    set -m
    timeout --foreground --kill-after=5 "$limit" "${qemu[@]}" </dev/null \
        2> >(sed -u '/\] reboot: Power down.\?$/d' >&2) &
    pid=$!
    [ $root_mode = ro ] || { watch_space "$(dirname "$KELVO_WINE_ROOT_IMAGE")" "$pid" "$run/full" & watcher=$!; }
    set +m
    status=0
    wait $pid || status=$?
    [ -z "$watcher" ] || kill "$watcher" 2>/dev/null || true
    if [ -s "$run/full" ]; then
        say "$(cat "$run/full")"
        return 28
    fi
    if [ ! -s "$run/status" ]; then
        [ $status != 124 ] || { say "the guest was stopped after $limit s before '$*' ended"; return 124; }
        say "the guest ended without finishing '$*' (QEMU's exit status $status; its console is above)"
        return 70
    fi
    return "$(cat "$run/status")"
}

# While the guest writes the root's image: when the file system holding DIR
# has less than 64 MiB left, says so in REPORT and stops the guest (process
# group PID) at once, before the guest's writes fail one by one.
watch_space() {  # DIR PID REPORT
    local free
    while sleep 2; do
        free=$(df -Pm "$1" | awk 'NR == 2 {print $4}')
        [ "$free" -lt 64 ] || continue
        df -P "$1" | awk -v free="$free" 'NR == 2 {printf "the disk is full: %s (holding the image) has %d MiB free, and the finished image takes about 2.2 GB; the guest was stopped\n", $6, free}' >"$3"
        kill -TERM -- "-$2" 2>/dev/null
        return
    done
}

# kvm where this machine has a usable /dev/kvm on a processor with hardware
# virtualisation and a guest boots with it within 60 s, else tcg. Found out
# once per boot of this machine.
# The accelerator found out since this machine last booted, if any.
known_accel() {
    local answer seen
    read -r answer seen 2>/dev/null <"$guest_dir/accel" &&
        [ "$seen" = "$(cat /proc/sys/kernel/random/boot_id)" ] && echo "$answer"
}
guest_accel() {
    local cache=$guest_dir/accel boot answer
    boot=$(cat /proc/sys/kernel/random/boot_id)
    if ! answer=$(known_accel); then
        answer=tcg
        if [ -r /dev/kvm ] && [ -w /dev/kvm ] && grep -qwE 'vmx|svm' /proc/cpuinfo; then
            say "trying whether the guest boots with KVM"
            (boot_guest kvm 60 true) >/dev/null 2>&1 && answer=kvm
        fi
        printf '%s %s\n' "$answer" "$boot" >"$cache.$$"
        mv "$cache.$$" "$cache"
    fi
    echo "$answer"
}

rw=() root_mode=ro
while [ $# -gt 0 ]; do
    case "$1" in
        --prepare) prepare_guest; exit 0 ;;
        --describe)
            if accel=$(known_accel); then accel=${accel^^}; else accel="accelerator not yet chosen"; fi
            echo "$accel, no network device, Linux $(cat "$files/kernel" 2>/dev/null || echo "not yet fetched")"
            exit 0 ;;
        # Resolved here: the guest mounts the folder itself, never a link.
        --rw) rw+=("$(realpath -e "$2")") || die "no folder $2"; shift 2 ;;
        --root-writable) root_mode=rw; shift ;;
        --) shift; break ;;
        *) break ;;
    esac
done
[ $# -gt 0 ] || die "usage: guest.sh [--rw DIR]... [--root-writable] [--] COMMAND [ARG...]"
need_root
prepare_guest
status=0
boot_guest "$(guest_accel)" "${KELVO_GUEST_TIMEOUT:-3600}" "$@" || status=$?
exit $status
