#!/usr/bin/env bash
# Unpacks the armhf libraries the library and its tests link (libtinfo,
# utf8proc, GoogleTest, libvterm) into build-arm/sysroot, as Debian packages
# unpacked with dpkg-deb -x, which works where a multiarch installation does
# not. Does nothing when the sysroot holds the same packages already.
set -euo pipefail
cd "$(dirname "$0")/.."
sysroot="$PWD/build-arm/sysroot"
packages=(libtinfo6 libncurses6 libncursesw6 libncurses-dev libgtest-dev libvterm0 libvterm-dev libutf8proc2 libutf8proc-dev)
# The sysroot is unpacked again when the list of packages changes.
if [ "$(cat "$sysroot/.complete" 2>/dev/null)" != "${packages[*]}" ]; then
    if ! dpkg --print-foreign-architectures | grep -x armhf > /dev/null; then
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

