#!/usr/bin/env bash
# Builds the benchmarks (build/bench, Release), starts a private database
# server for them, runs them and prints one table: per operation and trace
# setting, the library's time, the bare connector's time for the same
# statements, their ratio and the peak memory of both runs.
#
#   scripts/run-bench.sh [BENCHMARK-OPTION...]   # e.g. --benchmark_filter=AddTicket
#
# NORVA_BENCH_ROUNDS (default 5): interleaved rounds per benchmark; the
# table shows the best round of each side.
# The server keeps its data in /dev/shm when that is available, so that the
# disk's flush latency does not drown the client-side figures; set
# NORVA_BENCH_ON_DISK=1 to keep it under /tmp instead (see bench/README.md).
# The CSV of the last run is kept in build/bench/bench-results.csv.
set -euo pipefail

# shellcheck source-path=SCRIPTDIR source=run-common.sh
. "$(dirname "${BASH_SOURCE[0]}")/run-common.sh"
rounds=${NORVA_BENCH_ROUNDS:-5}

mkdir -p build/bench
norva_build bench -DCMAKE_BUILD_TYPE=Release -DNORVA_BUILD_BENCH=ON -DNORVA_BUILD_TESTS=OFF \
    -DNORVA_BUILD_EXAMPLES=OFF -DNORVA_SANITIZE=OFF --target norva_bench \
    >build/bench/build.log 2>&1 || { cat build/bench/build.log >&2; exit 1; }

parent=/tmp
if [[ ${NORVA_BENCH_ON_DISK:-0} != 1 && -d /dev/shm && -w /dev/shm ]]; then
    parent=/dev/shm
fi
private_db_start "$parent" >/dev/null
# The benchmark's working directory, with the trace file, stays on disk.
work=$(mktemp -d /tmp/norvabench.XXXXXX)
private_db_scratch+=("$work")

csv="$build/bench-results.csv"
echo "run-bench: running the benchmarks ($rounds rounds, a few minutes)..." >&2
start=$SECONDS
(cd "$work" && NORVA_BENCH_ROUNDS="$rounds" "$build/bench/norva_bench" --benchmark_format=csv "$@") \
    >"$csv" 2>"$work/stderr.txt" || {
    cat "$work/stderr.txt" >&2
    exit 1
}
echo "run-bench: done in $((SECONDS - start)) s" >&2

# One row per operation and trace setting: each side's best round, and the
# largest peak memory of its rounds.
awk -F, '
function commas(n,    s) {
    s = ""
    while (length(n) > 3) { s = "," substr(n, length(n) - 2) s; n = substr(n, 1, length(n) - 3) }
    return n s
}
function label(op) {
    if (op ~ /^AddTicket_/) return "AddTicket, full record, " commas(substr(op, 11)) " entries"
    if (op == "GetJDF_1MiB") return "GetJDF, 1 MiB ticket"
    if (op == "GetAllQueueEntryIDs_10000") return "GetAllQueueEntryIDs, 10,000 rows"
    if (op == "StatusSubGetRecords_1000") return "GetRecords (status subs), 1,000 rows"
    return op
}
function duration(us) {
    if (us == "") return "-"
    if (us < 1000) return sprintf("%.1f us", us)
    return sprintf("%.2f ms", us / 1000)
}
function mib(v) { return v == "" ? "-" : sprintf("%.1f", v) }
NR == 1 {
    for (i = 1; i <= NF; i++) { h = $i; gsub(/"/, "", h); col[h] = i }
    next
}
{
    name = $1; gsub(/"/, "", name)
    split(name, part, "/")
    op = part[1]; side = part[2]; trace = (part[3] == "trace_on") ? "on" : "off"
    key = op SUBSEP trace
    if (!(key in seen)) { seen[key] = 1; order[++count] = key; opname[key] = op; tracename[key] = trace }
    if ($col["error_occurred"] == "true") { err[key] = $col["error_message"]; next }
    v = $col["real_time"] + 0
    if (!((key, side) in t) || v < t[key, side]) t[key, side] = v
    p = $col["peak_MiB"] + 0
    if (!((key, side) in peak) || p > peak[key, side]) peak[key, side] = p
}
END {
    fmt = "%-40s | %-5s | %12s | %12s | %6s | %-20s\n"
    printf fmt, "operation", "trace", "library", "raw", "ratio", "peak MiB (lib / raw)"
    line = sprintf(fmt, "", "", "", "", "", ""); gsub(/[^|]/, "-", line); gsub(/\|/, "+", line)
    print line
    for (i = 1; i <= count; i++) {
        k = order[i]
        if (k in err) { printf fmt, label(opname[k]), tracename[k], "error", "error", "-", err[k]; continue }
        lib = t[k, "lib"]; raw = t[k, "raw"]
        ratio = (lib != "" && raw > 0) ? sprintf("%.2fx", lib / raw) : "-"
        printf fmt, label(opname[k]), tracename[k], duration(lib), duration(raw), ratio,
            mib(peak[k, "lib"]) " / " mib(peak[k, "raw"])
    }
}' "$csv"
