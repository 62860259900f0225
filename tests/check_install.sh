#!/bin/sh
# Installs the build into a scratch prefix, then builds and runs small C
# programs against it: once through pkg-config, once through the CMake package.
set -eu
build=$1
work=$2
src=$3
rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"
libdir=$(find "$work/prefix" -name quorvel.pc -path '*pkgconfig*' -exec dirname {} \; | head -n1)
export PKG_CONFIG_PATH="$libdir"
# The sanitizer runtime comes from the build flags, not from the package.
extra=""
if nm -D "$build/libquorvel.so" | grep -q __asan_init; then extra="-fsanitize=address,undefined"; fi
cc -std=c99 -Wall -Werror -pedantic $extra -o "$work/consumer" "$src/consumer.c" \
    $(pkg-config --cflags --libs quorvel)
cd "$work"
LD_LIBRARY_PATH="$(dirname "$libdir")" TERM=dumb "$work/consumer" > "$work/out.txt"
grep -q "quorvel ok" "$work/out.txt"
cmake -S "$src" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$work/prefix" \
    -DCMAKE_C_FLAGS="$extra" > "$work/cmake.log"
cmake --build "$work/cmake-build" > "$work/cmake-build.log"
LD_LIBRARY_PATH="$(dirname "$libdir")" TERM=dumb "$work/cmake-build/consumer" | grep -q "quorvel ok"
echo "installed consumer: pkg-config and CMake package both build and run"
