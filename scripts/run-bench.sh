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
# NORVA_BENCH_THREADS (default 1 without options, else 0): run the throughput
# benchmarks; NORVA_BENCH_POOL (default 4): the library's Connections in their
# second process (0: none).
# The server keeps its data in /dev/shm when that is available, so that the
# disk's flush latency does not drown the client-side figures; set
# NORVA_BENCH_ON_DISK=1 to keep it under /tmp instead (see bench/README.md).
# The CSV of the last run is kept in build/bench/bench-results.csv.
set -euo pipefail

# shellcheck source-path=SCRIPTDIR source=run-common.sh
. "$(dirname "${BASH_SOURCE[0]}")/run-common.sh"
rounds=${NORVA_BENCH_ROUNDS:-5}
pool=${NORVA_BENCH_POOL:-4}
threads=${NORVA_BENCH_THREADS:-$(($# == 0))}

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
# Runs the benchmark binary with the library's Connections and the given
# options, appending its CSV rows (the header only once).
bench() {
    local connections=$1
    shift
    (cd "$work" && NORVA_BENCH_CONNECTIONS="$connections" "$build/bench/norva_bench" --benchmark_format=csv "$@") \
        >"$work/part.csv" 2>"$work/stderr.txt" || {
        cat "$work/stderr.txt" >&2
        exit 1
    }
    if [[ -s $csv ]]; then tail -n +2 "$work/part.csv" >>"$csv"; else cat "$work/part.csv" >>"$csv"; fi
}
: >"$csv"
NORVA_BENCH_ROUNDS="$rounds" bench 1 --benchmark_filter='-^Threads' "$@"
# Throughput: the library with one connection and with a pool, each round a
# process of each, back to back, so that a change in the machine's load hits
# both alike (Connections is read once per process).
if ((threads)); then
    for ((round = 1; round <= rounds; round++)); do
        NORVA_BENCH_ROUNDS=1 bench 1 --benchmark_filter='^Threads'
        if ((pool > 1)); then NORVA_BENCH_ROUNDS=1 bench "$pool" --benchmark_filter='^Threads.*/lib/'; fi
    done
fi
echo "run-bench: done in $((SECONDS - start)) s" >&2

# One row per operation and trace setting: each side's best round, and the
# largest peak memory of its rounds.
awk -F, '
function commas(n,    s) {
    s = ""
    while (length(n) > 3) { s = "," substr(n, length(n) - 2) s; n = substr(n, 1, length(n) - 3) }
    return n s
}
# The rate with the pool over the rate with one connection, round by round (the two processes
# of a round ran back to back): "median (lowest to highest)".
function RoundRatios(a, b,    k, m, r, i, j, x) {
    m = 0
    for (k = 1; k <= rounds[a, "lib"] && k <= rounds[b, "lib"]; k++)
        if (roundrate[a, "lib", k] > 0) r[++m] = roundrate[b, "lib", k] / roundrate[a, "lib", k]
    if (m == 0) return "-"
    for (i = 2; i <= m; i++) for (j = i; j > 1 && r[j - 1] > r[j]; j--) { x = r[j]; r[j] = r[j - 1]; r[j - 1] = x }
    return sprintf("%.2fx (%.2f-%.2f)", (m % 2) ? r[(m + 1) / 2] : (r[m / 2] + r[m / 2 + 1]) / 2, r[1], r[m])
}
function label(op) {
    if (op ~ /^AddTicket_/) return "AddTicket, full record, " commas(substr(op, 11)) " entries"
    if (op == "GetJDF_1MiB") return "GetJDF, 1 MiB ticket"
    if (op == "GetAllQueueEntryIDs_10000") return "GetAllQueueEntryIDs, 10,000 rows"
    if (op == "StatusSubGetRecords_1000") return "GetRecords (status subs), 1,000 rows"
    if (op == "TicketRecords_1001") return "ticket records by query object, 1,001"
    if (op == "LoggerLog") return "Logger::log, one line (raw: write(2))"
    if (op == "SystemCall") return "a system call alone (raw: getpid)"
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
    if (op ~ /^Threads/) {
        # Throughput: the best round by operations per second, with its CPU figures.
        if ($col["error_occurred"] == "true") { terr[op, side] = $col["error_message"] }
        rate = $col["items_per_second"] + 0
        roundrate[op, side, ++rounds[op, side]] = rate  # each process runs one round, c1 and the pool in turn
        if (!((op, side) in best) || rate > best[op, side]) {
            best[op, side] = rate; scpu[op, side] = $col["server_cpu_us"] + 0; ccpu[op, side] = $col["client_cpu_us"] + 0
        }
        next
    }
    key = op SUBSEP trace
    if (!(key in seen)) { seen[key] = 1; order[++count] = key; opname[key] = op; tracename[key] = trace }
    if ($col["error_occurred"] == "true") { err[key] = $col["error_message"]; next }
    v = $col["real_time"] + 0
    if (!((key, side) in t) || v < t[key, side]) t[key, side] = v
    p = $col["peak_MiB"] + 0
    if (!((key, side) in peak) || p > peak[key, side]) peak[key, side] = p
}
END {
    fmt = "%-40s | %-5s | %12s | %12s | %6s | %-20s | %12s | %6s\n"
    printf fmt, "operation", "trace", "library", "raw", "ratio", "peak MiB (lib / raw)", "raw + writes", "ratio"
    line = sprintf(fmt, "", "", "", "", "", "", "", ""); gsub(/[^|]/, "-", line); gsub(/\|/, "+", line)
    print line
    for (i = 1; i <= count; i++) {
        k = order[i]
        if (k in err) { printf fmt, label(opname[k]), tracename[k], "error", "error", "-", err[k], "", ""; continue }
        lib = t[k, "lib"]; raw = t[k, "raw"]; rawlog = t[k, "rawlog"]
        ratio = (lib != "" && raw > 0) ? sprintf("%.2fx", lib / raw) : "-"
        logratio = (lib != "" && rawlog > 0) ? sprintf("%.2fx", lib / rawlog) : "-"
        printf fmt, label(opname[k]), tracename[k], duration(lib), duration(raw), ratio,
            mib(peak[k, "lib"]) " / " mib(peak[k, "raw"]), duration(rawlog), logratio
    }
    # Throughput, operations per second over all threads; CPU microseconds
    # per operation of the server and of this process (library or raw side).
    print ""
    tfmt = "%-18s | %7s | %15s | %8s | %-19s | %15s | %-28s | %-23s | %-23s\n"
    printf tfmt, "operation", "threads", "lib ops/s c1/c" pool, "c" pool "/c1", "per round, median", "raw ops/s",
        "raw, " pool " shared: ops/s, CPU us", "server CPU us (c1/c" pool "/raw)", "client CPU us (c1/c" pool "/raw)"
    line = sprintf(tfmt, "", "", "", "", "", "", "", "", ""); gsub(/[^|]/, "-", line); gsub(/\|/, "+", line)
    print line
    split("GetTicketStatus UpdateTicketStatus", ops, " ")
    for (o = 1; o <= 2; o++) {
        for (n = 1; n <= 8; n *= 2) {
            a = "Threads" ops[o] "_c1_t" n; b = "Threads" ops[o] "_c" pool "_t" n; r = "Threads" ops[o] "_c" n "_t" n
            if (!((a, "lib") in best)) continue
            ra = best[a, "lib"]; rb = best[b, "lib"]; rr = best[r, "raw"]
            printf tfmt, ops[o], n, sprintf("%.0f / %.0f", ra, rb), (ra > 0 && rb > 0) ? sprintf("%.2fx", rb / ra) : "-",
                RoundRatios(a, b),
                sprintf("%.0f", rr),
                ((b, "rawshared") in best) ? sprintf("%.0f, %.1f + %.1f", best[b, "rawshared"], scpu[b, "rawshared"], ccpu[b, "rawshared"]) : "-",
                sprintf("%.1f / %.1f / %.1f", scpu[a, "lib"], scpu[b, "lib"], scpu[r, "raw"]),
                sprintf("%.1f / %.1f / %.1f", ccpu[a, "lib"], ccpu[b, "lib"], ccpu[r, "raw"])
        }
    }
}' pool="$pool" "$csv"
