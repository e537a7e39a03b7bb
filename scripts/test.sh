#!/usr/bin/env bash
# Builds Kelvo and runs every test under 32-bit Wine: natively where this
# machine runs 32-bit x86 programs, else inside the emulated guest of
# guest.sh. Installs what is missing first (Debian packages, the i386 Wine
# root, the guest's kernel); needs root.
#
#   scripts/test.sh [CTEST-ARG...]     e.g. scripts/test.sh -L e2e
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd -P)
. "$here/common.sh"
need_root
prepare_build
# Signing, and its test: a token (SoftHSM2, and OpenSC's pkcs11-tool to
# make its key), OpenSSL's PKCS#11 engine, and a time-stamping service
# (openssl ts behind Python's http.server).
ensure_host_packages osslsigncode openssl libengine-pkcs11-openssl softhsm2 opensc python3
# The capture of every frame Kelvo sends, in each end-to-end case.
ensure_host_packages tcpdump
# The guest's module packaging test reads compressed modules.
ensure_host_packages xz-utils zstd
run_child cmake --build --preset mingw
cd "$KELVO_TOP"
build=$KELVO_TOP/build/mingw
say "the 32-bit programs run $(describe_layer)"
status=0
logs=("$build/Testing/host.log" "$build/Testing/guest.log")
rm -f "${logs[@]}"
if [ "$KELVO_LAYER" = native ]; then
    run_i386 "$build" ctest --preset mingw -O "${logs[1]}" "$@" || status=$?
else
    # In the guest, the tests that run no 32-bit program (labelled host) run
    # on this machine instead, first, where they are many times quicker. The
    # program one of them signs is the one an end-to-end case runs, so the
    # guest does not sign it again.
    say "the tests that run no 32-bit program run on this machine"
    run_child ctest --preset mingw --no-tests=ignore -L host -O "${logs[0]}" "$@" || status=$?
    guest_args=(--no-tests=ignore -LE host)
    [ ! "$build/tests/signed/Kelvo.exe" -nt "$build/app/Kelvo.exe" ] || guest_args+=(-FS signed_kelvo)
    say "the others run in the guest"
    run_i386 "$build" ctest --preset mingw "${guest_args[@]}" -O "${logs[1]}" "$@" || status=$?
fi
say "the tests ran the 32-bit programs $(describe_layer)"
# The counts of every part, on the line that ends the run (a part that was
# stopped before its end wrote no log). ctest counts a skipped test as
# passed; here it counts as skipped.
cat "${logs[@]}" 2>/dev/null | awk '/tests passed, [0-9]+ tests? failed out of/ { total += $NF; failed += $4 }
    /\*\*\*Skipped/ { skipped++ }
    END { printf "all tests: %d passed, %d failed, %d skipped\n", total - failed - skipped, failed, skipped }' || true
exit $status
