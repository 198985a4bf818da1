#!/usr/bin/env bash
# Checks the installed package the way a host program uses it: installs the
# build in build/plain into a temporary prefix, builds examples/pkgconfig_app.cpp
# with nothing but the flags of the installed norvadatalayer.pc, and runs it
# against the database server named by NORVA_TEST_DB.
#
#   NORVA_TEST_DB=tcp://127.0.0.1:PORT scripts/check-install.sh
#
# Exits 0 when the program built, ran and printed OK.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
build="$root/build/plain"

if [[ -z ${NORVA_TEST_DB:-} ]]; then
    echo "check-install: NORVA_TEST_DB is not set (see scripts/db-start.sh)" >&2
    exit 2
fi

if [[ ! -f $build/CMakeCache.txt ]]; then
    cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNORVA_SANITIZE=OFF
fi
cmake --build "$build" -j2 --target norvadatalayer

tmp=$(mktemp -d /tmp/norvainstall.XXXXXX)
# shellcheck disable=SC2317  # called from the EXIT trap
cleanup() { rm -rf "$tmp"; }
trap cleanup EXIT
prefix="$tmp/prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null

# GNUInstallDirs picks lib or lib/<multiarch> depending on the prefix and the system.
pcfile=$(find "$prefix" -path '*/pkgconfig/norvadatalayer.pc' -print -quit)
if [[ -z $pcfile ]]; then
    echo "check-install: norvadatalayer.pc was not installed under $prefix" >&2
    exit 1
fi
pcdir=$(dirname "$pcfile")
echo "check-install: installed into $prefix (pkg-config file in ${pcdir#"$prefix"/})"

# A relocatable package names the prefix it was installed into.
export PKG_CONFIG_PATH="$pcdir"
recorded=$(pkg-config --variable=prefix norvadatalayer)
if [[ $(realpath -m "$recorded") != "$(realpath -m "$prefix")" ]]; then
    echo "check-install: norvadatalayer.pc names prefix $recorded, not the install prefix $prefix" >&2
    exit 1
fi
flags=$(pkg-config --cflags --libs norvadatalayer)

# Built and run outside the source tree, so only installed files can be found.
mkdir "$tmp/app"
cp "$root/examples/pkgconfig_app.cpp" "$tmp/app/"
cd "$tmp/app"
# shellcheck disable=SC2086  # the flags are meant to be split
g++ -std=c++17 pkgconfig_app.cpp $flags -o pkgconfig_app
if ldd ./pkgconfig_app | grep -q 'not found'; then
    echo "check-install: the installed libraries are not all found at run time:" >&2
    ldd ./pkgconfig_app | grep 'not found' >&2
    exit 1
fi
output=$(./pkgconfig_app --db "$NORVA_TEST_DB")
echo "$output"
[[ $output == OK ]]
