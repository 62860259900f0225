#!/bin/sh
# The version is said in four places: CMake's project(), the SONAME of the
# built library, debian/changelog and CHANGELOG.md's newest section. They
# must agree (the SONAME with the major version).
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
lib=$1
cmake_version=$(sed -n 's/^project(quorvel VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
soname=$(objdump -p "$lib" | sed -n 's/^ *SONAME *libquorvel\.so\.\([0-9]*\)$/\1/p')
debian=$(sed -n '1s/^quorvel (\([^)-]*\).*/\1/p' "$root/debian/changelog")
changelog=$(sed -n 's/^## \[\([0-9.]*\)\].*/\1/p' "$root/CHANGELOG.md" | head -1)
echo "CMake $cmake_version, SONAME $soname, debian/changelog $debian, CHANGELOG.md $changelog"
[ "$cmake_version" = "$debian" ] && [ "$cmake_version" = "$changelog" ] && [ "${cmake_version%%.*}" = "$soname" ]
