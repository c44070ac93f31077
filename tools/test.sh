#!/bin/sh
# Builds and runs every test, netlib's test programs and the package check,
# then the memory-handling suites again under AddressSanitizer and UBSan.
#
# Where the kernel cannot run 32-bit programs, they all run under qemu-i386
# (ZVA_FORCE_QEMU=1 asks for that on any machine, to measure it). The
# sanitizer pass is left out there: ASan's allocator cannot map its shadow
# memory under the emulator once a test holds a few megabytes.
set -e
cd "$(dirname "$0")/.."
sh tools/setup.sh
jobs=$(nproc)
emulator=
if [ -n "${ZVA_FORCE_QEMU:-}" ] || ! /lib/ld-linux.so.2 --version >/dev/null 2>&1; then
  emulator=$(command -v qemu-i386)
  RUN32=$emulator
  export RUN32
fi
cmake -S . -B build -DZVA_BUILD_TESTS=ON ${emulator:+-DCMAKE_CROSSCOMPILING_EMULATOR=$emulator}
cmake --build build -j$jobs
ctest --test-dir build -j$jobs --output-on-failure
# Netlib's test programs over the companion, then zva as the system's BLAS
# through its Debian package.
sh tools/netlib.sh build
sh tools/package_check.sh build
if [ -n "$emulator" ]; then
  echo "Under $emulator: no AddressSanitizer pass (it needs 32-bit code to run natively)."
  exit 0
fi
cmake -S . -B build-asan -DZVA_BUILD_TESTS=ON -DZVA_SANITIZE=ON
cmake --build build-asan -j$jobs
ASAN_OPTIONS=detect_leaks=0 ctest --test-dir build-asan -j$jobs -L sanitize --output-on-failure
