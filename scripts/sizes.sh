#!/usr/bin/env bash
# What libquorvel.so costs, stripped, on x86-64 and on 32-bit ARM (armhf,
# with the sysroot scripts/arm-sysroot.sh unpacks): the default build at
# -O2, at -Os and at -Os with link-time optimisation, what each build option
# saves when it alone is off (at -Os; text and data, since the file grows by
# whole pages), and the minimal build. Prints the table the README shows.
#   scripts/sizes.sh            the whole table (about 25 builds)
#   scripts/sizes.sh --quick    the default and the minimal build at -Os only
set -euo pipefail
cd "$(dirname "$0")/.."
quick=0
[ "${1:-}" = --quick ] && quick=1
out=build-sizes
features=(VI_MODE BINDINGS READLINE_COMMANDS HIGHLIGHT COMPLETION_MENU LEAN_OUTPUT EVENT_LOOP THREAD_PRINT SESSIONS)

arches=(x86-64)
sysroot="$PWD/build-arm/sysroot"
if command -v arm-linux-gnueabihf-g++ > /dev/null; then
    scripts/arm-sysroot.sh > /dev/null 2>&1 || true
    [ -f "$sysroot/.complete" ] && arches+=(armhf)
fi
[ ${#arches[@]} -eq 2 ] || echo "armhf: no cross compiler or sysroot; x86-64 only" >&2

# The stripped size of one build: arch, a name for its directory, cmake
# options. "loaded" instead of the name measures what the library loads
# (text and data), which, unlike the file, does not grow by whole pages.
size_of() {
    local what=file
    if [ "$1" = loaded ]; then
        what=loaded
        shift
    fi
    local arch=$1 name=$2
    shift 2
    local dir="$out/$arch-$name" strip=strip sizecmd=size extra=()
    if [ "$arch" = armhf ]; then
        strip=arm-linux-gnueabihf-strip
        sizecmd=arm-linux-gnueabihf-size
        extra=(-DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake)
        export QV_ARM_SYSROOT="$sysroot"
    fi
    cmake -S . -B "$dir" -DQUORVEL_TESTS=OFF "${extra[@]}" "$@" > "$dir.log" 2>&1 || { cat "$dir.log" >&2; exit 1; }
    cmake --build "$dir" -j "$(nproc)" --target quorvel >> "$dir.log" 2>&1 || { cat "$dir.log" >&2; exit 1; }
    "$strip" -o "$dir/stripped.so" "$(readlink -f "$dir/libquorvel.so")"
    if [ $what = loaded ]; then
        "$sizecmd" "$dir/stripped.so" | awk 'NR == 2 {print $1 + $2}'
    else
        stat -c %s "$dir/stripped.so"
    fi
}
mkdir -p "$out"

declare -A size
row() { # label, then one size per arch
    local label=$1
    shift
    printf '| %s |' "$label"
    for v in "$@"; do printf ' %s |' "$(printf "%'d" "$v")"; done
    printf '\n'
}

header="| Build | $(IFS='|'; echo "${arches[*]}" | sed 's/|/ | /g') |"
echo "$header"
echo "|---|$(printf -- '---:|%.0s' "${arches[@]}")"
for arch in "${arches[@]}"; do
    size[$arch.os]=$(size_of "$arch" default-os -DCMAKE_BUILD_TYPE=MinSizeRel)
    size[$arch.min]=$(size_of "$arch" minimal-os -DCMAKE_BUILD_TYPE=MinSizeRel -DQUORVEL_MINIMAL=ON)
done
values() { for arch in "${arches[@]}"; do echo "${size[$arch.$1]}"; done; }
if [ $quick -eq 1 ]; then
    row "default, -Os" $(values os)
    row "QUORVEL_MINIMAL, -Os" $(values min)
    exit 0
fi
for arch in "${arches[@]}"; do
    size[$arch.o2]=$(size_of "$arch" default-o2 -DCMAKE_BUILD_TYPE=Release)
    size[$arch.lto]=$(size_of "$arch" default-lto -DCMAKE_BUILD_TYPE=MinSizeRel -DCMAKE_INTERPROCEDURAL_OPTIMIZATION=ON)
    size[$arch.mino2]=$(size_of "$arch" minimal-o2 -DCMAKE_BUILD_TYPE=Release -DQUORVEL_MINIMAL=ON)
    size[$arch.minlto]=$(size_of "$arch" minimal-lto -DCMAKE_BUILD_TYPE=MinSizeRel -DQUORVEL_MINIMAL=ON \
        -DCMAKE_INTERPROCEDURAL_OPTIMIZATION=ON)
    loaded=$(size_of loaded "$arch" default-os -DCMAKE_BUILD_TYPE=MinSizeRel)
    for f in "${features[@]}"; do
        without=$(size_of loaded "$arch" "no-$f" -DCMAKE_BUILD_TYPE=MinSizeRel "-DQUORVEL_$f=OFF")
        size[$arch.$f]=$((loaded - without))
    done
done
row "default, -O2" $(values o2)
row "default, -Os" $(values os)
row "default, -Os and LTO" $(values lto)
for f in "${features[@]}"; do row "\`-DQUORVEL_$f=OFF\` alone saves (text and data)" $(values "$f"); done
row "QUORVEL_MINIMAL, -O2" $(values mino2)
row "QUORVEL_MINIMAL, -Os" $(values min)
row "QUORVEL_MINIMAL, -Os and LTO" $(values minlto)
