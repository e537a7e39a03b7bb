#!/usr/bin/env bash
# Measures how long Kelvo takes to show the identifier, against a floor
# program that is Kelvo's own dialog with a constant address (KelvoFloor.exe),
# and the peak working set of both. Installs what is missing first; needs
# root.
#
#   scripts/benchmark.sh [--runs N]     N counted runs of each (default 30;
#                                       at most 10 in the fallback case,
#                                       which waits out a fixed NetBIOS
#                                       timeout of about 2.3 s a run)
#
# Two cases, each in a private network namespace of its own with one warm
# Wine session (one Xvfb, one wineserver, one virtual desktop) in which
# tests/bench/kelvo_bench.exe starts the two programs in turn:
#   adapter list  one Ethernet adapter: the address comes from the list
#   fallback      only a non-Ethernet adapter (tun, with IPv4): the list
#                 gives nothing and Kelvo asks NetBIOS
# Prints the medians, the ratio Kelvo / floor and the machine, and keeps
# the report in build/mingw/bench/benchmark.txt.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/common.sh"

runs=30
case "${1:-}" in
    "") ;;
    --runs) runs=${2:-}; [[ $runs =~ ^[1-9][0-9]*$ ]] || die "--runs needs a positive number" ;;
    *) die "usage: scripts/benchmark.sh [--runs N]" ;;
esac
target=1.10

need_root
prepare_build
cmake --build --preset mingw --target Kelvo KelvoFloor kelvo_bench
build=$(cd "$here/.." && pwd)/build/mingw
out=$build/bench
mkdir -p "$out"

measure() {  # RUNS SETUP: the namespace's interfaces, as shell commands
    "$here/sandbox.sh" --xvfb --bind "$build" --setup "$2" -- \
        /usr/lib/wine/wine explorer /desktop=bench,320x240 \
        "$build/tests/bench/kelvo_bench.exe" --runs "$1" --warmup 3 \
        "$build/app/Kelvo.exe" "$build/tests/bench/KelvoFloor.exe" 2>&1 | tr -d '\r'
}

report() {
    printf '%s\n' "$@" | tee -a "$out/benchmark.txt"
}

: >"$out/benchmark.txt"
cpu=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)
wine_version=$("$here/sandbox.sh" /usr/lib/wine/wine --version 2>/dev/null | tr -d '\r')
report "Machine: ${cpu:-unknown CPU}, $(nproc) cores, $(free -g | awk '/^Mem:/ {print $2}') GiB," \
    "  Linux $(uname -r), $wine_version (i386) in private namespaces" \
    "Runs: $runs of each program (fallback: at most 10) after 3 warm-up rounds," \
    "  alternating; time from CreateProcessW to the dialog shown with its field filled" ""

say "adapter list: one Ethernet adapter (tap, 00:1a:2b:3c:4d:5e, 10.9.0.1/24)"
list=$(measure "$runs" "ip tuntap add dev eth0 mode tap && ip link set eth0 address 00:1a:2b:3c:4d:5e \
    && ip addr add 10.9.0.1/24 dev eth0 && ip link set eth0 up") \
    || { printf '%s\n' "$list"; die "the adapter-list measurement failed"; }
report "Adapter list (one Ethernet adapter):" "$(grep -v '^ratio=' <<<"$list")"
list_ratio=$(sed -n 's/^ratio=//p' <<<"$list")

say "fallback: only a non-Ethernet adapter (tun, 10.9.0.1/24); Kelvo asks NetBIOS"
fallback=$(measure "$((runs < 10 ? runs : 10))" "ip tuntap add dev tun0 mode tun && ip addr add 10.9.0.1/24 dev tun0 \
    && ip link set tun0 up") \
    || { printf '%s\n' "$fallback"; die "the fallback measurement failed"; }
report "" "Fallback (only a non-Ethernet adapter):" "$(grep -v '^ratio=' <<<"$fallback")"
fallback_ratio=$(sed -n 's/^ratio=//p' <<<"$fallback")

verdict="within the target of $target"
awk -v r="$list_ratio" -v t="$target" 'BEGIN { exit !(r > t) }' && verdict="ABOVE the target of $target"
report "" "Kelvo / floor, adapter list: $list_ratio ($verdict)" \
    "Kelvo / floor, fallback:     $fallback_ratio"
say "report kept in $out/benchmark.txt"
