#!/usr/bin/env bash
# Builds Kelvo.exe and runs it under 32-bit Wine, natively or inside the
# emulated guest of guest.sh, as this machine allows. Installs what is
# missing first; needs root.
#
#   scripts/run.sh                 this machine's Ethernet adapters
#   scripts/run.sh --isolated MAC  one Ethernet adapter with address MAC
#   scripts/run.sh --new-reference one adapter, 00:1A:2B:3C:4D:5E, and the
#                                  screenshot becomes docs/kelvo-dialog.png,
#                                  the picture the end-to-end table compares
#
# Kelvo never runs in this machine's own network namespace (its NetBIOS
# fallback broadcasts). It runs in a private one that holds copies of this
# machine's Ethernet interfaces: tap devices with the same hardware
# addresses in the same order, so it finds the address it would find here.
#
# With an X display (DISPLAY=:N) the dialog opens there. Without one, a
# virtual X server is started, and tests/e2e/drive.sh copies the field as a
# user would, saves a screenshot and presses OK.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
. "$here/common.sh"

isolated_mac="" new_reference=0
case "${1:-}" in
    "") ;;
    --new-reference) isolated_mac=00:1a:2b:3c:4d:5e new_reference=1 ;;
    --isolated)
        isolated_mac=$(tr 'A-F-' 'a-f:' <<<"${2:-}")
        [[ $isolated_mac =~ ^([0-9a-f]{2}:){5}[0-9a-f]{2}$ ]] \
            || die "--isolated needs a hardware address such as 00:1A:2B:3C:4D:5E"
        ;;
    *) die "usage: scripts/run.sh [--isolated MAC | --new-reference]" ;;
esac

need_root
prepare_build
run_child cmake --build --preset mingw --target Kelvo
top=$KELVO_TOP
build=$top/build/mingw
kelvo=$build/app/Kelvo.exe
out=$build/run
mkdir -p "$out"

# Interfaces that Wine would list as Ethernet, in the order it lists them
# (ascending interface index): hardware type 1 (Ethernet), not wireless.
machine_ethernet() {
    local dir
    for dir in /sys/class/net/*; do
        [ "$(cat "$dir/type")" = 1 ] && [ ! -d "$dir/wireless" ] || continue
        printf '%s %s %s\n' "$(cat "$dir/ifindex")" "$(basename "$dir")" "$(cat "$dir/address")"
    done | sort -n
}

setup=""
if [ -n "$isolated_mac" ]; then
    say "private network namespace with one Ethernet adapter, $isolated_mac"
    setup="ip tuntap add dev eth0 mode tap && ip link set eth0 address $isolated_mac"
else
    interfaces=$(machine_ethernet)
    if [ -z "$interfaces" ]; then
        say "this machine has no Ethernet interface: private network namespace with only"
        say "loopback, so Kelvo's NetBIOS fallback stays inside this machine"
    else
        listed=""
        while read -r _ name mac; do
            setup+="ip tuntap add dev $name mode tap && ip link set $name address $mac && "
            listed+=" $name ($mac)"
        done <<<"$interfaces"
        setup+="true"
        say "this machine's Ethernet interfaces, copied into a private network namespace:"
        say "  $listed"
        say "the first of them is the one Kelvo takes"
    fi
fi

say "Kelvo runs $(describe_layer)"
binds=(--bind "$build")
if [ "$KELVO_LAYER" = guest ] && [ -n "${DISPLAY:-}" ]; then
    say "the emulated guest cannot reach display $DISPLAY: using a virtual X server instead"
elif [ $new_reference = 0 ] && [[ ${DISPLAY:-} =~ ^:([0-9]+) ]] && [ -S "/tmp/.X11-unix/X${BASH_REMATCH[1]}" ]; then
    say "opening the dialog on display $DISPLAY"
    binds+=(--bind /tmp/.X11-unix)
    if [ -n "${XAUTHORITY:-}" ] && [ -f "$XAUTHORITY" ]; then
        binds+=(--bind "$(dirname "$XAUTHORITY")")
    fi
    exec "$here/sandbox.sh" "${binds[@]}" --setup "$setup" -- /usr/lib/wine/wine "$kelvo"
fi

say "no display: starting a virtual X server; the dialog is copied from, photographed and closed"
rm -f "$out/kelvo-dialog.png"
run_i386 "$build" "$here/sandbox.sh" --xvfb "${binds[@]}" --bind "$top/tests/e2e" --setup "$setup" -- \
    "$top/tests/e2e/drive.sh" --screenshot "$out/kelvo-dialog.png" "$kelvo" >"$out/report" ||
    { cat "$out/report"; die "no dialog appeared"; }
report=$(cat "$out/report")

sed -n 's/^stdout=/Kelvo wrote: /p; s/^gave_up=/Gave up waiting for: /p' <<<"$report"
echo "Machine ID: $(sed -n 's/^field=//p' <<<"$report")"
echo "Screenshot: $out/kelvo-dialog.png"
if [ $new_reference = 1 ]; then
    cp "$out/kelvo-dialog.png" "$top/docs/kelvo-dialog.png"
    say "docs/kelvo-dialog.png made anew: look at it, and at git diff, before committing it"
fi
say "closed with OK; Kelvo exited with code $(sed -n 's/^exit_code=//p' <<<"$report")"
