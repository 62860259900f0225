#!/usr/bin/env bash
# Installs the Debian packages that building and testing Quorvel needs.
# Safe to run again: it only installs what is missing. As root it runs
# apt-get itself; otherwise it prints the command to run.
set -euo pipefail

packages=(cmake g++ make pkg-config python3 libncurses-dev libutf8proc-dev ncurses-bin
          libgtest-dev libgmock-dev libvterm-dev libbenchmark-dev mandoc man-db
          libreadline-dev abigail-tools debhelper lintian fakeroot dpkg-dev)
# GNU readline's development files build the control of the differential
# test against GNU readline; none of the libraries links them. libabigail's
# tools check the ABI; debhelper and lintian build and check the packages.
# Unmodified readline and libedit programs the tests run on Quorvel, and the
# telnet client the telnet example is tried with: wanted,
# not needed; a test skips a program that is missing.
programs=(gdb rlwrap units gnuplot-nox sqlite3 bc lua5.4 telnet)
case "${1:-}" in
    --bench) packages+=(libreadline-dev libedit-dev strace) ;;
    --fuzz) packages+=(clang libclang-rt-14-dev) ;;
    --memcheck) packages+=(valgrind) ;;
esac

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
missing=()
for p in "${packages[@]}"; do installed "$p" || missing+=("$p"); done
optional=()
for p in "${programs[@]}"; do installed "$p" || optional+=("$p"); done
[ ${#missing[@]} -eq 0 ] && [ ${#optional[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
    export DEBIAN_FRONTEND=noninteractive
    # A partly failing index (a mirror mid-sync, a foreign architecture)
    # still leaves the lists the install needs.
    apt-get update -qq || true
    [ ${#missing[@]} -eq 0 ] || apt-get install -y -qq --no-install-recommends "${missing[@]}"
    if [ ${#optional[@]} -gt 0 ]; then
        # One at a time when all at once fails, so one missing package does
        # not keep the others out.
        apt-get install -y -qq --no-install-recommends "${optional[@]}" ||
            for p in "${optional[@]}"; do
                apt-get install -y -qq --no-install-recommends "$p" ||
                    echo "Could not install $p: its tests will be skipped" >&2
            done
    fi
elif [ ${#missing[@]} -gt 0 ]; then
    echo "Missing packages: ${missing[*]}" >&2
    echo "Install them with: sudo apt-get install ${missing[*]}" >&2
    exit 1
else
    echo "Not installed, so their tests are skipped: ${optional[*]}" >&2
fi
