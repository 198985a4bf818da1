#!/usr/bin/env bash
# Builds the library and the demo program, starts a private database server,
# runs the demo against it from a fresh working directory and stops the
# server again. Extra arguments go to the demo.
#
#   scripts/run-demo.sh [DEMO-ARGS...]
#
# Exits with the demo's status.
set -euo pipefail

# shellcheck source-path=SCRIPTDIR source=run-common.sh
. "$(dirname "${BASH_SOURCE[0]}")/run-common.sh"

norva_build plain -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNORVA_SANITIZE=OFF -DNORVA_BUILD_TESTS=ON \
    --target norva_demo

private_db_start /tmp

# The library reads norva.conf and datalayer.xml from the working directory,
# so the demo starts in an empty one.
workdir=$(mktemp -d /tmp/norvademo.XXXXXX)
private_db_scratch+=("$workdir")
status=0
(cd "$workdir" && "$build/examples/norva_demo" --db "$NORVA_TEST_DB" "$@") || status=$?
exit "$status"
