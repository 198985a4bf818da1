#!/usr/bin/env bash
# The safe profile's benchmarks: builds norva_profile_bench (build/bench,
# Release), starts a private database server (data in /dev/shm where it can),
# runs the program once per profile and prints one table: the exact profile,
# the safe one and the bare connector sending the safe profile's statements.
#
#   scripts/run-profile-bench.sh [BENCHMARK-OPTION...]
#
# NORVA_BENCH_ROUNDS (default 3): rounds, each running both profiles in turn;
# the table shows each side's best round.
set -euo pipefail

# shellcheck source-path=SCRIPTDIR source=run-common.sh
. "$(dirname "${BASH_SOURCE[0]}")/run-common.sh"
rounds=${NORVA_BENCH_ROUNDS:-3}

mkdir -p build/bench
norva_build bench -DCMAKE_BUILD_TYPE=Release -DNORVA_BUILD_BENCH=ON -DNORVA_BUILD_TESTS=OFF \
    -DNORVA_BUILD_EXAMPLES=OFF -DNORVA_SANITIZE=OFF --target norva_profile_bench \
    >build/bench/build.log 2>&1 || { cat build/bench/build.log >&2; exit 1; }

parent=/tmp
[[ -d /dev/shm && -w /dev/shm ]] && parent=/dev/shm
private_db_start "$parent" >/dev/null

csv="$build/profile-results.csv"
: >"$csv"
# The two profiles take turns, round after round, so that a busy spell on a
# shared machine does not fall on one side only.
for ((round = 0; round < rounds; round++)); do
    for profile in exact safe; do
        NORVA_BENCH_PROFILE=$profile "$build/bench/norva_profile_bench" --benchmark_format=csv "$@" 2>/dev/null |
            grep -v '_mean\|_median\|_stddev\|_cv' >>"$csv"
    done
done

# One row per operation: each side's best repetition.
awk -F, '
/^"/ {
    name = $1; gsub(/"/, "", name)
    split(name, part, "/")
    op = part[1]; side = part[2]
    if (!(op in seen)) { seen[op] = 1; order[++count] = op }
    v = $3 + 0
    if (!((op, side) in t) || v < t[op, side]) t[op, side] = v
}
function ms(ns) { return (ns == "") ? "-" : sprintf("%.3f ms", ns / 1e6) }
END {
    fmt = "%-26s | %11s | %11s | %11s | %10s | %10s\n"
    printf fmt, "operation", "exact", "safe", "raw (safe)", "safe/exact", "safe/raw"
    for (i = 1; i <= count; i++) {
        op = order[i]; e = t[op, "exact"]; s = t[op, "safe"]; r = t[op, "raw"]
        printf fmt, op, ms(e), ms(s), ms(r), (e > 0) ? sprintf("%.2fx", s / e) : "-", (r > 0) ? sprintf("%.2fx", s / r) : "-"
    }
}' "$csv"
