#!/usr/bin/env bash
# Builds the library and its tests with NORVA_HARDENED=ON (every value placed
# between quotes in SQL is escaped) into build/hardened, starts a private
# database server, runs the test suite and stops the server again.
#
#   scripts/run-hardened.sh [CTEST-ARGS...]    # e.g. -R bad_input
#
# A few test cases check what the default build does with a quote or a
# backslash in a value (the statement's exact unescaped text, or that the
# statement breaks); they are left out here by name (DEFAULT_BUILD_ONLY
# below). Exits with the status of ctest.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
cd "$root"
build="$root/build/hardened"

# Test cases whose expectations hold for the default build only.
DEFAULT_BUILD_ONLY=(
    ContentProviderTest.RecordRoundTripPathsUpdateAndDelete  # logs 'x\y\z' unescaped
    StoreTest.BadInputOnlyFailsItsOwnStatement               # a quoted key breaks its statement
)

bash scripts/install-deps.sh

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DNORVA_HARDENED=ON -DNORVA_BUILD_TESTS=ON -DNORVA_BUILD_EXAMPLES=OFF
cmake --build "$build" -j2

dbdir=$(mktemp -d /tmp/norvadb.XXXXXX)
# shellcheck disable=SC2317  # called from the EXIT trap
cleanup() {
    bash "$root/scripts/db-stop.sh" "$dbdir" || true
    rm -rf "$dbdir"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

bash scripts/db-start.sh "$dbdir"
while IFS='=' read -r key value; do
    [[ -n $key ]] && export "$key=$value"
done <"$dbdir/env"

# Every test program reads the negative filter from the environment.
GTEST_FILTER="-$(IFS=:; echo "${DEFAULT_BUILD_ONLY[*]}")"
export GTEST_FILTER
echo "run-hardened: skipping the default-build-only cases $GTEST_FILTER"

status=0
ctest --test-dir "$build" --output-on-failure "$@" || status=$?
exit "$status"
