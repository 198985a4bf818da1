#!/usr/bin/env bash
# Builds the libFuzzer targets (clang++, AddressSanitizer, UBSan, coverage of
# the library) into build/fuzz and runs each for a bounded time on its seed
# corpus. Exits non-zero when a target crashed, leaked, hung or ran out of
# memory; the input that did it is kept in build/fuzz/artifacts/.
#
#   scripts/run-fuzz.sh               # 60 s per target
#   NORVA_FUZZ_SECONDS=600 scripts/run-fuzz.sh
set -euo pipefail

# shellcheck source-path=SCRIPTDIR source=run-common.sh
. "$(dirname "${BASH_SOURCE[0]}")/run-common.sh"
seconds=${NORVA_FUZZ_SECONDS:-60}
targets=(xmlparser_fuzz ticketfile_fuzz)

norva_build fuzz --source "$root/fuzz" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    --target "${targets[@]}"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:symbolize=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

status=0
for target in "${targets[@]}"; do
    seeds="$root/fuzz/corpus/${target%_fuzz}"
    corpus="$build/corpus/$target"      # grows between runs; the seeds stay as they are
    artifacts="$build/artifacts/$target/"
    mkdir -p "$corpus" "$artifacts"
    echo "==== $target: ${seconds}s on $seeds"
    if "$build/$target" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=25 \
        -print_final_stats=1 -artifact_prefix="$artifacts" "$corpus" "$seeds" \
        >"$build/$target.log" 2>&1; then
        tail -n 12 "$build/$target.log"
        echo "$target: no crash, no leak"
    else
        status=1
        echo "$target: FAILED; the log and the input follow" >&2
        tail -n 80 "$build/$target.log" >&2
        for input in "$artifacts"*; do
            [[ -f $input ]] || continue
            echo "---- $input" >&2
            od -A d -c "$input" | head -n 40 >&2
        done
    fi
done
exit "$status"
