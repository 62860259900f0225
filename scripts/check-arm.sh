#!/usr/bin/env bash
# Compiles every library source and the C test host for 32-bit ARM (armhf:
# unsigned plain char, 32-bit long and pointers) with warnings as errors.
# Installs the cross compiler when run as root and it is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v arm-linux-gnueabihf-g++ >/dev/null; then
    if [ "$(id -u)" -eq 0 ]; then
        DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends g++-arm-linux-gnueabihf
    else
        echo "Install g++-arm-linux-gnueabihf first." >&2
        exit 1
    fi
fi
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
flags=(-Wall -Wextra -Werror -Wconversion -Wno-sign-conversion -Iinclude -ISource -idirafter /usr/include)
for f in Source/*.cpp; do
    arm-linux-gnueabihf-g++ -std=c++17 -fno-exceptions -fno-rtti "${flags[@]}" -c "$f" -o "$out/$(basename "$f").o"
done
arm-linux-gnueabihf-gcc -std=c99 -pedantic -D_POSIX_C_SOURCE=200809L "${flags[@]}" \
    -c tests/host/qv_host.c -o "$out/qv_host.o"
echo "armhf: $(ls Source/*.cpp | wc -l) sources and the C host compile cleanly"
