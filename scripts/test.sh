#!/usr/bin/env bash
# Builds Kelvo and runs every test under 32-bit Wine: natively where this
# machine runs 32-bit x86 programs, else inside the emulated guest of
# guest.sh. Installs what is missing first (Debian packages, the i386 Wine
# root, the guest's kernel); needs root.
#
#   scripts/test.sh [CTEST-ARG...]     e.g. scripts/test.sh -R Netbios
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/common.sh"
need_root
prepare_build
# Signing, and its test: a token (SoftHSM2, and OpenSC's pkcs11-tool to
# make its key), OpenSSL's PKCS#11 engine, and a time-stamping service
# (openssl ts behind Python's http.server).
ensure_host_packages osslsigncode openssl libengine-pkcs11-openssl softhsm2 opensc python3
# The NetBIOS node of the end-to-end table; its cases skip without it.
ensure_host_packages python3-scapy || say "python3-scapy could not be installed: the NetBIOS node cases will be skipped"
cmake --build --preset mingw
cd "$here/.."
say "the 32-bit programs run $(describe_layer)"
status=0
run_i386 ctest --preset mingw "$@" || status=$?
say "the tests ran the 32-bit programs $(describe_layer)"
exit $status
