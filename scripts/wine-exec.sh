#!/usr/bin/env bash
# CMake's cross-compiling emulator: runs a 32-bit Windows program under Wine
# in a private network namespace (see sandbox.sh), with the program's build
# tree (the nearest folder above it that holds CMakeCache.txt, else its own
# folder) visible at its own path. Exit status: the program's.
#
#   wine-exec.sh PROGRAM.exe [ARG...]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
[ $# -gt 0 ] || { echo "usage: wine-exec.sh PROGRAM.exe [ARG...]" >&2; exit 2; }
program=$(realpath "$1")
shift
tree=$(dirname "$program")
while [ "$tree" != / ] && [ ! -e "$tree/CMakeCache.txt" ]; do
    tree=$(dirname "$tree")
done
[ "$tree" != / ] || tree=$(dirname "$program")
# Where 32-bit programs run only in the emulated guest, this boots one.
. "$here/common.sh"
[ "$KELVO_LAYER" = native ] || exec "$here/guest.sh" --rw "$tree" -- "$here/wine-exec.sh" "$program" "$@"
exec "$here/sandbox.sh" --bind "$tree" -- \
    /usr/lib/wine/wine "$program" "$@"
