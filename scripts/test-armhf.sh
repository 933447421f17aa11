#!/bin/sh
# Cross-builds the project for the register's board (32-bit ARM, armhf) in build-armhf and runs
# the whole test suite there under user-mode emulation (qemu-arm), against the board's Debian
# libraries in the sysroot that scripts/armhf-sysroot.sh makes once.
# --build-only stops after the build.
set -eu
cd "$(dirname "$0")/.."
"./scripts/install-deps.sh" g++-arm-linux-gnueabihf qemu-user
sysroot="$(./scripts/armhf-sysroot.sh)"
if [ ! -f build-armhf/build.ninja ]; then
    cmake -S . -B build-armhf -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake \
        -DARTICLEMANAGER_ARMHF_SYSROOT="$sysroot"
fi
cmake --build build-armhf -j "$(nproc)"
# The suite must run the board's code, not this machine's.
readelf -h build-armhf/bin/articlectl | grep -q 'Class: *ELF32' &&
    readelf -h build-armhf/bin/articlectl | grep -q 'Machine: *ARM' ||
    { echo "build-armhf does not hold 32-bit ARM programs" >&2; exit 1; }
if [ "${1:-}" = "--build-only" ]; then
    exit 0
fi
ctest --test-dir build-armhf --output-on-failure -j "$(nproc)"
