#!/usr/bin/env bash
# Starts (or restarts) a private MariaDB server whose whole state lives in DIR,
# loads sql/jdfdb.sql into it and writes DIR/env.
#
#   scripts/db-start.sh [--tls] DIR [--run-as USER] [--no-schema] [--wait SECONDS] [-- SERVER-OPTION...]
#
# --tls: the server takes TCP clients over TLS only (require_secure_transport;
# the socket stays open to the administrator). DIR/tls gets a private CA
# (ca.pem, kept if there, so a cluster can hand its own CA to each node), a
# server certificate for 127.0.0.1 and a client certificate; DIR/env names
# them (NORVA_TEST_DB_CA, NORVA_TEST_DB_CERT, NORVA_TEST_DB_KEY). A DIR
# started with --tls keeps TLS on every later start.
# --run-as USER: as root, run the server as USER (it then owns DIR);
# --no-schema: do not load the schema (a cluster node that receives it from
# the others); --wait: how long the server may take to answer (30 s);
# options after -- go to mariadbd as they are.
# The first run creates DIR/data and picks a free TCP port on 127.0.0.1;
# later runs reuse both, so a server stopped or killed comes back with the
# same port and data. If the server is already running, only prints how to
# reach it.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
# shellcheck source-path=SCRIPTDIR source=db-common.sh
. "$here/db-common.sh"

usage="usage: $0 [--tls] DIR [--run-as USER] [--no-schema] [--wait SECONDS] [-- SERVER-OPTION...]"
tls=false
if [[ ${1:-} == --tls ]]; then
    tls=true
    shift
fi
[[ $# -ge 1 && -n $1 ]] || { echo "$usage" >&2; exit 2; }
target=$1
shift
run_as=root
load_schema=true
wait_seconds=30
extra_opts=()
while (($#)); do
    case $1 in
        --run-as) [[ $# -ge 2 ]] || { echo "$usage" >&2; exit 2; }; run_as=$2; shift 2 ;;
        --no-schema) load_schema=false; shift ;;
        --wait) [[ ${2:-} =~ ^[0-9]+$ ]] || { echo "$usage" >&2; exit 2; }; wait_seconds=$2; shift 2 ;;
        --tls) tls=true; shift ;;
        --) shift; extra_opts=("$@"); break ;;
        *) echo "$usage" >&2; exit 2 ;;
    esac
done
schema="$here/../sql/jdfdb.sql"
[[ -r $schema ]] || db_die "schema file not found: $schema"

mkdir -p "$target"
dir=$(db_abs_dir "$target")
sock="$dir/mysqld.sock"

# sun_path holds 108 bytes including the terminating NUL.
sock_bytes=$(printf %s "$sock" | wc -c)
if ((sock_bytes > 107)); then
    db_die "socket path is $sock_bytes bytes, the limit is 107: $sock (use a shorter DIR)"
fi

# Install the server if this machine lacks it.
if ! command -v mariadbd >/dev/null || ! command -v mariadb-install-db >/dev/null ||
    ! command -v mariadb-admin >/dev/null || ! command -v mariadb >/dev/null; then
    bash "$here/install-deps.sh" mariadb-server mariadb-client
fi

# As root the server must be told which user to run as (root unless asked
# otherwise; that user must be able to write DIR); otherwise it runs as the
# calling user, and the admin account over the socket is that user's
# (unix_socket authentication matches the login name).
if ((EUID == 0)); then
    dba=root
    user_opt=(--user="$run_as")
    [[ $run_as == root ]] || chown -R "$run_as:" "$dir"
else
    dba=$(id -un) || db_die "the current uid has no user name"
    user_opt=()
fi

admin=(mariadb-admin --no-defaults --protocol=socket -S "$sock" -u"$dba")
client=(mariadb --no-defaults --protocol=socket -S "$sock" -u"$dba")

pick_port() {
    local start=$((20000 + RANDOM % 20001)) i p
    for ((i = 0; i < 20001; i++)); do
        p=$((20000 + (start - 20000 + i) % 20001))
        if ! db_port_in_use "$p"; then
            echo "$p"
            return 0
        fi
    done
    return 1
}

show_logs() {
    local f
    for f in "$dir/mysqld.err" "$dir/mysqld.out"; do
        if [[ -s $f ]]; then
            echo "---- last lines of $f" >&2
            tail -n 30 "$f" >&2
        fi
    done
}

# Waits until the server answers on the socket; fails if PID dies or after
# wait_seconds.
wait_ready() {
    local pid=$1 deadline=$((SECONDS + wait_seconds))
    until "${admin[@]}" ping >/dev/null 2>&1; do
        if ! db_pid_alive "$pid"; then
            echo "$(basename "$0"): the server in $dir exited during start-up" >&2
            show_logs
            return 1
        fi
        if ((SECONDS >= deadline)); then
            echo "$(basename "$0"): the server in $dir did not answer within $wait_seconds s; killing it" >&2
            kill -KILL "$pid" 2>/dev/null || true
            show_logs
            return 1
        fi
        sleep 0.05
    done
}

write_env() {
    {
        printf 'NORVA_TEST_DB=tcp://127.0.0.1:%s\nNORVA_TEST_DB_DIR=%s\n' "$port" "$dir"
        if $tls; then
            printf 'NORVA_TEST_DB_CA=%s\nNORVA_TEST_DB_CERT=%s\nNORVA_TEST_DB_KEY=%s\n' "$dir/tls/ca.pem" \
                "$dir/tls/client.pem" "$dir/tls/client-key.pem"
        fi
    } >"$dir/env.tmp"
    mv -f "$dir/env.tmp" "$dir/env"
}

# TLS: the CA (unless one is there), the server's and a client's certificate.
# The server's key must be readable by the user it runs as. The server reads
# one options file, whose [sst] group only a cluster node's state transfer
# uses: it then goes through stunnel, checked against the CA.
defaults_opt=(--no-defaults)
tls_opts=()
setup_tls() {
    local t="$dir/tls"
    db_make_ca "$t"
    [[ -s $t/server.pem ]] || db_make_cert "$t" server 127.0.0.1 IP:127.0.0.1
    [[ -s $t/client.pem ]] || db_make_cert "$t" client norva-client ""
    [[ $run_as == root ]] || chown "$run_as:" "$t/server-key.pem"
    tls_opts=(--ssl-ca="$t/ca.pem" --ssl-cert="$t/server.pem" --ssl-key="$t/server-key.pem"
        --require-secure-transport=ON)
    printf '[sst]\ntca=%s\ntcert=%s\ntkey=%s\n' "$t/ca.pem" "$t/server.pem" "$t/server-key.pem" >"$t/sst.cnf"
    defaults_opt=(--defaults-file="$t/sst.cnf")
}

report() {
    local tls_client=""
    $tls && tls_client=" --ssl-ca=$dir/tls/ca.pem --ssl-verify-server-cert"
    cat <<EOF
MariaDB server for $dir is running (pid $1).
  library host:   tcp://127.0.0.1:$port
  client:         mariadb --no-defaults -h127.0.0.1 -P$port$tls_client -ulumbo27 -p jdfdb   (password lumbo27)
  admin (socket): mariadb --no-defaults -S $sock -u$dba
  environment:    $dir/env
  stop:           $here/db-stop.sh $dir
EOF
}

[[ -s $dir/tls/server.pem ]] && tls=true
$tls && setup_tls

# Already running: nothing to start.
if pid=$(db_running_pid "$dir"); then
    port=$(cat "$dir/port")
    wait_ready "$pid"
    write_env
    report "$pid"
    exit 0
fi

# First run: create the data directory. The marker file tells a finished
# installation from one that was interrupted.
if [[ ! -e $dir/installed ]]; then
    rm -rf "$dir/data"
    install_opt=("${user_opt[@]}")
    ((EUID == 0)) || install_opt+=(--auth-root-socket-user="$dba")
    if ! mariadb-install-db --no-defaults --datadir="$dir/data" "${install_opt[@]}" \
        --auth-root-authentication-method=socket --skip-test-db >"$dir/install.log" 2>&1; then
        cat "$dir/install.log" >&2
        db_die "mariadb-install-db failed for $dir/data"
    fi
    touch "$dir/installed"
fi

if [[ -s $dir/port ]]; then
    port=$(cat "$dir/port")
    [[ $port =~ ^[0-9]+$ ]] || db_die "bad port in $dir/port: $port"
    if db_port_in_use "$port"; then
        db_die "port $port (from $dir/port) is already in use by another process"
    fi
else
    port=$(pick_port) || db_die "no free TCP port found in 20000-40000"
    echo "$port" >"$dir/port"
fi

rm -f "$dir/mysqld.pid" "$dir/mysqld.bgpid"
setsid mariadbd "${defaults_opt[@]}" "${user_opt[@]}" \
    --datadir="$dir/data" --socket="$sock" --port="$port" --bind-address=127.0.0.1 \
    --pid-file="$dir/mysqld.pid" --log-error="$dir/mysqld.err" --skip-name-resolve \
    --innodb-buffer-pool-size=64M --innodb-flush-log-at-trx-commit=2 --character-set-server=utf8mb4 \
    --collation-server=utf8mb4_general_ci --max-allowed-packet=64M "${tls_opts[@]}" "${extra_opts[@]}" \
    </dev/null >>"$dir/mysqld.out" 2>&1 &
pid=$!
echo "$pid" >"$dir/mysqld.bgpid"

wait_ready "$pid"

# Keep the server's own idea of its pid (they differ only if setsid forked).
if [[ -s $dir/mysqld.pid ]]; then
    spid=$(tr -dc '0-9' <"$dir/mysqld.pid")
    if [[ -n $spid && $spid != "$pid" ]] && db_pid_is_ours "$spid" "$dir"; then
        pid=$spid
        echo "$pid" >"$dir/mysqld.bgpid"
    fi
fi

# The schema file is idempotent, so it is loaded on every start.
if $load_schema && ! "${client[@]}" <"$schema"; then
    db_die "loading $schema failed (the server keeps running; stop it with $here/db-stop.sh $dir)"
fi

write_env
report "$pid"
