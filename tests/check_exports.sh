#!/bin/sh
# Compares the dynamic symbol table of the shared object with the export list.
set -eu
lib=$1
list=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
# Sanitizer builds add their own instrumentation symbols; they are not ours.
# A name is listed without its version; the version nodes themselves are
# not names of ours.
nm -D --defined-only "$lib" | awk '{sub(/@.*/, "", $3); print $3}' \
    | grep -Ev '^(__odr_asan|__asan|__ubsan|__sancov|__tsan|QUORVEL_)' | sort -u > "$tmp/actual"
grep -E '^[A-Za-z_]' "$list" | sort -u > "$tmp/expected"
status=0
if grep -q '^_Z' "$tmp/actual"; then
    echo "C++-mangled names are exported:"; grep '^_Z' "$tmp/actual"; status=1
fi
if ! diff -u "$tmp/expected" "$tmp/actual" > "$tmp/diff"; then
    echo "Exports differ from the list (- listed but not defined, + defined but not listed):"
    cat "$tmp/diff"; status=1
fi
[ $status -eq 0 ] && echo "exports: $(wc -l < "$tmp/actual") names, as listed"
exit $status
