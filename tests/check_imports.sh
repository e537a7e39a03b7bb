#!/usr/bin/env bash
# Fails when any given program imports the adapter or NetBIOS library: both
# must only ever be loaded at run time from the system directory.
set -euo pipefail
status=0
for program in "$@"; do
    imports=$(i686-w64-mingw32-objdump -p "$program" | awk '/DLL Name:/ {print tolower($3)}')
    for dll in iphlpapi.dll netapi32.dll; do
        if grep -qx "$dll" <<<"$imports"; then
            echo "$(basename "$program") imports $dll" >&2
            status=1
        fi
    done
    echo "$(basename "$program") imports: $(tr '\n' ' ' <<<"$imports")"
done
exit $status
