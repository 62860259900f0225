#!/bin/sh
# Installs the build into a scratch prefix, then builds and runs small C
# programs against it: once through pkg-config, once through the CMake package.
# A program written for GNU readline builds unchanged against the
# readline-compatible library, shared and static. The manual pages are found.
set -eu
build=$1
work=$2
src=$3
rlprog=$4
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
# The static library, with what pkg-config says it needs; -l: picks the
# archive although the shared object sits beside it.
cc -std=c99 -Wall -Werror -pedantic $extra -o "$work/consumer-static" "$src/consumer.c" \
    $(pkg-config --cflags quorvel) \
    $(pkg-config --static --libs quorvel | sed 's/-lquorvel\b/-l:libquorvel.a/')
if ldd "$work/consumer-static" | grep -q libquorvel; then
    echo "consumer-static still loads the shared library" >&2
    exit 1
fi
cd "$work"
LD_LIBRARY_PATH="$(dirname "$libdir")" TERM=dumb "$work/consumer" > "$work/out.txt"
grep -q "quorvel ok" "$work/out.txt"
TERM=dumb "$work/consumer-static" | grep -q "quorvel ok"
cmake -S "$src" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$work/prefix" \
    -DCMAKE_C_FLAGS="$extra" > "$work/cmake.log"
cmake --build "$work/cmake-build" > "$work/cmake-build.log"
LD_LIBRARY_PATH="$(dirname "$libdir")" TERM=dumb "$work/cmake-build/consumer" | grep -q "quorvel ok"
# The readline program reads "quit" from a pipe: no terminal, no editing
# (a build without the readline-compatible library installs none).
if pkg-config --exists quorvel-readline; then
    cc -std=c99 -Wall -Werror $extra -o "$work/rl-shared" "$rlprog" $(pkg-config --cflags --libs quorvel-readline)
    cc -std=c99 -Wall -Werror $extra -o "$work/rl-static" "$rlprog" $(pkg-config --cflags quorvel-readline) \
        $(pkg-config --static --libs quorvel-readline | sed 's/-lquorvel-readline\b/-l:libquorvel-readline.a/; s/-lquorvel\( \|$\)/-l:libquorvel.a\1/')
    printf 'a\nb\nquit\n' | LD_LIBRARY_PATH="$(dirname "$libdir")" "$work/rl-shared" 2>&1 >/dev/null | grep -qx 2
    printf 'a\nquit\n' | "$work/rl-static" 2>&1 >/dev/null | grep -qx 1
fi
# The manual pages, as a user reads them after installing: the overview,
# a call through its link to the page of its group, the file format.
mandir="$work/prefix/share/man"
man -M "$mandir" -w quorvel term_getLine quorvel-bindings > /dev/null
MANWIDTH=80 man -M "$mandir" quorvel 2>/dev/null | grep -q "A minimal host"
MANWIDTH=80 man -M "$mandir" term_bindKey 2>/dev/null | grep -q "term_readBindings"
echo "installed consumer: pkg-config (shared and static) and CMake package build and run; so does a readline program; man finds the pages"
