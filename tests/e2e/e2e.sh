#!/usr/bin/env bash
# End to end: the real Kelvo.exe under 32-bit Wine against real kernel
# network interfaces and a real NetBIOS node, used from the X side as a
# person would (drive.sh). Each case runs in private network, mount and pid
# namespaces of its own (scripts/sandbox.sh), so nothing leaves the machine.
#
#   e2e.sh --list               the case names
#   e2e.sh BUILD_DIR CASE       run one case; exit 0 pass, 1 fail, 77 skip
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
scripts=$(cd "$here/../../scripts" && pwd -P) docs=$(cd "$here/../../docs" && pwd -P)

# One case a line, fields separated by "|":
#   name | Windows (nt, win98) | interfaces | NetBIOS node | also | how the
#   dialog is closed | expected field | expected output lines (";") | every
#   kind of frame Kelvo sent, on any interface (";", as peer.py names
#   them; "nothing")
# Interfaces, separated by ",": KIND NAME MAC [IPV4/PREFIX]. KIND is tap or
# bridge (Ethernet to Windows) or tun (not Ethernet, MAC "-"); an interface
# without an address stays down. The node runs on the first interface with
# an address, names 10.9.0.2 (an address added there) as the probe name's
# owner and answers the node status with MAC, or with "ignore" never
# answers it, or with "negative" refuses it. Also: signed (Kelvo.exe as the sign.token-timestamped test
# signed it: through a token, timestamped), planted (DLLs planted beside
# Kelvo.exe), f1 (F1 asks for help), routed (a default route and a name
# server, below), picture
# (the dialog must match docs/kelvo-dialog.png to the pixel; scripts/run.sh
# --new-reference makes that picture, with the same field).
# Closing: space (on OK), enter, escape, altf4, closebox.
# What the NetBIOS fallback sends: a name query for its own probe name,
# broadcast, and a node-status request to the address the answer named.
query="NB query SCANINFO0029<20>, broadcast to 10.9.0.255"
asks_status="NBSTAT query SCANINFO0029<20>, unicast to 10.9.0.2"
# Where a name server is reachable: Wine asks it for the sandbox's own host
# name, with or without the fallback, and the fallback asks it for the probe
# name before it broadcasts.
self_lookup="DNS A query kelvo-sandbox, to 10.9.0.53;DNS AAAA query kelvo-sandbox, to 10.9.0.53"
probe_lookup="DNS A query SCANINFO0029, to 10.9.0.53"
CASES=(
"three-ethernet          |nt   |tap eth0 00:50:56:c0:00:08, tap eth1 00:1a:2b:3c:4d:5e, bridge br0 02:00:00:00:00:03|-|signed  |space   |08-0xc0565800||nothing"
"non-ethernet-first      |nt   |tun tun0 - 10.9.0.1/24, tap eth0 00:1a:2b:3c:4d:5e|-|picture |enter   |08-0x3c2b444d||nothing"
"loopback-only           |nt   ||-|-       |escape  |0|Line 245: Got 0x23 from NetBios()|nothing"
"no-node-answers         |nt   |tun tun0 - 10.9.0.1/24|-|-       |altf4   |0|Line 368: Got 0x5 from NetBios();Line 289: Got 0x3 from NetBios()|$query"
"legacy-skips-unassigned |win98|tap eth0 00:1a:2b:3c:4d:5e, tap eth1 00:50:56:c0:00:08 10.9.0.1/24|-|-       |closebox|08-0xc0565800||nothing"
"planted-dlls            |nt   ||-|planted |space   |0|Line 245: Got 0x23 from NetBios()|nothing"
"f1-asks-for-help        |nt   |tap eth0 00:1a:2b:3c:4d:5e|-|f1      |enter   |08-0x3c2b444d||nothing"
"node-answers            |nt   |tun tun0 - 10.9.0.1/24|00:1a:2b:3c:4d:5e|-       |escape|08-0x3c2b444d|Line 289: Got 0x3 from NetBios()|$query;$asks_status"
"legacy-asks-node        |win98|tap eth0 00:50:56:c0:00:08, tun tun0 - 10.9.0.1/24|00:1a:2b:3c:4d:5e|-       |space|08-0x3c2b444d|Line 289: Got 0x3 from NetBios()|$query;$asks_status"
"nt-takes-unassigned     |nt   |tap eth0 00:50:56:c0:00:08, tun tun0 - 10.9.0.1/24|00:1a:2b:3c:4d:5e|-       |enter|08-0xc0565800||nothing"
"node-ignores-status     |nt   |tun tun0 - 10.9.0.1/24|00:1a:2b:3c:4d:5e ignore|-       |altf4|0|Line 289: Got 0x3 from NetBios()|$query;$asks_status"
"routed-ethernet         |nt   |tap eth0 00:1a:2b:3c:4d:5e 10.9.0.1/24|00:50:56:c0:00:08|routed  |space|08-0x3c2b444d||$self_lookup"
"routed-node-answers     |nt   |tun tun0 - 10.9.0.1/24|00:1a:2b:3c:4d:5e|routed  |enter|08-0x3c2b444d|Line 289: Got 0x3 from NetBios()|$self_lookup;$probe_lookup;$query;$asks_status"
"node-refuses-status     |nt   |tun tun0 - 10.9.0.1/24|00:1a:2b:3c:4d:5e negative|-       |closebox|0|Line 368: Got 0x17 from NetBios();Line 289: Got 0x3 from NetBios()|$query;$asks_status"
)

skip() { echo "SKIP: $*"; exit 77; }
if [ "${1:-}" = --list ]; then
    printf '%s\n' "${CASES[@]}" | cut -d'|' -f1 | tr -d ' '
    exit 0
fi
[ $# -eq 2 ] || { echo "usage: e2e.sh --list | e2e.sh BUILD_DIR CASE" >&2; exit 2; }
build=$(cd "$1" && pwd) wanted=$2
row=$(printf '%s\n' "${CASES[@]}" | grep "^$wanted *|") || { echo "no case named $wanted" >&2; exit 2; }
IFS='|' read -r _ windows interfaces node also close field output sent <<<"$(sed 's/ *| */|/g' <<<"$row")"

unshare --net --mount true 2>/dev/null ||
    skip "this machine cannot make private network namespaces (needs root and unshare)"
command -v tcpdump >/dev/null || skip "the capture of what Kelvo sends needs Debian's tcpdump, which is not installed"
case_dir=$build/tests/e2e/cases/$wanted
rm -rf "$case_dir" && mkdir -p "$case_dir"

# The interfaces (and the node), as commands run inside the namespace.
# Interfaces get no IPv6 link-local address, so that the kernel sends no
# neighbour discovery of its own: what is captured was sent by Kelvo.
addr_gen=/proc/sys/net/ipv6/conf/default/addr_gen_mode
setup="{ [ ! -e $addr_gen ] || echo 1 >$addr_gen; }" first_device="" wires=""
IFS=, read -ra devices <<<"$interfaces"
for device in "${devices[@]}"; do
    read -r kind name mac address <<<"$device"
    case "${kind:-}" in
        tap | tun) setup+=" && ip tuntap add dev $name mode $kind" ;;
        bridge) setup+=" && ip link add $name type bridge" ;;
        *) continue ;;
    esac
    [ "$mac" = - ] || setup+=" && ip link set $name address $mac"
    [ -z "${address:-}" ] || setup+=" && ip addr add $address dev $name && ip link set $name up"
    [ -z "${address:-}" ] || [ "$kind" = bridge ] || wires+=" $kind:$name"
    [ -z "${address:-}" ] || first_device=${first_device:-$name}
done
# Every frame sent in the namespace, recorded as sent (packet-buffered and
# immediate: the namespace's end kills tcpdump), once tcpdump listens.
# (SANDBOX_WAIT: the sandbox's own bound on a start-up, scaled.)
export CASE_DIR=$case_dir
setup+=' && { tcpdump -i any -y LINUX_SLL2 --immediate-mode -U -n -Z root -w "$CASE_DIR/sent.pcap" \
        </dev/null >/dev/null 2>"$CASE_DIR/tcpdump.log" & } &&
    { timeout "$SANDBOX_WAIT" sh -c "until grep -qs \"listening on\" \"\$CASE_DIR/tcpdump.log\"; do sleep 0.1; done" ||
        { echo "gave_up=tcpdump listening ($SANDBOX_WAIT s)"; false; }; }'
# The node names, in its answers, an address of its own that is not the one
# it answers from: so the capture shows where the status request goes.
[ "$node" = - ] || { setup+=" && ip addr add 10.9.0.2/32 dev $first_device"; wires+=" node 10.9.0.2 $node"; }
[ -z "$wires" ] || setup+=" && /usr/bin/python3 -S $(printf %q "$here/peer.py") serve$wires"
# Routed: a default route, as on most networks, so that whatever is sent to
# any address is captured, and the node as the name server of the root's
# resolver configuration, answering each query at once.
if [ "$also" = routed ]; then
    printf 'nameserver 10.9.0.53\n' >"$case_dir/resolv.conf"
    setup+=" && ip route add default dev $first_device && ip addr add 10.9.0.53/32 dev $first_device &&
        mount --bind $(printf %q "$case_dir/resolv.conf") \"\$root/etc/resolv.conf\""
fi

# Kelvo runs from a folder of its own; planted DLLs go beside it, and Wine
# is told to prefer DLLs there, as Windows' default search order would.
cp "$build/app/Kelvo.exe" "$case_dir/"
options=(--close "$close" --probe "$build/tests/e2e/dialog_probe.exe")
[ "$windows" = nt ] || options+=(--windows "$windows")
case "$also" in
    signed) cp "$build/tests/signed/Kelvo.exe" "$case_dir/" ;;
    planted) cp "$build/tests/e2e/iphlpapi.dll" "$build/tests/e2e/netapi32.dll" "$case_dir/"
        export WINEDLLOVERRIDES="iphlpapi,netapi32=n,b"
        options+=(--dll-search) ;;
    f1) options+=(--f1) ;;
    picture) options+=(--screenshot "$case_dir/dialog.png" --reference "$docs/kelvo-dialog.png") ;;
esac
report=$("$scripts/sandbox.sh" --xvfb --bind "$build" --bind "$here" --bind "$docs" --setup "$setup" -- \
    "$here/drive.sh" "${options[@]}" "$case_dir/Kelvo.exe" 2>&1) || true
printf '%s\n' "$report"

status=0
check() {  # WHAT EXPECTED ACTUAL
    [ "$2" = "$3" ] || { echo "FAIL $wanted: $1: expected [$2], got [$3]"; status=1; }
}
value() { sed -n "s/^$1=//p" <<<"$report"; }
check "waits on Wine or X that gave up" "" "$(value gave_up)"
check "field (copied)" "$field" "$(value field)"
check "large icon" "32x32 Kelvo" "$(value big_icon)"
# What a screen reader is told of the field (MSAA: name, value, role 42 =
# editable text, state), and that the adapter and NetBIOS libraries were let
# go once the identifier was found.
check "the field's accessible name|value|role|state" "Machine ID :|$field|42|read-only" "$(value accessible)"
check "DLLs Kelvo still holds" none "$(value held)"
check "exit code" 0 "$(value exit_code)"
case "$also" in
    picture) check "pixels unlike docs/kelvo-dialog.png (see $case_dir/dialog*.png)" 0 "$(value picture)" ;;
    f1) check "help asked for" "cmd=1 data=00020066 fn=Kelvo.HLP" "$(value help)" ;;
    # The library search narrowed to the system directory before the
    # dialog, and so before Kelvo or the dialog manager loads anything.
    planted) check "calls, in order" "SetDefaultDllDirectories(00000800) DialogBoxParamW" "$(value dll_search)" ;;
esac
# Centred in the 800x600 Wine desktop (which has no taskbar), to a pixel.
IFS=, read -r x y w h <<<"$(value frame)"
off_x=$((2 * ${x:-0} + ${w:-0} - 800)) off_y=$((2 * ${y:-0} + ${h:-0} - 600))
(( ${off_x#-} <= 1 && ${off_y#-} <= 1 )) || check "placement of a ${w}x$h dialog" "centred" "at $x,$y"
check "standard output" "$(tr ';' '\n' <<<"$output")" "$(value stdout)"
kinds=$(/usr/bin/python3 -S "$here/peer.py" kinds "$case_dir/sent.pcap" 2>&1)
check "kinds of frame sent" "$(tr ';' '\n' <<<"$sent" | LC_ALL=C sort)" "${kinds:-nothing}"
[ $status -eq 0 ] && echo "PASS $wanted"
exit $status
