#!/usr/bin/env bash
# Cross-builds the library, the unit tests and the pseudo-terminal tests for
# 32-bit ARM (armhf) and runs them under qemu-arm.
#
# Needs Debian's g++-arm-linux-gnueabihf and qemu-user (installed when run as
# root). The armhf libraries the tests link (libtinfo, GoogleTest, libvterm)
# are downloaded as Debian packages and unpacked into build-arm/sysroot with
# dpkg-deb -x, which works where a multiarch installation does not.
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

packages=(libtinfo6 libncurses6 libncursesw6 libncurses-dev libgtest-dev libvterm0 libvterm-dev libutf8proc2 libutf8proc-dev)
# The sysroot is unpacked again when the list of packages changes.
if [ "$(cat "$sysroot/.complete" 2>/dev/null)" != "${packages[*]}" ]; then
    if ! dpkg --print-foreign-architectures | grep -qx armhf; then
        if [ "$(id -u)" -ne 0 ]; then
            echo "Run once as root: dpkg --add-architecture armhf && apt-get update" >&2
            exit 1
        fi
        dpkg --add-architecture armhf
    fi
    # A partly failing index (a mirror mid-sync) still lists the packages;
    # a failed download is tried again after a fresh update.
    debs=$(mktemp -d)
    trap 'rm -rf "$debs"' EXIT
    chmod 777 "$debs"
    for attempt in 1 2 3; do
        [ "$(id -u)" -eq 0 ] && { apt-get update -qq || true; }
        if (cd "$debs" && apt-get download -qq "${packages[@]/%/:armhf}"); then break; fi
        [ "$attempt" -eq 3 ] && exit 1
        sleep 10
    done
    rm -rf "$sysroot"
    mkdir -p "$sysroot"
    for deb in "$debs"/*.deb; do dpkg-deb -x "$deb" "$sysroot"; done
    # Absolute links inside the packages must point into the sysroot.
    find "$sysroot" -type l -lname '/*' | while read -r link; do
        ln -sfn "$sysroot$(readlink "$link")" "$link"
    done
    echo "${packages[*]}" > "$sysroot/.complete"
fi

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
