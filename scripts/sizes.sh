#!/usr/bin/env bash
# The size of the shared library, stripped, built for release on x86-64 and
# on 32-bit ARM (armhf, with the sysroot scripts/test-arm.sh unpacks):
# the numbers a build for small devices is measured against.
#   scripts/sizes.sh [extra cmake options...]
set -euo pipefail
cd "$(dirname "$0")/.."
measure() {
    local name=$1 dir=$2 strip=$3 sizecmd=$4
    shift 4
    cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=MinSizeRel -DQUORVEL_TESTS=OFF "$@" > /dev/null
    cmake --build "$dir" -j "$(nproc)" --target quorvel > /dev/null
    local lib
    lib=$(readlink -f "$dir/libquorvel.so")
    "$strip" -o "$dir/stripped.so" "$lib"
    printf '%-8s %8d bytes stripped; ' "$name" "$(stat -c %s "$dir/stripped.so")"
    "$sizecmd" "$dir/stripped.so" | awk 'NR == 2 {printf "text %d, data %d, bss %d\n", $1, $2, $3}'
}
measure x86-64 build-size strip size "$@"
sysroot="${QV_ARM_SYSROOT:-$PWD/build-arm/sysroot}"
if command -v arm-linux-gnueabihf-g++ > /dev/null && [ -f "$sysroot/.complete" ]; then
    QV_ARM_SYSROOT="$sysroot" measure armhf build-size-arm arm-linux-gnueabihf-strip arm-linux-gnueabihf-size \
        -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake "$@"
else
    echo "armhf: no cross compiler or sysroot (run make test-arm once)"
fi
