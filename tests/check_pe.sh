#!/usr/bin/env bash
# Reads a built Kelvo.exe and fails unless it is a small, hardened 32-bit
# Windows GUI program that starts on Windows XP SP3 and later:
#   machine i386, GUI subsystem, operating-system and subsystem versions at
#   most 5.1; ASLR, DEP, terminal-server-aware and no-SEH flags, and no
#   instruction that registers a frame-based exception handler (a write to
#   %fs:0, the head of the thread's handler list), which would make the
#   no-SEH flag untrue; no section both writable and executable; every
#   imported function exported by XP SP3's DLL of that name, by the lists
#   in xp-exports/ (there are lists only for DLLs that Windows keeps as
#   known DLLs, so a DLL without a list fails, and the adapter and NetBIOS
#   libraries, loaded at run time from the system directory, never
#   appear); at most MAX_BYTES long, not counting an Authenticode
#   signature's certificate table (data directory 4, which signing appends
#   to the file: the budget is the program's).
#
#   check_pe.sh PROGRAM.exe MAX_BYTES
set -euo pipefail
program=$1
max_bytes=$2
lists=$(cd "$(dirname "$0")/xp-exports" && pwd)
objdump=i686-w64-mingw32-objdump
headers=$($objdump -p "$program")
status=0
fail() { echo "FAIL: $*"; status=1; }

grep -q 'file format pei-i386' <<<"$headers" || fail "not an i386 PE image"
grep -qE '^Subsystem[[:space:]]+00000002' <<<"$headers" || fail "not a GUI subsystem program"

for kind in OSystem:operating-system Subsystem:subsystem; do
    major=$(awk -v key="Major${kind%%:*}Version" '$1 == key {print $2}' <<<"$headers")
    minor=$(awk -v key="Minor${kind%%:*}Version" '$1 == key {print $2}' <<<"$headers")
    (( major < 5 || (major == 5 && minor <= 1) )) || fail "${kind#*:} version $major.$minor is above XP's 5.1"
done

flags=$((16#$(awk '/^DllCharacteristics/ {print $2}' <<<"$headers")))
for check in "0x0040 ASLR (dynamic base)" "0x0100 DEP (NX compatible)" "0x0400 no SEH handlers" \
    "0x8000 terminal-server aware"; do
    bit=${check%% *}
    (( flags & bit )) || fail "DllCharacteristics lacks ${check#* }"
done

$objdump -d "$program" | grep -E ',%fs:(0x0)?$' | sed 's/^/FAIL: registers an exception handler: /' | grep . && status=1

# objdump marks code sections CODE; a code section without READONLY is
# writable as well as executable.
$objdump -h "$program" | awk '/^ +[0-9]+ / {name=$2; next} /CODE/ && !/READONLY/ {print name}' |
    while read -r section; do echo "FAIL: section $section is writable and executable"; done |
    grep . && status=1

# "DLL NAME" lines, then the functions imported from it ("hint name" rows).
imports=$(awk '/DLL Name:/ {dll = tolower($3); print "DLL", dll; next}
               dll != "" && /^\t[0-9a-f]+\t +[0-9]+ +[^ ]+$/ {print dll, $3}
               /^$/ {dll = ""}' <<<"$headers")
while read -r dll name; do
    if [ "$dll" = DLL ]; then
        [ -f "$lists/${name%.dll}.names" ] || fail "imports $name, for which there is no XP export list"
    elif [ -f "$lists/${dll%.dll}.names" ] && ! grep -qxF "$name" "$lists/${dll%.dll}.names"; then
        fail "imports $name from $dll, which Windows XP SP3's $dll does not export"
    fi
done <<<"$imports"
echo "imports: $(awk '$1 == "DLL" {printf "%s ", $2}' <<<"$imports")($(grep -vc '^DLL ' <<<"$imports") functions)"

signature=$((16#$(awk '$1 == "Entry" && $2 == 4 {print $4}' <<<"$headers")))
size=$(($(stat -c %s "$program") - signature))
echo "size: $size bytes, and a signature of $signature bytes (budget $max_bytes)"
[ "$size" -le "$max_bytes" ] || fail "larger than $max_bytes bytes"
exit $status
