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

KELVO_TOP=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
# What the scripts keep on this machine besides the root: the guest's files,
# locks, and the list of host packages they installed.
KELVO_STATE=$(dirname "$KELVO_WINE_ROOT")

say() { printf '[kelvo] %s\n' "$*" >&2; }
die() { say "error: $*"; exit 1; }

need_root() {
    [ "$(id -u)" = 0 ] || die "this step needs root (namespaces, chroot, apt)"
}

# --- Ending cleanly --------------------------------------------------------
# A script that sources this file ends, with everything it started, within
# seconds of a TERM, INT or HUP (Ctrl+C, a CI's time limit, a parent that
# ends). Long steps run as background children, each the leader of a
# process group of its own (run_child), because bash runs a trap only once a
# foreground command has ended. A signal interrupts the wait; every child's
# group, whatever it started included, is sent TERM and, 5 s later, KILL
# (Wine's namespaces ignore TERM); then the exit actions run and the script
# ends by the same signal.
KELVO_EXIT_ACTIONS=()
at_exit() { KELVO_EXIT_ACTIONS+=("$1"); }  # shell text, run last-added first
run_exit_actions() {
    local i
    for ((i = ${#KELVO_EXIT_ACTIONS[@]} - 1; i >= 0; i--)); do
        eval "${KELVO_EXIT_ACTIONS[i]}" 2>/dev/null || true
    done
    KELVO_EXIT_ACTIONS=()
}
signal_children() {  # SIGNAL: to every running child's process group
    local pid
    for pid in $(jobs -pr); do
        kill -"$1" -- "-$pid" 2>/dev/null || kill -"$1" "$pid" 2>/dev/null || true
    done
}
stop_children() {
    local _
    signal_children TERM
    for _ in $(seq 50); do
        [ -n "$(jobs -pr)" ] || return 0
        sleep 0.1
    done
    signal_children KILL
}
on_signal() {  # SIGNAL
    # The children first: the signal may have ended whatever read this
    # script's errors (a pipe to a reader in its group), so a word written
    # there now could end the script before them.
    trap '' INT TERM HUP PIPE
    stop_children
    say "stopped by SIG$1; ended what it started" || true
    run_exit_actions
    trap - EXIT "$1"
    kill -"$1" $$
}
trap run_exit_actions EXIT
trap 'on_signal INT' INT
trap 'on_signal TERM' TERM
trap 'on_signal HUP' HUP

# Runs COMMAND (a program or a shell function) as a child that a signal to
# this script ends (see above), with standard input /dev/null; its exit
# status is this function's.
run_child() {  # COMMAND...
    local pid
    set -m  # the child leads a process group of its own
    "$@" </dev/null &
    pid=$!
    set +m
    wait $pid
}

# Runs one set-up step with its output kept aside; when the step fails,
# prints its name, its last lines and any disk that is full, and returns
# its exit status.
try_step() {  # NAME COMMAND...
    local name=$1 log status=0
    shift
    log=$(mktemp)
    at_exit "rm -f '$log'"
    run_child "$@" >"$log" 2>&1 || status=$?
    if [ $status != 0 ]; then
        say "step failed: $name (exit status $status); its last lines:"
        tail -n 30 "$log" | sed 's/^/    /' >&2
        explain_full_disk
    fi
    rm -f "$log"
    return $status
}
# The same, and the script ends when the step fails.
run_step() {  # NAME COMMAND...
    try_step "$@" || die "$1 failed"
}

# Runs COMMAND holding the lock FILE, so that two runs on this machine never
# make or replace the same thing at once. A run that finds the lock taken
# says what it waits for, and waits at most an hour.
with_lock() {  # FILE WHAT COMMAND...
    local file=$1 what=$2 fd
    shift 2
    mkdir -p "$(dirname "$file")"
    exec {fd}>>"$file"
    if ! flock -n "$fd"; then
        say "waiting for another run on this machine, which is $what (lock $file)"
        # The lock belongs to the open file, which the child shares.
        run_child flock -w 3600 "$fd" || die "gave up after an hour waiting for the lock $file"
    fi
    # Called plainly, so that a failing command inside still ends the
    # script; the status is kept where the caller tests it (and so bash
    # does not end the script).
    local status=0
    "$@"
    status=$?
    exec {fd}>&-
    return $status
}

# --- Disk space -------------------------------------------------------------
# Fails unless the file system holding DIR has MIB mebibytes free, naming it.
need_space() {  # DIR MIB WHAT
    local dir=$1 need=$2 what=$3 free
    mkdir -p "$dir"
    free=$(df -Pm "$dir" | awk 'NR == 2 {print $4}')
    [ "$free" -ge "$need" ] || die "not enough disk space for $what: $(df -P "$dir" |
        awk 'NR == 2 {print $6}') (holding $dir) has $free MiB free, and needs $need MiB"
}
# After a failed step: names every file system of the scripts' that is full.
explain_full_disk() {
    local dir
    for dir in "$KELVO_STATE" "$KELVO_TOP" "${TMPDIR:-/tmp}"; do
        [ -d "$dir" ] || continue
        df -Pm "$dir" | awk -v dir="$dir" 'NR == 2 && $4 < 64 {
            printf "[kelvo] the disk is full: %s (holding %s) has %d MiB free\n", $6, dir, $4 > "/dev/stderr" }'
    done
}

# --- Where the 32-bit programs run ------------------------------------------
# "native" when this machine's kernel runs i386 programs, "guest" when they
# must run inside the emulated guest of guest.sh; KELVO_LAYER_WHY says how
# that was found. KELVO_I386=native or guest chooses. Decided once, and
# passed on to the scripts this one starts.
detect_layer() {
    case ${KELVO_I386:-} in
        native | guest) KELVO_LAYER=$KELVO_I386 KELVO_LAYER_WHY="KELVO_I386=$KELVO_I386 chose it"; return ;;
    esac
    # An emulator registered for i386 programs would make a native-looking
    # run an emulated one.
    local entry
    entry=$(grep -lsE '^magic 7f454c460101[0-9a-f]{24}0300' /proc/sys/fs/binfmt_misc/* | head -n 1 || true)
    if [ -n "$entry" ]; then
        KELVO_LAYER=guest
        KELVO_LAYER_WHY="the binfmt_misc entry $entry hands 32-bit x86 programs to an emulator"
        return
    fi
    # The smallest i386 Linux program: an ELF header, one loadable segment,
    # and exit(42) through int 0x80. Only that status counts: a file that did
    # not run as this program (cut short, or run by a shell) ends otherwise.
    local dir probe error status
    for dir in "$KELVO_STATE" "${TMPDIR:-/tmp}" /dev/shm; do
        mkdir -p "$dir" 2>/dev/null && probe=$(mktemp "$dir/i386-probe.XXXXXX" 2>/dev/null) || continue
        printf '%b' '\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00' \
            '\x02\x00\x03\x00\x01\x00\x00\x00\x54\x80\x04\x08\x34\x00\x00\x00' \
            '\x00\x00\x00\x00\x00\x00\x00\x00\x34\x00\x20\x00\x01\x00\x00\x00' \
            '\x00\x00\x00\x00' \
            '\x01\x00\x00\x00\x00\x00\x00\x00\x00\x80\x04\x08\x00\x80\x04\x08' \
            '\x60\x00\x00\x00\x60\x00\x00\x00\x05\x00\x00\x00\x00\x10\x00\x00' \
            '\xb8\x01\x00\x00\x00\xbb\x2a\x00\x00\x00\xcd\x80' >"$probe" 2>/dev/null &&
            chmod +x "$probe" || { rm -f "$probe"; continue; }
        status=0
        error=$("$probe" 2>&1) || status=$?
        rm -f "$probe"
        error=$(sed 's/^.*: //' <<<"$error" | tail -n 1)
        case "$status:$error" in
            42:*) KELVO_LAYER=native KELVO_LAYER_WHY="this machine's kernel runs 32-bit x86 programs"; return ;;
            *"Exec format error"*)
                KELVO_LAYER=guest
                KELVO_LAYER_WHY="this machine's kernel refuses 32-bit x86 programs (running one gave \"$error\")"
                return ;;
        esac
        # Permission denied (a noexec file system, say): another folder.
        say "the i386 probe in $dir did not run (exit status $status${error:+, \"$error\"}); trying another folder"
    done
    die "cannot tell whether this machine runs 32-bit x86 programs; set KELVO_I386=native or KELVO_I386=guest"
}
if [ -z "${KELVO_LAYER:-}" ]; then
    detect_layer
    export KELVO_LAYER KELVO_LAYER_WHY
fi

# How many times longer every wait and time limit of the tests is: 1
# natively; in the guest, where a Wine program starts many times more slowly,
# 10, at which every case passed there with room to spare. KELVO_TIME_SCALE
# sets it.
time_scale() {
    if [ -n "${KELVO_TIME_SCALE:-}" ]; then echo "$KELVO_TIME_SCALE"
    elif [ "$KELVO_LAYER" = native ]; then echo 1
    else echo 10; fi
}
KELVO_TIME_SCALE=$(time_scale)
[[ $KELVO_TIME_SCALE =~ ^[1-9][0-9]*$ ]] || die "KELVO_TIME_SCALE must be a whole number from 1 up"
export KELVO_TIME_SCALE

# One line for the reader: where the 32-bit programs run, and why.
describe_layer() {
    if [ "$KELVO_LAYER" = native ]; then
        echo "natively: $KELVO_LAYER_WHY"
    else
        echo "inside QEMU's emulated x86-64 guest ($("$KELVO_TOP/scripts/guest.sh" --describe)): $KELVO_LAYER_WHY"
    fi
}

# Runs COMMAND where 32-bit x86 programs run: here, or inside the guest,
# which may write only to the build tree BUILD (and, below it, the run's own
# folder). The command's standard input is /dev/null.
run_i386() {  # BUILD COMMAND...
    local build=$1
    shift
    if [ "$KELVO_LAYER" = native ]; then
        # In a pid namespace of its own: when it is stopped, nothing it
        # started is left behind.
        run_child unshare --pid --fork --kill-child "$@"
    else
        run_child "$KELVO_TOP/scripts/guest.sh" --rw "$build" -- "$@"
    fi
}

# Installs the named Debian packages on the host when any is missing, and
# adds them to $KELVO_STATE/host-packages, the list of what the scripts
# installed (and so what removing them means).
ensure_host_packages() {
    local missing=() pkg
    for pkg in "$@"; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' \
            || missing+=("$pkg")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    need_root
    with_lock "$KELVO_STATE/.apt.lock" "installing host packages" install_host_packages "${missing[@]}"
}
install_host_packages() {  # PACKAGE...
    local apt=(apt-get -qq -o DPkg::Lock::Timeout=600)
    say "installing host packages: $*"
    if ! DEBIAN_FRONTEND=noninteractive run_child "${apt[@]}" install -y --no-install-recommends "$@" >/dev/null; then
        run_child "${apt[@]}" update || return 1
        DEBIAN_FRONTEND=noninteractive run_child "${apt[@]}" install -y --no-install-recommends "$@" >/dev/null ||
            return 1
    fi
    printf '%s\n' "$@" >>"$KELVO_STATE/host-packages"
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
    scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
    # shellcheck disable=SC2086
    ensure_host_packages $KELVO_HOST_PACKAGES
    [ "$KELVO_LAYER" = native ] || run_child "$scripts/guest.sh" --prepare
    run_child "$scripts/wine-root.sh"
    # Configured once, and again only for another time scale: configuring
    # rewrites the unit tests' include file, and the next ctest would then
    # list them anew under Wine (in the guest, a boot). The build itself
    # configures again whenever a CMakeLists.txt changed.
    grep -qsx "KELVO_TIME_SCALE:STRING=$KELVO_TIME_SCALE" "$scripts/../build/mingw/CMakeCache.txt" ||
        (cd "$scripts/.." && cmake --preset mingw -DKELVO_TIME_SCALE="$KELVO_TIME_SCALE" >/dev/null)
}
