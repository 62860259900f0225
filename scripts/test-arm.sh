#!/usr/bin/env bash
# Cross-builds the library, the unit tests and the pseudo-terminal tests for
# 32-bit ARM (armhf), the default build and the minimal one, runs both under
# qemu-arm, and holds the minimal build to its size.
#
# Needs Debian's g++-arm-linux-gnueabihf and qemu-user (installed when run as
# root) and the sysroot scripts/arm-sysroot.sh unpacks.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build-arm
sysroot="$PWD/$build/sysroot"

need=()
command -v arm-linux-gnueabihf-g++ >/dev/null || need+=(g++-arm-linux-gnueabihf)
command -v qemu-arm >/dev/null || need+=(qemu-user)
if [ ${#need[@]} -gt 0 ]; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "Install ${need[*]} first." >&2
        exit 1
    fi
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq || true
    apt-get install -y -qq --no-install-recommends "${need[@]}"
fi

scripts/arm-sysroot.sh

export QV_ARM_SYSROOT="$sysroot"
export PKG_CONFIG_LIBDIR="$sysroot/usr/lib/arm-linux-gnueabihf/pkgconfig:$sysroot/usr/share/pkgconfig"
export PKG_CONFIG_SYSROOT_DIR="$sysroot"
for preset in default minimal; do
    dir=$build
    options=()
    if [ $preset = minimal ]; then
        dir=$build-minimal
        options=(-DQUORVEL_MINIMAL=ON)
    fi
    cmake -S . -B "$dir" -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake \
        -DCMAKE_BUILD_TYPE=Debug -DQUORVEL_WERROR=ON -DQUORVEL_TESTS=ON "${options[@]}"
    cmake --build "$dir" -j "$(nproc)"
done

# The minimal build's promise: under 100 KB stripped, built for size.
cmake -S . -B "$build-size" -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake \
    -DCMAKE_BUILD_TYPE=MinSizeRel -DQUORVEL_TESTS=OFF -DQUORVEL_MINIMAL=ON > /dev/null
cmake --build "$build-size" -j "$(nproc)" --target quorvel > /dev/null
arm-linux-gnueabihf-strip -o "$build-size/stripped.so" "$(readlink -f "$build-size/libquorvel.so")"
bytes=$(stat -c %s "$build-size/stripped.so")
echo "minimal libquorvel.so for armhf, stripped: $bytes bytes"
if [ "$bytes" -ge 100000 ]; then
    echo "the minimal build is no longer under 100 KB" >&2
    exit 1
fi

# The pseudo-terminal tests start the armhf host program under qemu too.
export QEMU_LD_PREFIX=/usr/arm-linux-gnueabihf
export QV_HOST_EMULATOR=qemu-arm
export LD_LIBRARY_PATH="$sysroot/usr/lib/arm-linux-gnueabihf:$sysroot/lib/arm-linux-gnueabihf"
for dir in "$build" "$build-minimal"; do
    echo "== $dir"
    (cd "$dir" && ctest --output-on-failure -j "$(nproc)" --timeout 300)
done
