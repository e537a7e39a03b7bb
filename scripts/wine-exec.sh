#!/usr/bin/env bash
# CMake's cross-compiling emulator: runs a 32-bit Windows program under Wine
# in a private network namespace (see sandbox.sh), with the program's folder
# visible at its own path. Exit status: the program's.
#
#   wine-exec.sh PROGRAM.exe [ARG...]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
[ $# -gt 0 ] || { echo "usage: wine-exec.sh PROGRAM.exe [ARG...]" >&2; exit 2; }
program=$(realpath "$1")
shift
exec "$here/sandbox.sh" --bind "$(dirname "$program")" -- \
    /usr/lib/wine/wine "$program" "$@"
