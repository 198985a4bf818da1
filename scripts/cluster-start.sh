#!/usr/bin/env bash
# Starts (or brings back) a private MariaDB Galera cluster of N nodes on
# loopback ports, whose whole state lives in DIR, and writes DIR/env.
#
#   scripts/cluster-start.sh [--tls] DIR N
#
# --tls: one private CA for the cluster (DIR/tls/ca.pem); every node takes
# clients over TLS only with a certificate of its own from that CA (see
# db-start.sh --tls), and the nodes' own traffic is encrypted and checked
# against the CA too: Galera's replication (socket.ssl_*) and the full state
# transfer (rsync through stunnel, which the server's ssl-* options turn on).
# A DIR started with --tls keeps TLS on every later start.
#
# Node I (1..N) is a private server in DIR/nodeI (see db-start.sh), with its
# client port and three Galera ports (group communication, incremental and
# full state transfer) chosen once. The first start bootstraps node 1, loads
# sql/jdfdb.sql into it and lets the others join by a full state transfer.
# Later runs start only the nodes that are down: a node killed with
# cluster-kill-node.sh recovers its last position and rejoins by incremental
# state transfer. With no node running, node 1 bootstraps the cluster again.
#
# DIR/env holds NORVA_CLUSTER_HOSTS (every node, comma-separated, the form
# DBIPAddr takes), NORVA_CLUSTER_NODE<I>, NORVA_CLUSTER_SIZE and
# NORVA_CLUSTER_DIR; with TLS also NORVA_CLUSTER_CA.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
# shellcheck source-path=SCRIPTDIR source=db-common.sh
. "$here/db-common.sh"

tls=false
if [[ ${1:-} == --tls ]]; then
    tls=true
    shift
fi
[[ $# -eq 2 && -n $1 && $2 =~ ^[1-9][0-9]*$ ]] || { echo "usage: $0 [--tls] DIR N" >&2; exit 2; }
size=$2
provider=/usr/lib/galera/libgalera_smm.so
if [[ ! -e $provider ]] || ! command -v rsync >/dev/null || ! command -v stunnel >/dev/null; then
    bash "$here/install-deps.sh" galera-4 rsync stunnel4
fi

mkdir -p "$1"
dir=$(db_abs_dir "$1")
[[ -s $dir/tls/ca.pem ]] && tls=true
if [[ -s $dir/size && $(cat "$dir/size") != "$size" ]]; then
    db_die "$dir holds a cluster of $(cat "$dir/size") nodes, not $size"
fi
echo "$size" >"$dir/size"

# Galera's rsync state transfer fails when the nodes run as root, so as root
# they run as mysql, which must reach DIR.
if ((EUID == 0)); then
    run_as=(--run-as mysql)
    chmod 755 "$dir"
else
    run_as=()
fi

# Ports: node I has base+4(I-1) for clients and the next three for Galera,
# all below the kernel's range for outgoing connections (32768 up).
if [[ ! -s $dir/base ]]; then
    for ((try = 0; try < 200; try++)); do
        base=$((20000 + RANDOM % (12700 - 4 * size)))
        for ((p = base; p < base + 4 * size; p++)); do
            db_port_in_use "$p" && continue 2
        done
        echo "$base" >"$dir/base"
        break
    done
    [[ -s $dir/base ]] || db_die "no free run of $((4 * size)) ports found in 20000-32700"
fi
base=$(cat "$dir/base")
client_port() { echo $((base + 4 * ($1 - 1))); }
gcomm_port() { echo $((base + 4 * ($1 - 1) + 1)); }

members=""
for ((i = 1; i <= size; i++)); do
    members+="${members:+,}127.0.0.1:$(gcomm_port "$i")"
    mkdir -p "$dir/node$i"
    client_port "$i" >"$dir/node$i/port"
done

# TLS: every node gets the cluster's CA, so that db-start.sh --tls signs its
# certificate with it instead of making a CA of its own.
tls_start=()
if $tls; then
    db_make_ca "$dir/tls"
    for ((i = 1; i <= size; i++)); do
        mkdir -p "$dir/node$i/tls"
        [[ -s $dir/node$i/tls/ca.pem ]] || cp -p "$dir/tls/ca.pem" "$dir/tls/ca-key.pem" "$dir/node$i/tls/"
    done
    tls_start=(--tls)
fi

# Galera options of node I; extra words go after them.
galera_opts() {
    local g ssl=""
    g=$(gcomm_port "$1")
    if $tls; then
        local t="$dir/node$1/tls"
        ssl=";socket.ssl=YES;socket.ssl_cert=$t/server.pem;socket.ssl_key=$t/server-key.pem;socket.ssl_ca=$t/ca.pem"
    fi
    echo --binlog-format=ROW --innodb-autoinc-lock-mode=2 --wsrep-on=ON \
        --wsrep-provider="$provider" --wsrep-cluster-name=norva \
        --wsrep-cluster-address="gcomm://$members" --wsrep-node-address="127.0.0.1:$g" \
        "--wsrep-provider-options=gmcast.listen_addr=tcp://127.0.0.1:$g;ist.recv_addr=127.0.0.1:$((g + 1));gcache.size=32M$ssl" \
        --wsrep-sst-method=rsync --wsrep-sst-receive-address="127.0.0.1:$((g + 2))" "${@:2}"
}

admin_sql() {
    local node="$dir/node$1"
    mariadb --no-defaults --protocol=socket -S "$node/mysqld.sock" -u"$(id -un)" -N -B -e "$2" 2>/dev/null
}

# A node killed in the middle of its work does not know its last committed
# position (grastate.dat says seqno -1); the server finds it in its own log
# so that the node can ask for the missing writes only.
start_position() {
    local node="$dir/node$1" opts user_opt=()
    [[ -r $node/data/grastate.dat ]] && grep -q '^seqno: *-1' "$node/data/grastate.dat" || return 0
    ((EUID == 0)) && user_opt=(--user=mysql)
    read -ra opts <<<"$(galera_opts "$1")"
    rm -f "$node/recover.err"
    mariadbd --no-defaults "${user_opt[@]}" --datadir="$node/data" --socket="$node/recover.sock" \
        --skip-networking --log-error="$node/recover.err" --innodb-buffer-pool-size=64M \
        "${opts[@]}" --wsrep-recover </dev/null >/dev/null 2>&1 || true
    [[ -r $node/recover.err ]] || return 0
    sed -n 's/.*WSREP: Recovered position: *\([0-9a-f-]*:-\{0,1\}[0-9]*\).*/\1/p' "$node/recover.err" | tail -n 1
}

# Starts node I; bootstrap: as the first node of a new cluster, with the schema.
start_node() {
    local i=$1 opts position start_opts=("${tls_start[@]}" "${run_as[@]}")
    read -ra opts <<<"$(galera_opts "$i")"
    if [[ $2 == bootstrap ]]; then
        opts+=(--wsrep-new-cluster)
    else
        # A joiner waits for its state transfer, one joiner after another.
        start_opts+=(--no-schema --wait 120)
        # A joiner's first data comes whole from another node: nothing to install.
        if [[ ! -e $dir/node$i/installed ]]; then
            mkdir -p "$dir/node$i/data"
            touch "$dir/node$i/installed"
        fi
        position=$(start_position "$i")
        [[ -n $position ]] && opts+=(--wsrep-start-position="$position")
    fi
    bash "$here/db-start.sh" "$dir/node$i" "${start_opts[@]}" -- "${opts[@]}" >"$dir/node$i/start.log" 2>&1 ||
        { cat "$dir/node$i/start.log" >&2; return 1; }
}

running=()
down=()
for ((i = 1; i <= size; i++)); do
    if db_running_pid "$dir/node$i" >/dev/null; then running+=("$i"); else down+=("$i"); fi
done

if ((${#running[@]} == 0)); then
    # Node 1 starts a new cluster from its own data; the others join it.
    state="$dir/node1/data/grastate.dat"
    [[ -w $state ]] && sed -i 's/^safe_to_bootstrap: *0/safe_to_bootstrap: 1/' "$state"
    start_node 1 bootstrap || db_die "node 1 did not start"
    down=("${down[@]:1}")
fi

pids=()
for i in "${down[@]}"; do
    start_node "$i" join &
    pids+=($!)
done
failed=0
for pid in "${pids[@]}"; do wait "$pid" || failed=1; done
((failed == 0)) || db_die "a node did not start (logs in $dir/node*/mysqld.err)"

# Every node must be part of one cluster of N and ready for statements.
deadline=$((SECONDS + 90))
for ((i = 1; i <= size; i++)); do
    until [[ $(admin_sql "$i" "SELECT CONCAT(
            (SELECT VARIABLE_VALUE FROM information_schema.GLOBAL_STATUS WHERE VARIABLE_NAME = 'wsrep_cluster_size'), ' ',
            (SELECT VARIABLE_VALUE FROM information_schema.GLOBAL_STATUS WHERE VARIABLE_NAME = 'wsrep_local_state_comment'))") == "$size Synced" ]]; do
        ((SECONDS < deadline)) || db_die "node $i did not join a cluster of $size within 90 s (see $dir/node$i/mysqld.err)"
        sleep 0.2
    done
done

{
    hosts=""
    for ((i = 1; i <= size; i++)); do
        echo "NORVA_CLUSTER_NODE$i=tcp://127.0.0.1:$(client_port "$i")"
        hosts+="${hosts:+,}tcp://127.0.0.1:$(client_port "$i")"
    done
    echo "NORVA_CLUSTER_HOSTS=$hosts"
    echo "NORVA_CLUSTER_SIZE=$size"
    echo "NORVA_CLUSTER_DIR=$dir"
    if $tls; then echo "NORVA_CLUSTER_CA=$dir/tls/ca.pem"; fi
} >"$dir/env.tmp"
mv -f "$dir/env.tmp" "$dir/env"
echo "Galera cluster of $size nodes in $dir is running: $(grep HOSTS "$dir/env")"
