#!/usr/bin/env bash
# Builds the Debian packages from the project's tracked files, checks them
# with lintian, unpacks them into a scratch root, and builds the README's
# minimal host against the installed files alone, then types a line into it
# in a pseudo-terminal. Exit 77 (skipped) where the packaging tools are
# missing.
set -euo pipefail
cd "$(dirname "$0")/.."
for tool in dpkg-buildpackage dh lintian git; do
    command -v "$tool" > /dev/null || { echo "$tool is missing: skipped"; exit 77; }
done
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
mkdir "$tmp/src"
git ls-files -z | tar --null -T - -c | tar -x -C "$tmp/src"
if ! (cd "$tmp/src" && dpkg-buildpackage -us -uc -b -j"$(nproc)" > "$tmp/build.log" 2>&1); then
    tail -40 "$tmp/build.log"
    exit 1
fi
lintian --fail-on error "$tmp"/*.changes 2>&1 | grep -v 'root privileges' || true
lintian --fail-on error "$tmp"/*.changes > /dev/null 2>&1
root="$tmp/root"
for deb in "$tmp"/*.deb; do
    case "$deb" in *-dbgsym_*) ;; *) dpkg -x "$deb" "$root" ;; esac
done
# The README's minimal host, as the README shows it.
python3 - README.md "$tmp/myrepl.c" <<'PY'
import re, sys
text = open(sys.argv[1]).read()
code = re.search(r"A minimal host:\n\n```c\n(.*?)```", text, re.S).group(1)
open(sys.argv[2], "w").write(code)
PY
libdir="$root/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)"
flags=$(PKG_CONFIG_PATH="$libdir/pkgconfig" PKG_CONFIG_LIBDIR="$libdir/pkgconfig" pkg-config --cflags --libs quorvel)
case "$flags" in *"$root"*) ;; *) echo "pkg-config does not point into the installed root: $flags"; exit 1 ;; esac
cc -std=c99 -Wall -Werror -o "$tmp/myrepl" "$tmp/myrepl.c" $flags -Wl,-rpath,"$libdir"
# grep reads to the end: -q would quit at the match and, under pipefail, fail
# the pipe when ldd is still writing.
ldd "$tmp/myrepl" | grep "$libdir/libquorvel.so.4" > /dev/null || { echo "not linked against the installed library"; exit 1; }
python3 - "$tmp/myrepl" <<'PY'
import os, pty, select, sys, time
pid, fd = pty.fork()
if pid == 0:
    os.environ["TERM"] = "xterm-256color"
    os.execv(sys.argv[1], [sys.argv[1]])
out = b""
def read(until, limit=10):
    global out
    end = time.time() + limit
    while until not in out and time.time() < end:
        if select.select([fd], [], [], 0.1)[0]:
            try:
                out += os.read(fd, 4096)
            except OSError:
                return
read(b"> ")
os.write(fd, b"hello\r")
read(b"got: hello")
os.write(fd, b"\r")
read(b"\xff")  # until the host exits
_, status = os.waitpid(pid, 0)
if b"got: hello" not in out or status != 0:
    print("the installed host did not answer: %r (status %d)" % (out, status))
    sys.exit(1)
print("the README's host, built from the packages, answered")
PY
echo "packages: $(cd "$tmp" && ls *.deb | tr '\n' ' ')"
