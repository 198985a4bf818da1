#!/usr/bin/env bash
# Jobs per second of host processes on one private server and on a private
# 3-node Galera cluster (bench/jobs_bench.cpp), the cost of one committed
# status update and of one status read on each, and on the cluster the two
# ClusterWrites modes with their certification conflicts. Builds build/bench, starts both databases under
# /tmp, prints the medians, and stops everything it started.
#
#   scripts/run-cluster-bench.sh [BENCHMARK-OPTION...]   # e.g. --benchmark_filter=safe
set -euo pipefail

# shellcheck source-path=SCRIPTDIR source=run-common.sh
. "$(dirname "${BASH_SOURCE[0]}")/run-common.sh"

mkdir -p "$root/build/bench"
norva_build bench -DCMAKE_BUILD_TYPE=Release -DNORVA_BUILD_BENCH=ON -DNORVA_BUILD_TESTS=OFF \
    -DNORVA_BUILD_EXAMPLES=OFF -DNORVA_SANITIZE=OFF --target norva_jobs_bench >"$root/build/bench/build.log" 2>&1 ||
    { cat "$root/build/bench/build.log" >&2; exit 1; }

private_db_start /tmp >/dev/null
cluster=$(mktemp -d /tmp/norvacl.XXXXXX)
work=$(mktemp -d /tmp/norvabench.XXXXXX)
private_db_scratch+=("$work")
# shellcheck disable=SC2317  # called from the EXIT trap
cleanup() {
    bash "$root/scripts/cluster-stop.sh" "$cluster" || true
    rm -rf "$cluster"
    private_db_cleanup
}
trap cleanup EXIT

bench() {
    (cd "$work" && "$build/bench/norva_jobs_bench" "$@") 2>/dev/null | grep -E '_median|Cluster.*_mean|error' || true
}

echo "== one server"
NORVA_BENCH_HOSTS=$NORVA_TEST_DB bench "$@"

bash scripts/cluster-start.sh "$cluster" 3 >/dev/null
hosts=$(sed -n 's/^NORVA_CLUSTER_HOSTS=//p' "$cluster/env")
echo "== 3-node cluster: Jobs with each process's own node first; Cluster/safe with 3 processes x 300 jobs,"
echo "   10 runs: writes:one gives every process the same list, writes:any each its own node first"
NORVA_TEST_DB=${hosts%%,*} NORVA_BENCH_HOSTS=$hosts NORVA_BENCH_JOBS=300 \
    bench --benchmark_filter='processes:3|Commit|Read|Cluster' "$@"
# Where the cluster's time went: write sets refused by certification (the
# statement fails with 1213 and runs again), local transactions aborted by a
# replicated one, and the share of time replication was paused by flow control.
for ((i = 1; i <= 3; i++)); do
    printf 'node %s: ' "$i"
    mariadb --no-defaults --protocol=socket -S "$cluster/node$i/mysqld.sock" -u"$(id -un)" -N -B -e "
        SELECT GROUP_CONCAT(CONCAT(LOWER(VARIABLE_NAME), '=', VARIABLE_VALUE) SEPARATOR ' ')
        FROM information_schema.GLOBAL_STATUS WHERE VARIABLE_NAME IN
        ('wsrep_local_commits', 'wsrep_local_cert_failures', 'wsrep_local_bf_aborts', 'wsrep_flow_control_paused')"
done
