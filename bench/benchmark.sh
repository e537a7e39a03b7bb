#!/usr/bin/env bash
# Measures how long Kelvo takes to show the identifier, against a floor
# program that is Kelvo's own dialog with a constant address (KelvoFloor.exe),
# and the peak working set of both. Installs what is missing first; needs
# root.
#
#   bench/benchmark.sh [--runs N]       N counted runs of each (default 30;
#                                       at most 10 where nobody answers
#                                       NetBIOS, which waits out a fixed
#                                       timeout of about 2.3 s a run)
#
# Three cases, each in a private network namespace of its own with one warm
# Wine session (one Xvfb, one wineserver, one virtual desktop) in which
# kelvo_bench.exe starts the two programs in turn:
#   adapter list   one Ethernet adapter: the address comes from the list
#   node answers   only a non-Ethernet adapter (tun, with IPv4) and a
#                  NetBIOS node that answers: Kelvo's fallback succeeds
#   nobody answers the same without the node: the fallback times out
# Prints the medians, the ratios Kelvo / floor and the machine, and keeps
# the report in build/mingw/bench/benchmark.txt.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
scripts=$(cd "$here/../scripts" && pwd -P)
. "$scripts/common.sh"

runs=30
case "${1:-}" in
    "") ;;
    --runs) runs=${2:-}; [[ $runs =~ ^[1-9][0-9]*$ ]] || die "--runs needs a positive number" ;;
    *) die "usage: bench/benchmark.sh [--runs N]" ;;
esac
list_target=1.10
node_target=1.25

need_root
prepare_build
run_child cmake --build --preset mingw --target Kelvo KelvoFloor kelvo_bench
top=$KELVO_TOP
build=$top/build/mingw
out=$build/bench
mkdir -p "$out"

measure() {  # RUNS SETUP: the namespace's interfaces, as shell commands
    run_i386 "$build" "$scripts/sandbox.sh" --xvfb --bind "$build" --setup "$2" -- \
        /usr/lib/wine/wine explorer /desktop=bench,320x240 \
        "$build/bench/kelvo_bench.exe" --runs "$1" --warmup 3 \
        "$build/app/Kelvo.exe" "$build/bench/KelvoFloor.exe" 2>&1 | tr -d '\r'
}

report() {
    printf '%s\n' "$@" | tee -a "$out/benchmark.txt"
}

: >"$out/benchmark.txt"
cpu=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)
wine_version=$(run_i386 "$build" "$scripts/sandbox.sh" /usr/lib/wine/wine --version 2>/dev/null | tr -d '\r')
report "Machine: ${cpu:-unknown CPU}, $(nproc) cores, $(free -g | awk '/^Mem:/ {print $2}') GiB," \
    "  Linux $(uname -r), $wine_version (i386) in private namespaces, run $(describe_layer)" \
    "Runs: $runs of each program (nobody answering NetBIOS: at most 10) after 3 warm-up rounds," \
    "  alternating; time from CreateProcessW to the dialog shown with its field filled" ""

# A case measures the path it names only if Kelvo showed what that path gives.
shows() {  # MEASUREMENT IDENTIFIER WHAT
    grep -q "^Kelvo\.exe .* field $2\$" <<<"$1" || { printf '%s\n' "$1"; die "$3: Kelvo did not show $2"; }
}

say "adapter list: one Ethernet adapter (tap, 00:1a:2b:3c:4d:5e, 10.9.0.1/24)"
list=$(measure "$runs" "ip tuntap add dev eth0 mode tap && ip link set eth0 address 00:1a:2b:3c:4d:5e \
    && ip addr add 10.9.0.1/24 dev eth0 && ip link set eth0 up") \
    || { printf '%s\n' "$list"; die "the adapter-list measurement failed"; }
shows "$list" 08-0x3c2b444d "the adapter-list measurement"
report "Adapter list (one Ethernet adapter):" "$(grep -v '^ratio=' <<<"$list")"
list_ratio=$(sed -n 's/^ratio=//p' <<<"$list")

tun="ip tuntap add dev tun0 mode tun && ip addr add 10.9.0.1/24 dev tun0 && ip link set tun0 up"
node="/usr/bin/python3 -S '$top/tests/e2e/peer.py' serve node 10.9.0.1 00:1a:2b:3c:4d:5e"
say "node answers: only a non-Ethernet adapter and a NetBIOS node that answers"
answered=$(measure "$runs" "$tun && $node") \
    || { printf '%s\n' "$answered"; die "the node-answers measurement failed"; }
shows "$answered" 08-0x3c2b444d "the node-answers measurement"
report "" "Fallback, a NetBIOS node answers (only a non-Ethernet adapter):" \
    "$(grep -v '^ratio=' <<<"$answered")"
node_ratio=$(sed -n 's/^ratio=//p' <<<"$answered")

say "nobody answers: only a non-Ethernet adapter; Kelvo's NetBIOS request times out"
fallback=$(measure "$((runs < 10 ? runs : 10))" "$tun") \
    || { printf '%s\n' "$fallback"; die "the nobody-answers measurement failed"; }
shows "$fallback" 0 "the nobody-answers measurement"
report "" "Fallback, nobody answers (only a non-Ethernet adapter):" "$(grep -v '^ratio=' <<<"$fallback")"
fallback_ratio=$(sed -n 's/^ratio=//p' <<<"$fallback")

verdict() {  # RATIO TARGET
    awk -v r="$1" -v t="$2" 'BEGIN { print (r > t ? "ABOVE" : "within") " the target of " t }'
}
report "" "Kelvo / floor, adapter list:   $list_ratio ($(verdict "$list_ratio" $list_target))" \
    "Kelvo / floor, node answers:   $node_ratio ($(verdict "$node_ratio" $node_target))" \
    "Kelvo / floor, nobody answers: $fallback_ratio"
say "report kept in $out/benchmark.txt"
