#!/usr/bin/env bash
# Builds the library and its tests with NORVA_HARDENED=ON (every value placed
# between quotes in SQL is escaped) into build/hardened, starts a private
# database server, runs the test suite and stops the server again.
#
#   scripts/run-hardened.sh [CTEST-ARGS...]    # e.g. -R bad_input
#
# Tests that depend on escaping know which build they run in. Exits with the
# status of ctest.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
cd "$root"
build="$root/build/hardened"

bash scripts/install-deps.sh

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DNORVA_HARDENED=ON -DNORVA_BUILD_TESTS=ON -DNORVA_BUILD_EXAMPLES=OFF
cmake --build "$build" -j2

# shellcheck source-path=SCRIPTDIR source=private-db.sh
. "$root/scripts/private-db.sh"
private_db_start /tmp

status=0
ctest --test-dir "$build" --output-on-failure "$@" || status=$?
exit "$status"
