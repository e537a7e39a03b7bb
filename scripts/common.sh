# Shared settings for the project's scripts. Sourced, not run.

# The i386 Debian root that holds 32-bit Wine. It lives outside the source
# tree so that every checkout on this machine reuses it.
KELVO_WINE_ROOT=${KELVO_WINE_ROOT:-/var/lib/kelvo/wine-root}
# Where the kernel refuses 32-bit x86 programs, the same root lives in this
# disk image instead, and runs inside an emulated guest (guest.sh), whose
# kernel and initramfs are kept in KELVO_GUEST_DIR.
KELVO_WINE_ROOT_IMAGE=${KELVO_WINE_ROOT_IMAGE:-$KELVO_WINE_ROOT.img}
KELVO_GUEST_DIR=${KELVO_GUEST_DIR:-$(dirname "$KELVO_WINE_ROOT")/guest}

# Wine prefix inside the root, made once; every run mounts a throwaway
# copy-on-write layer over it, so runs never change it.
KELVO_PREFIX=/opt/kelvo/prefix

# Bump when the list of packages inside the root, or what the prefix is
# given, changes, so that an older root is brought up to date.
KELVO_ROOT_LEVEL=6
KELVO_ROOT_PACKAGES="wine wine32 fonts-wine xvfb x11-utils imagemagick iproute2 xdotool xclip"

KELVO_TOP=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '[kelvo] %s\n' "$*" >&2; }
die() { say "error: $*"; exit 1; }

need_root() {
    [ "$(id -u)" = 0 ] || die "this step needs root (namespaces, chroot, apt)"
}

# Runs one set-up step with its output kept aside; when the step fails,
# prints its name and its last lines, and the script ends.
run_step() {  # NAME COMMAND...
    local name=$1 log status=0
    shift
    log=$(mktemp)
    "$@" >"$log" 2>&1 || status=$?
    if [ $status != 0 ]; then
        say "step failed: $name (exit status $status); its last lines:"
        tail -n 30 "$log" | sed 's/^/    /' >&2
        rm -f "$log"
        die "$name failed"
    fi
    rm -f "$log"
}

# How this machine runs 32-bit x86 programs: prints "native" when its kernel
# runs them, and "guest" when they must run inside the emulated guest of
# guest.sh. KELVO_I386=guest chooses the guest on a machine that would not
# need it. An i386 binfmt_misc entry (an emulator registered for i386
# programs) would make a native-looking run emulated, so it counts as no.
i386_layer() {
    case ${KELVO_I386:-} in native | guest) echo "$KELVO_I386"; return ;; esac
    local probe
    probe=$(dirname "$KELVO_WINE_ROOT")/i386-probe
    if grep -qsE '^magic 7f454c460101[0-9a-f]{24}0300' /proc/sys/fs/binfmt_misc/*; then
        echo guest
        return
    fi
    # The smallest i386 Linux program: an ELF header, one loadable segment,
    # and exit(0) through int 0x80.
    mkdir -p "$(dirname "$probe")"
    printf '%b' '\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00' \
        '\x02\x00\x03\x00\x01\x00\x00\x00\x54\x80\x04\x08\x34\x00\x00\x00' \
        '\x00\x00\x00\x00\x00\x00\x00\x00\x34\x00\x20\x00\x01\x00\x00\x00' \
        '\x00\x00\x00\x00' \
        '\x01\x00\x00\x00\x00\x00\x00\x00\x00\x80\x04\x08\x00\x80\x04\x08' \
        '\x5d\x00\x00\x00\x5d\x00\x00\x00\x05\x00\x00\x00\x00\x10\x00\x00' \
        '\xb8\x01\x00\x00\x00\x31\xdb\xcd\x80' >"$probe"
    chmod +x "$probe"
    if "$probe" 2>/dev/null; then echo native; else echo guest; fi
}

# How many times longer the tests' time limits are for the layer. Measured
# in the guest, a unit test takes 10 to 30 times as long as natively and an
# end-to-end case 10 to 15 times; the limits leave room natively, and at
# ten times every case passed in the guest.
time_scale() {
    if [ "$(i386_layer)" = native ]; then echo 1; else echo 10; fi
}

# One line for the reader: where the 32-bit programs ran.
describe_layer() {
    if [ "$(i386_layer)" = native ]; then
        echo "natively: this machine's kernel runs 32-bit x86 programs"
    else
        local why="this machine's kernel refuses 32-bit x86 programs"
        [ "${KELVO_I386:-}" != guest ] || why="KELVO_I386=guest chose it"
        echo "inside QEMU's emulated x86-64 guest (TCG, no network device," \
            "Linux $(cat "$KELVO_GUEST_DIR/kernel" 2>/dev/null)): $why"
    fi
}

# Runs COMMAND where 32-bit x86 programs run: here, or inside the guest.
run_i386() {  # COMMAND...
    if [ "$(i386_layer)" = native ]; then
        "$@"
    else
        "$KELVO_TOP/scripts/guest.sh" -- "$@"
    fi
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
    [ "$(i386_layer)" = native ] || "$scripts/guest.sh" --prepare
    "$scripts/wine-root.sh"
    (cd "$scripts/.." && cmake --preset mingw -DKELVO_TIME_SCALE="$(time_scale)" >/dev/null)
}
