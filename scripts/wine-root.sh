#!/usr/bin/env bash
# Makes the i386 Debian root with 32-bit Wine that Kelvo and its tests run in,
# when it is missing or incomplete; does nothing when it is complete.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/common.sh"

root=$KELVO_WINE_ROOT
stamp=$root/.kelvo-root-level
if [ "$(cat "$stamp" 2>/dev/null)" = "$KELVO_ROOT_LEVEL" ]; then
    exit 0
fi
need_root
ensure_host_packages debootstrap debian-archive-keyring util-linux iproute2

if [ ! -x "$root/usr/bin/apt-get" ] || [ ! -e "$root/.kelvo-bootstrapped" ]; then
    if [ -e "$root" ]; then
        if findmnt -rn -o TARGET | grep -q "^$root/"; then
            die "something is mounted below $root; not removing it"
        fi
        say "removing the incomplete Wine root $root"
        rm -rf --one-file-system "$root"
    fi
    mirror=$(host_mirror)
    suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
    say "creating the i386 Debian root for Wine at $root (about a minute)"
    mkdir -p "$(dirname "$root")"
    debootstrap --arch=i386 --variant=minbase "$suite" "$root" "$mirror" >/dev/null
    touch "$root/.kelvo-bootstrapped"
fi

say "installing inside the Wine root: $KELVO_ROOT_PACKAGES"
log=$(mktemp)
if ! unshare --mount --propagation private bash -c '
    set -e
    mount -t proc proc "$1/proc"
    chroot "$1" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    chroot "$1" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends $2
    chroot "$1" apt-get clean
' _ "$root" "$KELVO_ROOT_PACKAGES" >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    die "installing packages inside the Wine root failed"
fi
rm -f "$log"

# The prefix caches what the root offers (fonts, for one), so it is made
# anew whenever the root's packages change.
if [ "$(cat "$root$KELVO_PREFIX/.kelvo-prefix-level" 2>/dev/null)" != "$KELVO_ROOT_LEVEL" ]; then
    say "creating the Wine prefix (about ten seconds)"
    rm -rf "$root$KELVO_PREFIX"
    mkdir -p "$root$KELVO_PREFIX"
    "$here/sandbox.sh" --keep-prefix sh -c '/usr/lib/wine/wine wineboot --init && /usr/lib/wine/wineserver -w'
    # Wine's own fonts are not found where this Wine looks unless they are
    # in the prefix: the TrueType ones (Marlett draws the caption buttons)
    # and the bitmap ones. "MS Sans Serif", the dialog's font, is a bitmap
    # font (sserife.fon); without it Wine skips its bitmap-only
    # ms_sans_serif.ttf and draws the dialog in a wider substitute.
    cp "$root"/usr/share/wine/fonts/*.ttf "$root"/usr/share/wine/fonts/*.fon \
        "$root$KELVO_PREFIX/drive_c/windows/Fonts/"
    echo "$KELVO_ROOT_LEVEL" > "$root$KELVO_PREFIX/.kelvo-prefix-level"
fi
echo "$KELVO_ROOT_LEVEL" > "$stamp"
say "Wine root ready"
