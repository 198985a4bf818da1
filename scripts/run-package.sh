#!/usr/bin/env bash
# Builds the Debian package (cpack -G DEB) in build/package, installs it with
# dpkg -i, and checks it the way its users would, with nothing from the
# source tree: the declared dependencies, norva and its man page, the first
# program of docs/guide.md built with find_package, and
# examples/pkgconfig_app.cpp built with pkg-config, both run against a
# private database server. The package is removed again at the end.
#
#   scripts/run-package.sh
#
# Exits 0 when every step succeeded.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
cd "$root"
build="$root/build/package"

bash scripts/install-deps.sh

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
    -DNORVA_SANITIZE=OFF -DNORVA_BUILD_TESTS=OFF -DNORVA_BUILD_EXAMPLES=OFF
cmake --build "$build" -j2
rm -f "$build"/*.deb
(cd "$build" && cpack -G DEB)
deb=$(find "$build" -maxdepth 1 -name '*.deb' -print -quit)
[[ -n $deb ]] || { echo "run-package: cpack made no .deb" >&2; exit 1; }
echo "run-package: built ${deb#"$build"/}"

depends=$(dpkg-deb -f "$deb" Depends)
echo "run-package: Depends: $depends"
for lib in libmysqlcppconn libxerces-c libwxbase libstdc++6 pkg-config; do
    [[ $depends == *"$lib"* ]] || { echo "run-package: the package does not depend on $lib" >&2; exit 1; }
done

if ((EUID == 0)); then as_root=(); else as_root=(sudo); fi
# shellcheck source-path=SCRIPTDIR source=private-db.sh
. "$root/scripts/private-db.sh"
private_db_start /tmp
package=$(dpkg-deb -f "$deb" Package)
work=$(mktemp -d /tmp/norvapkg.XXXXXX)
private_db_scratch+=("$work")
remove_package() { "${as_root[@]}" dpkg --purge "$package" >/dev/null || true; private_db_cleanup; }
trap remove_package EXIT
"${as_root[@]}" dpkg -i "$deb"

# The installed tool and man page.
norva=$(command -v norva)
[[ $norva == /usr/bin/norva ]] || { echo "run-package: norva is $norva, not /usr/bin/norva" >&2; exit 1; }
for file in /usr/share/man/man1/norva.1 /usr/share/norvadatalayer/jdfdb.sql /usr/include/norvadatalayer/norvadatalayer.h; do
    dpkg -L "$package" | grep -qx "$file" || { echo "run-package: the package lacks $file" >&2; exit 1; }
done
cd "$work"
echo "DBIPAddr = $NORVA_TEST_DB" >norva.conf
norva check

# A CMake host program and a pkg-config one, from copies outside the tree.
cp "$root/docs/example/first_program.cpp" "$root/docs/example/CMakeLists.txt" .
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build
./build/first_program
cp "$root/examples/pkgconfig_app.cpp" .
# shellcheck disable=SC2046  # the flags are meant to be split
g++ -std=c++17 pkgconfig_app.cpp $(pkg-config --cflags --libs norvadatalayer) -o pkgconfig_app
[[ $(./pkgconfig_app) == OK ]]
echo "run-package: the installed package works"
