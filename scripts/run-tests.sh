#!/usr/bin/env bash
# Builds the library and its tests, starts a private database server for
# them, runs the test suite and stops the server again.
#
#   scripts/run-tests.sh               # build/plain
#   scripts/run-tests.sh --sanitize    # build/sanitize, ASan + UBSan
#   scripts/run-tests.sh --shuffle     # every program runs its tests in a
#                                      # random order (seed printed; set
#                                      # NORVA_TEST_SEED=N to repeat one)
#
# Exits with the status of ctest.
set -euo pipefail

# shellcheck source-path=SCRIPTDIR source=run-common.sh
. "$(dirname "${BASH_SOURCE[0]}")/run-common.sh"

mode=plain
sanitize=OFF
shuffle=0
for arg in "$@"; do
    case $arg in
        --sanitize) mode=sanitize; sanitize=ON ;;
        --shuffle) shuffle=1 ;;
        *) echo "usage: $0 [--sanitize] [--shuffle]" >&2; exit 2 ;;
    esac
done

norva_build "$mode" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNORVA_SANITIZE="$sanitize" -DNORVA_BUILD_TESTS=ON

private_db_start /tmp

if [[ $mode == sanitize ]]; then
    export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
    export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
    if [[ -f $root/tests/lsan.supp ]]; then
        export LSAN_OPTIONS="suppressions=$root/tests/lsan.supp"
    fi
fi

if ((shuffle)); then
    export GTEST_SHUFFLE=1
    export GTEST_RANDOM_SEED=${NORVA_TEST_SEED:-$((RANDOM % 99999 + 1))}
    echo "run-tests: tests shuffled with seed $GTEST_RANDOM_SEED (NORVA_TEST_SEED=$GTEST_RANDOM_SEED repeats it)"
fi

status=0
ctest --test-dir "$build" --output-on-failure || status=$?
# The plain build also proves the installed package: a host program built
# only from pkg-config's flags uses the facade.
if [[ $mode == plain && $shuffle == 0 ]]; then
    bash scripts/check-install.sh || status=1
fi
exit "$status"
