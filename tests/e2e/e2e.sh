#!/usr/bin/env bash
# End to end: the real Kelvo.exe under 32-bit Wine against real kernel
# network interfaces. Each case runs in private network, mount and pid
# namespaces of its own (scripts/sandbox.sh), so nothing leaves the machine.
#
#   e2e.sh --list               the case names
#   e2e.sh BUILD_DIR CASE       run one case; exit 0 pass, 1 fail, 77 skip
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
scripts=$(cd "$here/../../scripts" && pwd)

# One case a line, fields separated by "|":
#   name | Windows family (nt, win98) | interfaces | planted DLLs (yes, no)
#   | how the dialog is closed | expected field | expected output lines (";")
# Interfaces, separated by ",": KIND NAME MAC [IPV4/PREFIX]. KIND is tap or
# bridge (Ethernet to Windows) or tun (not Ethernet, MAC "-"). Without an
# address an interface stays down.
CASES=(
"one-ethernet-down        |nt   |tap eth0 00:1a:2b:3c:4d:5e|no |ok      |08-0x3c2b444d|"
"three-ethernet           |nt   |tap eth0 00:50:56:c0:00:08, tap eth1 00:1a:2b:3c:4d:5e, bridge br0 02:00:00:00:00:03|no |ok|08-0xc0565800|"
"non-ethernet-first       |nt   |tun tun0 - 10.9.0.1/24, tap eth0 00:1a:2b:3c:4d:5e|no |ok |08-0x3c2b444d|"
"loopback-only            |nt   ||no |ok      |0|Line 245: Got 0x23 from NetBios()"
"non-ethernet-only        |nt   |tun tun0 - 10.9.0.1/24|no |ok|0|Line 368: Got 0x5 from NetBios();Line 289: Got 0x3 from NetBios()"
"legacy-skips-unassigned  |win98|tap eth0 00:1a:2b:3c:4d:5e, tap eth1 00:50:56:c0:00:08 10.9.0.1/24|no |ok|08-0xc0565800|"
"nt-takes-unassigned      |nt   |tap eth0 00:1a:2b:3c:4d:5e, tap eth1 00:50:56:c0:00:08 10.9.0.1/24|no |ok|08-0x3c2b444d|"
"planted-dlls-ethernet    |nt   |tap eth0 00:1a:2b:3c:4d:5e|yes|ok      |08-0x3c2b444d|"
"planted-dlls-loopback    |nt   ||yes|ok      |0|Line 245: Got 0x23 from NetBios()"
"close-enter              |nt   |tap eth0 00:1a:2b:3c:4d:5e|no |enter   |08-0x3c2b444d|"
"close-escape             |nt   |tap eth0 00:1a:2b:3c:4d:5e|no |escape  |08-0x3c2b444d|"
"close-box                |nt   |tap eth0 00:1a:2b:3c:4d:5e|no |closebox|08-0x3c2b444d|"
)

trim() { sed 's/^ *//; s/ *$//' <<<"$1"; }

if [ "${1:-}" = --list ]; then
    for row in "${CASES[@]}"; do trim "${row%%|*}"; done
    exit 0
fi
[ $# -eq 2 ] || { echo "usage: e2e.sh --list | e2e.sh BUILD_DIR CASE" >&2; exit 2; }
build=$(cd "$1" && pwd)
wanted=$2

row=""
for candidate in "${CASES[@]}"; do
    [ "$(trim "${candidate%%|*}")" = "$wanted" ] && row=$candidate
done
[ -n "$row" ] || { echo "no case named $wanted" >&2; exit 2; }
IFS='|' read -r _ family interfaces planted close field output <<<"$row"
family=$(trim "$family") planted=$(trim "$planted") close=$(trim "$close")
field=$(trim "$field") output=$(trim "$output")

if ! unshare --net --mount true 2>/dev/null; then
    echo "SKIP: this machine cannot make private network namespaces (needs root and unshare)"
    exit 77
fi

# The interfaces, as commands run inside the namespace.
setup="true"
IFS=, read -ra devices <<<"$interfaces"
for device in "${devices[@]}"; do
    read -r kind name mac address <<<"$device"
    [ -n "${kind:-}" ] || continue
    case "$kind" in
        tap) setup+=" && ip tuntap add dev $name mode tap" ;;
        tun) setup+=" && ip tuntap add dev $name mode tun" ;;
        bridge) setup+=" && ip link add $name type bridge" ;;
    esac
    [ "$mac" = - ] || setup+=" && ip link set $name address $mac"
    [ -z "${address:-}" ] || setup+=" && ip addr add $address dev $name && ip link set $name up"
done

# Kelvo runs from a folder of its own; planted DLLs go beside it, and Wine
# is told to prefer DLLs there, as Windows' default search order would.
case_dir=$build/tests/e2e/cases/$wanted
rm -rf "$case_dir"
mkdir -p "$case_dir"
cp "$build/app/Kelvo.exe" "$case_dir/"
if [ "$planted" = yes ]; then
    cp "$build/tests/e2e/iphlpapi.dll" "$build/tests/e2e/netapi32.dll" "$case_dir/"
    export WINEDLLOVERRIDES="iphlpapi,netapi32=n,b"
fi
version=""
[ "$family" = nt ] || version="/usr/lib/wine/wine reg add 'HKCU\\Software\\Wine' /v Version /d $family /f >/dev/null 2>&1;"

report=$("$scripts/sandbox.sh" --xvfb --bind "$build" --setup "$setup" -- sh -c "
    $version
    /usr/lib/wine/wine explorer /desktop=e2e,320x240 \
        '$build/tests/e2e/kelvo_ui.exe' --close '$close' --timeout 20 '$case_dir/Kelvo.exe'
" 2>&1 | tr -d '\r') || true
printf '%s\n' "$report"

expected=(
    "field=$field" "caption=Kelvo" "readonly=1" "copied=$field" "focus_ok=1"
    "caption_icon=1" "ended=1" "exit_code=0"
)
IFS=';' read -ra lines <<<"$output"
status=0
for want in "${expected[@]}"; do
    key=${want%%=*}
    got=$(grep -m1 "^$key=" <<<"$report" || echo "$key=(missing)")
    if [ "$got" != "$want" ]; then
        echo "FAIL $wanted: $key: expected '${want#*=}', got '${got#*=}'"
        status=1
    fi
done
client=$(sed -n 's/^client=//p' <<<"$report")
template=$(sed -n 's/^client_template=//p' <<<"$report")
if [ -z "$client" ] || [ "$client" != "$template" ]; then
    echo "FAIL $wanted: client area $client, template 112x55 units map to $template"
    status=1
fi
got_lines=$(sed -n 's/^stdout=//p' <<<"$report")
want_lines=$(printf '%s\n' "${lines[@]}" | sed '/^$/d')
if [ "$got_lines" != "$want_lines" ]; then
    echo "FAIL $wanted: standard output: expected [$want_lines], got [$got_lines]"
    status=1
fi
[ $status -eq 0 ] && echo "PASS $wanted"
exit $status
