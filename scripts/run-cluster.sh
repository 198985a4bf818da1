#!/usr/bin/env bash
# Builds the cluster test program and the purge test, starts a private
# 3-node Galera cluster with TLS (clients, replication and state transfer;
# --plain: without), runs both against it (over TLS, verify-identity against
# the cluster's CA) and stops every node again, whatever happens (the nodes
# are stopped by the EXIT trap even when a test fails or the run is
# interrupted). The tests are killed if the whole run, cluster start
# included, would otherwise take more than 6 minutes (built already).
#
#   scripts/run-cluster.sh [--plain]
#
# Exits with the status of the test program.
set -euo pipefail

# shellcheck source-path=SCRIPTDIR source=run-common.sh
. "$(dirname "${BASH_SOURCE[0]}")/run-common.sh"

tls=(--tls)
case ${1:-} in
    --plain) tls=() ;;
    "") ;;
    *) echo "usage: $0 [--plain]" >&2; exit 2 ;;
esac

norva_build plain -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNORVA_BUILD_TESTS=ON --target cluster_test purge_test >/dev/null

# The cluster and its tests run in a network namespace of their own, with a
# loopback of its own, so that a test can make a node unreachable with
# iptables without touching the machine's own tables. Without the rights to
# make one, that case is skipped.
if [[ ${NORVA_TEST_NETNS:-} != 1 ]] && unshare -n true 2>/dev/null; then
    exec env NORVA_TEST_NETNS=1 unshare -n bash -c 'ip link set lo up && exec bash "$0" "$@"' "$0" "$@"
fi

cluster=$(mktemp -d /tmp/norvacl.XXXXXX)
# shellcheck disable=SC2317  # called from the EXIT trap
cleanup() {
    bash "$root/scripts/cluster-stop.sh" "$cluster" || true
    rm -rf "$cluster"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

started=$SECONDS
# Another program can take a chosen port before a node binds it: one more try
# from scratch.
if ! bash scripts/cluster-start.sh "${tls[@]}" "$cluster" 3; then
    echo "run-cluster: the cluster did not start; trying once more" >&2
    bash scripts/cluster-stop.sh "$cluster" || true
    rm -rf "$cluster"
    mkdir -p "$cluster"
    bash scripts/cluster-start.sh "${tls[@]}" "$cluster" 3
fi
echo "run-cluster: cluster formed in $((SECONDS - started)) s"
while IFS='=' read -r key value; do
    [[ -n $key ]] && export "$key=$value"
done <"$cluster/env"
unset NORVA_TEST_DB NORVA_TEST_DB_DIR
if [[ -n ${NORVA_CLUSTER_CA:-} ]]; then export NORVA_TEST_TLS_CA=$NORVA_CLUSTER_CA; fi

status=0
# Whatever the start took, the whole run stays within 6 minutes.
for program in cluster_test purge_test; do
    work="$build/tests/work/$program"
    mkdir -p "$work"
    budget=$((350 - (SECONDS - started)))
    ((budget >= 60)) || budget=60
    (cd "$work" && timeout --kill-after=5 "$budget" "$build/tests/$program") || status=$?
done
echo "run-cluster: done in $((SECONDS - started)) s, status $status"
exit "$status"
