#!/usr/bin/env bash
# Reads a built Kelvo.exe and fails unless it is a small, hardened 32-bit
# Windows GUI program:
#   machine i386, GUI subsystem; ASLR, DEP and terminal-server-aware flags;
#   no section both writable and executable; imports only from DLLs that
#   Windows keeps as known DLLs (never the adapter or NetBIOS library,
#   which are loaded at run time from the system directory); at most
#   MAX_BYTES long.
#
#   check_pe.sh PROGRAM.exe MAX_BYTES
set -euo pipefail
program=$1
max_bytes=$2
objdump=i686-w64-mingw32-objdump
headers=$($objdump -p "$program")
status=0
fail() { echo "FAIL: $*"; status=1; }

grep -q 'file format pei-i386' <<<"$headers" || fail "not an i386 PE image"
grep -qE '^Subsystem[[:space:]]+00000002' <<<"$headers" || fail "not a GUI subsystem program"

flags=$((16#$(awk '/^DllCharacteristics/ {print $2}' <<<"$headers")))
for check in "0x0040 ASLR (dynamic base)" "0x0100 DEP (NX compatible)" "0x8000 terminal-server aware"; do
    bit=${check%% *}
    (( flags & bit )) || fail "DllCharacteristics lacks ${check#* }"
done
printf 'DllCharacteristics 0x%04x\n' "$flags"

# objdump marks code sections CODE; a code section without READONLY is
# writable as well as executable.
$objdump -h "$program" | awk '/^ +[0-9]+ / {name=$2; next} /CODE/ && !/READONLY/ {print name}' |
    while read -r section; do echo "FAIL: section $section is writable and executable"; done |
    grep . && status=1

known="kernel32.dll user32.dll gdi32.dll msvcrt.dll advapi32.dll shell32.dll ole32.dll"
imports=$(awk '/DLL Name:/ {print tolower($3)}' <<<"$headers")
for dll in $imports; do
    grep -qw "$dll" <<<"$known" || fail "imports $dll, which is not a known DLL"
done
echo "imports: $(tr '\n' ' ' <<<"$imports")"

size=$(stat -c %s "$program")
echo "size: $size bytes (budget $max_bytes)"
[ "$size" -le "$max_bytes" ] || fail "larger than $max_bytes bytes"
exit $status
