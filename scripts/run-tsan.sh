#!/usr/bin/env bash
# Builds the library and the tests that run threads with ThreadSanitizer
# (build/tsan), starts a private database server for them, runs them and
# stops the server again. The first report stops its test and fails the run.
#
#   scripts/run-tsan.sh
#
# Exits with the status of ctest.
set -euo pipefail

# shellcheck source-path=SCRIPTDIR source=run-common.sh
. "$(dirname "${BASH_SOURCE[0]}")/run-common.sh"

# The tests in which several threads use the library or its platform parts.
tests=(concurrency_test fault_test frozen_test jobsender_provider_test platform_test pool_test)

norva_build tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNORVA_TSAN=ON -DNORVA_SANITIZE=OFF \
    -DNORVA_BUILD_TESTS=ON -DNORVA_BUILD_EXAMPLES=OFF --target "${tests[@]}"

private_db_start /tmp

# The suppressions cover only the uninstrumented database connector.
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$root/tests/tsan.supp"

# Two of them again with four connections (registered in tests/CMakeLists.txt),
# and each in both profiles.
tests+=(concurrency_test_pool4 fault_test_pool4)
regex="^($(IFS='|'; echo "${tests[*]}"))(_safe)?\$"
ctest --test-dir "$build" --output-on-failure -R "$regex"
