#!/usr/bin/env bash
# Builds the library and the demo program, starts a private database server,
# runs the demo against it from a fresh working directory and stops the
# server again. Extra arguments go to the demo.
#
#   scripts/run-demo.sh [DEMO-ARGS...]
#
# Exits with the demo's status.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
cd "$root"
build="$root/build/plain"

bash scripts/install-deps.sh

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DNORVA_SANITIZE=OFF -DNORVA_BUILD_TESTS=ON
cmake --build "$build" -j2 --target norva_demo

# shellcheck source-path=SCRIPTDIR source=private-db.sh
. "$root/scripts/private-db.sh"
private_db_start /tmp

# The library reads norva.conf and datalayer.xml from the working directory,
# so the demo starts in an empty one.
workdir=$(mktemp -d /tmp/norvademo.XXXXXX)
private_db_scratch+=("$workdir")
status=0
(cd "$workdir" && "$build/examples/norva_demo" --db "$NORVA_TEST_DB" "$@") || status=$?
exit "$status"
