#!/usr/bin/env bash
# Runs a command inside the i386 Wine root, in private pid, mount, network
# and host-name namespaces made for this one run. The network namespace
# holds only "lo", so nothing a program sends can leave the machine; every
# mount made here disappears with the namespaces, even after a crash.
#
#   sandbox.sh [options] [--] COMMAND [ARG...]
#
# Options:
#   --bind DIR      make DIR (absolute) visible at the same path in the root
#   --setup SCRIPT  shell text run in the namespace before COMMAND, outside
#                   the root (host tools; creates network interfaces etc.)
#   --keep-prefix   write to the Wine prefix itself instead of a throwaway
#                   layer (used once, to create the prefix)
#   --xvfb          start a virtual X server (1024x768) in the namespace and
#                   give COMMAND its display
#
# COMMAND runs in the root with WINEPREFIX, HOME and WINEDEBUG set, and
# WINEDLLOVERRIDES keeping Wine's menu builder, which would write desktop
# menu entries for the prefix's programs, from starting; its exit status is
# this script's.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
. "$here/common.sh"

binds=()
setup=""
keep_prefix=0
xvfb=0
while [ $# -gt 0 ]; do
    case "$1" in
        --bind) binds+=("$(realpath -e "$2")") || die "no folder $2"; shift 2 ;;
        --setup) setup=$2; shift 2 ;;
        --keep-prefix) keep_prefix=1; shift ;;
        --xvfb) xvfb=1; shift ;;
        --) shift; break ;;
        *) break ;;
    esac
done
[ $# -gt 0 ] || die "usage: sandbox.sh [--bind DIR] [--setup SCRIPT] [--keep-prefix] [--xvfb] COMMAND..."
need_root
[ -x "$KELVO_WINE_ROOT/usr/lib/wine/wine" ] || die "no Wine root at $KELVO_WINE_ROOT (run scripts/wine-root.sh)"

export KELVO_WINE_ROOT KELVO_PREFIX
export SANDBOX_SETUP=$setup SANDBOX_KEEP_PREFIX=$keep_prefix SANDBOX_XVFB=$xvfb
# One folder a line: a path may hold spaces.
SANDBOX_BINDS=$(printf '%s\n' "${binds[@]}")
export SANDBOX_BINDS SANDBOX_WAIT=$((10 * KELVO_TIME_SCALE))

# Killing this script kills the namespace's first process, and with it
# every process in the namespace (a hung test's Wine, for one).
exec unshare --pid --fork --kill-child --mount --net --uts --propagation private bash -s -- "$@" <<'INNER'
set -euo pipefail
root=$KELVO_WINE_ROOT
mount -t proc proc "$root/proc"
mount -t tmpfs tmpfs "$root/tmp"
mount -t tmpfs tmpfs "$root/dev/shm"
if [ "$SANDBOX_KEEP_PREFIX" = 0 ] && [ -d "$root$KELVO_PREFIX" ]; then
    mount -t tmpfs tmpfs "$root/run"
    mkdir -p "$root/run/layer/upper" "$root/run/layer/work"
    mount -t overlay overlay \
        -o "lowerdir=$root$KELVO_PREFIX,upperdir=$root/run/layer/upper,workdir=$root/run/layer/work" \
        "$root$KELVO_PREFIX"
    # Services that a Wine session would start and that nothing Kelvo or a
    # test does uses: the Event Log; Plug and Play (and, through it, the USB
    # and HID bus drivers); the mount manager (drive letters and volumes:
    # the programs run by path, from Z:); and RPC, which only the virtual
    # desktop asks for (it draws the same without). Without them a session
    # starts sooner; in the emulated guest, the end-to-end table takes about
    # a fifth less time.
    printf '\n[System\\\\CurrentControlSet\\\\Services\\\\%s]\n"Start"=dword:00000004\n' Eventlog PlugPlay MountMgr RpcSs \
        >>"$root$KELVO_PREFIX/system.reg"
fi
while IFS= read -r dir; do
    [ -n "$dir" ] || continue
    mkdir -p "$root$dir"
    mount --bind "$dir" "$root$dir"
done <<<"$SANDBOX_BINDS"
ip link set lo up
hostname kelvo-sandbox  # not this machine's name, which Wine may look up
if [ -n "$SANDBOX_SETUP" ]; then
    eval "$SANDBOX_SETUP"
fi
cd "$root"
if [ "$SANDBOX_XVFB" = 1 ]; then
    chroot "$root" Xvfb :7 -screen 0 1024x768x24 -nolisten tcp >/dev/null 2>&1 &
    for _ in $(seq $((SANDBOX_WAIT * 10))); do
        [ -S "$root/tmp/.X11-unix/X7" ] && break
        sleep 0.1
    done
    [ -S "$root/tmp/.X11-unix/X7" ] || { echo "sandbox: Xvfb did not start within $SANDBOX_WAIT s" >&2; exit 1; }
    DISPLAY=:7
fi
status=0
chroot "$root" env -i PATH=/usr/local/bin:/usr/bin:/bin HOME=/root \
    WINEPREFIX="$KELVO_PREFIX" WINEDEBUG="${WINEDEBUG:--all}" \
    WINEDLLOVERRIDES="winemenubuilder.exe=d${WINEDLLOVERRIDES:+;$WINEDLLOVERRIDES}" \
    ${KELVO_TIME_SCALE:+KELVO_TIME_SCALE="$KELVO_TIME_SCALE"} \
    ${DISPLAY:+DISPLAY="$DISPLAY"} \
    "$@" || status=$?
exit "$status"
INNER
