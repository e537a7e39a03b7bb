#!/usr/bin/env bash
# Makes the i386 Debian root with 32-bit Wine that Kelvo and its tests run in,
# when it is missing or incomplete; does nothing when it is complete.
#
# Where this machine runs i386 programs, the root is the folder
# $KELVO_WINE_ROOT. Where it does not, the root is the disk image
# $KELVO_WINE_ROOT_IMAGE, used inside guest.sh's emulated guest: what needs
# the network (debootstrap's first stage, the packages' download) is done
# here, what runs i386 programs (debootstrap's second stage, the packages'
# set-up, the Wine prefix) in the guest, which has no network device.
#
#   wine-root.sh              make the root the way this machine needs
#   wine-root.sh --in-guest   (guest.sh runs this) finish the image's root
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
. "$here/common.sh"

root=$KELVO_WINE_ROOT

# Installs the root's packages; --no-download takes them from the root's
# own archive, filled beforehand.
install_packages() {
    # shellcheck disable=SC2016
    unshare --mount --propagation private bash -c '
        set -e
        mount -t proc proc "$1/proc"
        # A run stopped while dpkg worked leaves packages half set up.
        chroot "$1" env DEBIAN_FRONTEND=noninteractive dpkg --configure -a
        [ "$2" = --no-download ] || chroot "$1" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
        chroot "$1" env DEBIAN_FRONTEND=noninteractive \
            apt-get install -y -qq --no-install-recommends $2 $3
        chroot "$1" apt-get clean
    ' _ "$root" "${1:-}" "$KELVO_ROOT_PACKAGES"
}

# The prefix caches what the root offers (fonts, for one), so it is made
# anew whenever the root's packages change.
make_prefix() {
    [ "$(cat "$root$KELVO_PREFIX/.kelvo-prefix-level" 2>/dev/null)" != "$KELVO_ROOT_LEVEL" ] || return 0
    say "creating the Wine prefix"
    rm -rf "$root$KELVO_PREFIX"
    mkdir -p "$root$KELVO_PREFIX"
    run_step "creating the Wine prefix (wineboot)" "$here/sandbox.sh" --keep-prefix \
        sh -c '/usr/lib/wine/wine wineboot --init && /usr/lib/wine/wineserver -w'
    # Wine's own fonts are not found where this Wine looks unless they are
    # in the prefix: the TrueType ones (Marlett draws the caption buttons)
    # and the bitmap ones. "MS Sans Serif", the dialog's font, is a bitmap
    # font (sserife.fon); without it Wine skips its bitmap-only
    # ms_sans_serif.ttf and draws the dialog in a wider substitute.
    cp "$root"/usr/share/wine/fonts/*.ttf "$root"/usr/share/wine/fonts/*.fon \
        "$root$KELVO_PREFIX/drive_c/windows/Fonts/"
    echo "$KELVO_ROOT_LEVEL" >"$root$KELVO_PREFIX/.kelvo-prefix-level"
}

# debootstrap keeps its own log inside the root; show its end on failure.
bootstrap() {  # TARGET DEBOOTSTRAP-ARGUMENTS...
    local target=$1
    shift
    if [ "$1" = --second-stage ]; then
        set -- chroot "$target" /debootstrap/debootstrap "$@"
    else
        set -- debootstrap "$@"
    fi
    "$@" || { tail -n 15 "$target/debootstrap/debootstrap.log" 2>/dev/null; return 1; }
}

if [ "${1:-}" = --in-guest ]; then
    if [ -e "$root/debootstrap/debootstrap" ]; then
        # debootstrap's second stage cannot be taken up again where it was
        # stopped: the image is then made anew (exit status 75).
        [ ! -e "$root/.kelvo-second-stage" ] || { say "debootstrap's second stage was stopped before"; exit 75; }
        touch "$root/.kelvo-second-stage"
        say "in the guest: debootstrap's second stage"
        run_step "debootstrap's second stage, in the guest" \
            bootstrap "$root" --second-stage
    fi
    rm -f "$root/.kelvo-second-stage"
    say "in the guest: setting up the root's packages"
    run_step "setting up the root's packages, in the guest" install_packages --no-download
    make_prefix
    echo "$KELVO_ROOT_LEVEL" >"$root/.kelvo-root-level"
    exit 0
fi

need_root
mirror="" suite=$(. /etc/os-release && echo "$VERSION_CODENAME")

# The root as a folder, on a machine that runs i386 programs.
make_native_root() {
    local stamp=$root/.kelvo-root-level
    [ "$(cat "$stamp" 2>/dev/null)" != "$KELVO_ROOT_LEVEL" ] || return 0
    ensure_host_packages debootstrap debian-archive-keyring util-linux iproute2
    if [ ! -x "$root/usr/bin/apt-get" ] || [ ! -e "$root/.kelvo-bootstrapped" ]; then
        if [ -e "$root" ]; then
            if findmnt -rn -o TARGET | grep -qF "$root/"; then
                die "something is mounted below $root; not removing it"
            fi
            say "removing the incomplete Wine root $root"
            rm -rf --one-file-system "$root"
        fi
        need_space "$(dirname "$root")" 2560 "the Wine root"
        mirror=$(host_mirror)
        say "creating the i386 Debian root for Wine at $root"
        mkdir -p "$(dirname "$root")"
        run_step "debootstrap of the i386 root" \
            bootstrap "$root" --arch=i386 --variant=minbase "$suite" "$root" "$mirror"
        touch "$root/.kelvo-bootstrapped"
    fi
    say "installing inside the Wine root: $KELVO_ROOT_PACKAGES"
    run_step "installing packages inside the Wine root" install_packages
    make_prefix
    echo "$KELVO_ROOT_LEVEL" >"$stamp"
    say "Wine root ready"
}

# The guest's disk image, in two halves. This machine's half (the download,
# the image) ends with $image.new.ready; the guest's half (everything that
# runs i386 programs) is taken up again where a stopped run left it, except
# inside debootstrap's second stage, after which the image is made anew.
image=$KELVO_WINE_ROOT_IMAGE
first_half() {
    local stage=$root.stage
    rm -rf --one-file-system "$stage" "$image.new" "$image.new.ready"
    # The stage and its image (about 0.7 GB each), and the image grown to
    # about 2.2 GB.
    need_space "$(dirname "$image")" 4096 "the Wine root's disk image"
    at_exit "rm -rf --one-file-system '$stage'"
    mirror=$(host_mirror)
    say "creating the i386 Debian root for Wine as the disk image $image"
    run_step "debootstrap of the i386 root, first stage" \
        bootstrap "$stage" --foreign --arch=i386 --variant=minbase "$suite" "$stage" "$mirror"
    # This machine's apt, told that the root is an i386 system, fetches the
    # root's package lists and the packages with everything they depend on
    # into the root's own archive, for the guest to set up without a network.
    local root_apt=(apt-get -qq -o "Dir=$stage" -o Dir::Bin::Methods=/usr/lib/apt/methods
        -o Dir::State::status="$stage/var/lib/dpkg/status" -o APT::Architecture=i386
        -o APT::Architectures::=i386 -o Debug::NoLocking=1 -o APT::Sandbox::User=root)
    run_step "the root's package lists" "${root_apt[@]}" update
    # shellcheck disable=SC2086
    run_step "downloading the root's packages" \
        "${root_apt[@]}" install --download-only -y --no-install-recommends $KELVO_ROOT_PACKAGES
    # Room for Wine, X, the prefix and its growth; the file is sparse.
    run_step "making the disk image" mkfs.ext4 -q -F -L kelvo-root -d "$stage" "$image.new" 8G
    rm -rf --one-file-system "$stage"
    touch "$image.new.ready"
}
check_image() { e2fsck -p "$image.new" || [ $? = 1 ]; }  # 1: corrected
second_half() {
    say "setting up the root inside the guest: debootstrap's second stage, the packages, the prefix (the longest step; docs/emulated-guest.md#times)"
    KELVO_WINE_ROOT_IMAGE=$image.new try_step "setting up the root inside the guest" \
        "$here/guest.sh" --root-writable -- "$here/wine-root.sh" --in-guest &&
        # The guest unmounted it cleanly; this proves it.
        try_step "checking the image's file system" check_image
}
make_guest_root() {
    local stamp=$KELVO_WINE_ROOT_IMAGE.level
    [ "$(cat "$stamp" 2>/dev/null)" != "$KELVO_ROOT_LEVEL" ] || return 0
    ensure_host_packages debootstrap debian-archive-keyring util-linux iproute2 e2fsprogs
    run_child "$here/guest.sh" --prepare
    if [ -e "$image.new.ready" ]; then
        say "taking up the Wine root's disk image where an earlier run left it"
        # A failure here may be what stopped that run: once, start over.
        second_half || { say "the image left by the earlier run could not be finished: making it anew"
            first_half; second_half || die "the Wine root's disk image could not be made"; }
    else
        first_half
        second_half || die "the Wine root's disk image could not be made"
    fi
    mv "$image.new" "$image"
    rm -f "$image.new.ready"
    echo "$KELVO_ROOT_LEVEL" >"$stamp.new"
    mv "$stamp.new" "$stamp"
    say "Wine root ready (disk image)"
}

if [ "$KELVO_LAYER" = native ]; then
    [ "$(cat "$root/.kelvo-root-level" 2>/dev/null)" != "$KELVO_ROOT_LEVEL" ] || exit 0
    with_lock "$KELVO_STATE/.wine-root.lock" "making the Wine root" make_native_root
else
    [ "$(cat "$image.level" 2>/dev/null)" != "$KELVO_ROOT_LEVEL" ] || exit 0
    with_lock "$KELVO_STATE/.wine-root.lock" "making the Wine root's disk image" make_guest_root
fi
