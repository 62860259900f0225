#!/usr/bin/env bash
# Installs the Debian packages that building and testing Quorvel needs.
# Safe to run again: it only installs what is missing. As root it runs
# apt-get itself; otherwise it prints the command to run.
set -euo pipefail

# sqlite3 and bc: unmodified readline programs the tests run on Quorvel.
packages=(cmake g++ make pkg-config python3 libncurses-dev ncurses-bin
          libgtest-dev libgmock-dev libvterm-dev libbenchmark-dev sqlite3 bc)
case "${1:-}" in
    --bench) packages+=(libreadline-dev libedit-dev) ;;
    --fuzz) packages+=(clang libclang-rt-14-dev) ;;
    --memcheck) packages+=(valgrind) ;;
esac

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
    export DEBIAN_FRONTEND=noninteractive
    # A partly failing index (a mirror mid-sync, a foreign architecture)
    # still leaves the lists the install needs.
    apt-get update -qq || true
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
else
    echo "Missing packages: ${missing[*]}" >&2
    echo "Install them with: sudo apt-get install ${missing[*]}" >&2
    exit 1
fi
