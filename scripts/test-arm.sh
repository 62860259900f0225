#!/usr/bin/env bash
# Cross-builds the library, the unit tests and the pseudo-terminal tests for
# 32-bit ARM (armhf) and runs them under qemu-arm.
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
cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake \
    -DCMAKE_BUILD_TYPE=Debug -DQUORVEL_WERROR=ON -DQUORVEL_TESTS=ON
cmake --build "$build" -j "$(nproc)"

# The pseudo-terminal tests start the armhf host program under qemu too.
export QEMU_LD_PREFIX=/usr/arm-linux-gnueabihf
export QV_HOST_EMULATOR=qemu-arm
export LD_LIBRARY_PATH="$sysroot/usr/lib/arm-linux-gnueabihf:$sysroot/lib/arm-linux-gnueabihf"
cd "$build" && ctest --output-on-failure -j "$(nproc)" --timeout 300
