# Shared settings for the project's scripts. Sourced, not run.

# The i386 Debian root that holds 32-bit Wine. It lives outside the source
# tree so that every checkout on this machine reuses it.
KELVO_WINE_ROOT=${KELVO_WINE_ROOT:-/var/lib/kelvo/wine-root}

# Wine prefix inside the root, made once; every run mounts a throwaway
# copy-on-write layer over it, so runs never change it.
KELVO_PREFIX=/opt/kelvo/prefix

# Bump when the list of packages inside the root, or what the prefix is
# given, changes, so that an older root is brought up to date.
KELVO_ROOT_LEVEL=6
KELVO_ROOT_PACKAGES="wine wine32 fonts-wine xvfb x11-utils imagemagick iproute2 xdotool xclip"

say() { printf '[kelvo] %s\n' "$*" >&2; }
die() { say "error: $*"; exit 1; }

need_root() {
    [ "$(id -u)" = 0 ] || die "this step needs root (namespaces, chroot, apt)"
}

# Installs the named Debian packages on the host when any is missing.
ensure_host_packages() {
    local missing=() pkg
    for pkg in "$@"; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' \
            || missing+=("$pkg")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    need_root
    say "installing host packages: ${missing[*]}"
    if ! DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null; then
        apt-get update -qq
        DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
    fi
}

# Prints the Debian mirror this machine's own apt sources use.
host_mirror() {
    local uri
    uri=$(grep -h '^URIs:' /etc/apt/sources.list.d/*.sources 2>/dev/null \
            | awk '{print $2}' | grep -v -- '-security' | head -n 1)
    [ -n "$uri" ] || uri=$(grep -h '^deb ' /etc/apt/sources.list 2>/dev/null \
            | awk '{print $2}' | grep -v -- '-security' | head -n 1)
    [ -n "$uri" ] || die "no Debian mirror found in the machine's apt sources"
    printf '%s\n' "$uri"
}

# What building Kelvo and its tests needs on the host.
KELVO_HOST_PACKAGES="cmake ninja-build g++-mingw-w64-i686-posix gcc-mingw-w64-i686-posix
    binutils-mingw-w64-i686 googletest debootstrap debian-archive-keyring util-linux iproute2"

# Installs what is missing, makes the Wine root if needed, configures.
prepare_build() {
    local scripts
    scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
    # shellcheck disable=SC2086
    ensure_host_packages $KELVO_HOST_PACKAGES
    "$scripts/wine-root.sh"
    (cd "$scripts/.." && cmake --preset mingw >/dev/null)
}
