#!/bin/sh
# Builds and runs every test, netlib's test programs and the package check,
# then the memory-handling suites again under AddressSanitizer and UBSan.
set -e
cd "$(dirname "$0")/.."
sh tools/setup.sh
jobs=$(nproc)
cmake -S . -B build -DZVA_BUILD_TESTS=ON
cmake --build build -j$jobs
ctest --test-dir build -j$jobs --output-on-failure
# Netlib's test programs over the companion, then zva as the system's BLAS
# through its Debian package.
sh tools/netlib.sh build
sh tools/package_check.sh build
cmake -S . -B build-asan -DZVA_BUILD_TESTS=ON -DZVA_SANITIZE=ON
cmake --build build-asan -j$jobs
ASAN_OPTIONS=detect_leaks=0 ctest --test-dir build-asan -j$jobs -L sanitize --output-on-failure
