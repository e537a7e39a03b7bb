#!/usr/bin/env bash
# Builds Kelvo and runs every test under 32-bit Wine: natively where this
# machine runs 32-bit x86 programs, else inside the emulated guest of
# guest.sh. Installs what is missing first (Debian packages, the i386 Wine
# root, the guest's kernel); needs root.
#
#   scripts/test.sh [CTEST-ARG...]     e.g. scripts/test.sh -R Netbios
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
. "$here/common.sh"
need_root
prepare_build
ensure_host_packages osslsigncode openssl  # signing, and its test
# The NetBIOS node of the end-to-end table; its cases skip without it.
ensure_host_packages python3-scapy || say "python3-scapy could not be installed: the NetBIOS node cases will be skipped"
# The guest's module packaging test reads compressed modules.
ensure_host_packages xz-utils zstd
run_child cmake --build --preset mingw
cd "$here/.."
say "the 32-bit programs run $(describe_layer)"
status=0
run_i386 "$KELVO_TOP/build/mingw" ctest --preset mingw "$@" || status=$?
say "the tests ran the 32-bit programs $(describe_layer)"
exit $status
