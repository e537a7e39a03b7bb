#!/usr/bin/env bash
# Builds Kelvo. Installs what is missing first; needs root.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/common.sh"
need_root
prepare_build
cmake --build --preset mingw
say "built the machine identifier; the Kelvo.exe dialog is not part of the build yet"
