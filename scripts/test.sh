#!/usr/bin/env bash
# Builds Kelvo and runs every test under 32-bit Wine. Installs what is
# missing first (Debian packages, the i386 Wine root); needs root.
#
#   scripts/test.sh [CTEST-ARG...]     e.g. scripts/test.sh -R Netbios
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/common.sh"
need_root
prepare_build
ensure_host_packages osslsigncode openssl  # signing, and its test
# The NetBIOS node of the end-to-end table; its cases skip without it.
ensure_host_packages python3-scapy || say "python3-scapy could not be installed: the NetBIOS node cases will be skipped"
cmake --build --preset mingw
cd "$here/.."
ctest --preset mingw "$@"
