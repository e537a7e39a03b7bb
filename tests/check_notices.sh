#!/usr/bin/env bash
# Fails unless every file that the linker put into Kelvo.exe (its link map:
# each archive member it took, each object it loaded) is Kelvo's own or is
# covered by a notice in THIRD-PARTY-NOTICES, so that a library which
# starts to be linked in (winpthreads, say) cannot ship without its notice.
#
#   check_notices.sh KELVO.MAP THIRD-PARTY-NOTICES
set -euo pipefail
map=$1 notices=$2
# What a linked file is, first match first: a glob on its path in the map,
# and the heading of its notice, or "own".
ROWS=(
"*/libwinpthread.a(*                  |MinGW-w64's winpthreads"
"*/i686-w64-mingw32/lib/*             |1. The MinGW-w64 runtime"
"*/gcc/i686-w64-mingw32/*/libgcc.a(*  |2. GCC's runtime libraries (libgcc, libstdc++)"
"*/gcc/i686-w64-mingw32/*/libstdc++.a(*|2. GCC's runtime libraries (libgcc, libstdc++)"
"*/gcc/i686-w64-mingw32/*/crt*.o      |2. GCC's runtime libraries (libgcc, libstdc++)"
"app/*                                |own"
"machine_id/*                         |own"
)
linked=$( (sed -n '/^Archive member included/,/^Discarded input sections/p' "$map" | grep -o '^[^ ]*(.*)'
           sed -n 's/^LOAD \(.*\.o\)$/\1/p' "$map") | sort -u)
[ -n "$linked" ] || { echo "FAIL: $map lists nothing linked"; exit 1; }
status=0 count=0
while read -r file; do
    heading=
    for row in "${ROWS[@]}"; do
        IFS='|' read -r glob covered <<<"$row"
        # shellcheck disable=SC2053  # the glob is meant
        [[ $file == ${glob%% *} ]] && { heading=$covered; break; }
    done
    count=$((count + 1))
    if [ -z "$heading" ]; then
        echo "FAIL: $file is linked into Kelvo.exe, and no row says whose it is"
        status=1
    elif [ "$heading" != own ] && ! grep -qxF "$heading" "$notices"; then
        echo "FAIL: $file is linked into Kelvo.exe, and $notices has no notice '$heading'"
        status=1
    fi
done <<<"$linked"
[ $status != 0 ] || echo "$count linked files, each Kelvo's own or under a notice"
exit $status
